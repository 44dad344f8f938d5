import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One status: a bar in its colour, a small title and one line of value.
Frame {
    id: card
    required property string title
    required property string value
    required property color tint
    Layout.fillWidth: true
    RowLayout {
        anchors.fill: parent
        Rectangle {
            width: 6
            Layout.fillHeight: true
            radius: 3
            color: card.tint
            Accessible.ignored: true
        }
        ColumnLayout {
            Label { text: card.title; font.pointSize: 8; opacity: 0.7 }
            Label { text: card.value; textFormat: Text.PlainText; elide: Text.ElideRight; Layout.fillWidth: true }
        }
    }
}
