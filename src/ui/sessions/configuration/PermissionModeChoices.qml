import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The permission modes as radio buttons in their colours, side by side, and beneath them what the
// chosen one allows.
ColumnLayout {
    id: choices
    required property var rows
    required property var palette_
    property string summary: ""
    signal chosen(string key)
    spacing: 2

    Flow {
        spacing: 4
        Layout.fillWidth: true
        Repeater {
            model: choices.rows
            RadioButton {
                id: choice
                required property string id
                required property string label
                required property string summary
                required property string colour
                required property bool selected
                objectName: "permission-mode-" + id
                text: label
                checked: selected
                font.bold: selected
                contentItem: Label {
                    text: choice.text
                    font: choice.font
                    color: choices.palette_.color(choice.colour)
                    leftPadding: choice.indicator.width + choice.spacing
                    verticalAlignment: Text.AlignVCenter
                }
                onClicked: choices.chosen(id)
                onSelectedChanged: if (selected) choices.summary = summary
                Component.onCompleted: if (selected) choices.summary = summary
                Accessible.description: summary
            }
        }
    }
    Label {
        objectName: "permission-mode-summary"
        text: choices.summary
        font.pointSize: 8
        opacity: 0.7
        wrapMode: Text.Wrap
        Layout.fillWidth: true
    }
}
