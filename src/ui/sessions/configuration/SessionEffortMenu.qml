import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import "../../common"

// The thinking effort of a session as a pill that opens its menu.
PillMenuButton {
    id: pill
    required property var configuration
    property bool compact: true
    objectName: configuration.texts.effortSelectorID
    symbol: configuration.texts.effortSymbol
    label: compact ? configuration.effortName : configuration.effortLabel
    tint: palette_.color("cyan")
    Accessible.name: configuration.effortAccessibleName
    Accessible.description: configuration.effortHint
    menu: Menu {
        objectName: "session-effort-menu"
        MenuSeparator { contentItem: Label { text: pill.configuration.texts.effortSection; font.pointSize: 8; opacity: 0.7 } }
        MenuItem { visible: pill.configuration.effortsPlaceholder !== ""; height: visible ? implicitHeight : 0; enabled: false; text: pill.configuration.effortsPlaceholder }
        Repeater {
            model: pill.configuration.effortOptions
            MenuItem {
                id: option
                required property string id
                required property string label
                required property bool selected
                text: label
                icon.name: selected ? pill.configuration.texts.selectedSymbol : ""
                enabled: pill.configuration.isIdle
                onTriggered: pill.configuration.chooseEffort(id)
                // The engine's names, drawn as plain text.
                contentItem: RowLayout {
                    spacing: 6
                    IconImage {
                        name: option.icon.name
                        sourceSize: Qt.size(16, 16)
                        Layout.preferredWidth: 16
                    }
                    Label {
                        text: option.text
                        textFormat: Text.PlainText
                        elide: Text.ElideRight
                        opacity: option.enabled ? 1 : 0.5
                        Layout.fillWidth: true
                    }
                }
            }
        }
    }
}
