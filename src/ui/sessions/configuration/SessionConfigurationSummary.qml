import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// The capsule of a session's header: full access, and the menus where asked for.
RowLayout {
    id: summary
    required property var configuration
    required property var palette_
    property bool showsModel: false
    property bool showsEffort: false
    spacing: 6
    Loader {
        active: summary.showsModel
        visible: active
        sourceComponent: SessionModelMenu { configuration: summary.configuration; palette_: summary.palette_ }
    }
    Loader {
        active: summary.showsEffort
        visible: active
        sourceComponent: SessionEffortMenu { compact: false; configuration: summary.configuration; palette_: summary.palette_ }
    }
    Rectangle {
        objectName: "full-access"
        radius: height / 2
        color: Qt.rgba(1, 0.55, 0.16, 0.15)
        implicitWidth: access.implicitWidth + 16
        implicitHeight: access.implicitHeight + 6
        RowLayout {
            id: access
            anchors.centerIn: parent
            spacing: 4
            IconImage { name: summary.configuration.texts.fullAccessSymbol; color: summary.palette_.color("orange"); sourceSize: Qt.size(12, 12) }
            Label { text: summary.configuration.texts.fullAccess; font.bold: true; font.pointSize: 8; color: summary.palette_.color("orange") }
        }
    }
}
