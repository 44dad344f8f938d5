import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A share left: its title, the share large and in its tint, and a bar of it.
ColumnLayout {
    id: bar
    required property string title
    required property string shareText
    required property real amount
    required property color tint
    required property string accessibleValue

    spacing: 4
    RowLayout {
        Layout.fillWidth: true
        Label {
            text: bar.title
            textFormat: Text.PlainText
            elide: Text.ElideRight
            Layout.fillWidth: true
        }
        Label {
            text: bar.shareText
            textFormat: Text.PlainText
            color: bar.tint
            font.pointSize: 14
            font.bold: true
        }
    }
    ProgressBar {
        from: 0
        to: 100
        value: bar.amount
        palette.highlight: bar.tint
        Layout.fillWidth: true
        Accessible.name: bar.title
        Accessible.description: bar.accessibleValue
    }
}
