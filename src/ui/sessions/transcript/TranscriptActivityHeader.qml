import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// The header of a run of work steps: "Processing", how many, and whether they show.
ItemDelegate {
    id: header
    required property var view
    required property string blockID
    required property string title
    required property string symbol
    required property string updatesText
    required property string accessibilityValue
    required property string accessibilityID
    required property string chevron

    objectName: accessibilityID
    Accessible.name: title + ", " + updatesText
    Accessible.description: accessibilityValue
    onClicked: view.toggleGroup(blockID)
    contentItem: RowLayout {
        spacing: 8
        IconImage { name: header.symbol; sourceSize: Qt.size(16, 16) }
        Label { text: header.title; font.bold: true }
        Label { text: header.updatesText; opacity: 0.7; Layout.fillWidth: true }
        IconImage { name: header.chevron; sourceSize: Qt.size(16, 16) }
    }
}
