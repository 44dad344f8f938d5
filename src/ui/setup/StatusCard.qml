import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// One status: its symbol in its colour, a small title and one line of value.
Frame {
    id: card
    required property string title
    required property string value
    required property string symbol
    // The name of its colour in the window's palette.
    required property string color
    required property var palette_
    readonly property color tint: palette_.color(color)

    Accessible.name: title
    Accessible.description: value

    RowLayout {
        anchors.fill: parent
        spacing: 10
        Rectangle {
            implicitWidth: 28
            implicitHeight: 28
            radius: 14
            color: card.tint
            Accessible.ignored: true
            IconImage {
                anchors.centerIn: parent
                name: card.symbol
                color: "white"
                sourceSize: Qt.size(16, 16)
            }
        }
        ColumnLayout {
            spacing: 2
            Layout.fillWidth: true
            Label { text: card.title; font.pointSize: 8; opacity: 0.7 }
            Label {
                text: card.value
                textFormat: Text.PlainText
                wrapMode: Text.Wrap
                Layout.fillWidth: true
            }
        }
    }
}
