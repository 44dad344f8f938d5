import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import "../../common"

// The session's permission mode as a pill in its colour that opens the menu of modes.
PillMenuButton {
    id: pill
    required property var configuration
    objectName: configuration.texts.permissionSelectorID
    symbol: configuration.texts.permissionSymbol
    label: configuration.permissionTitle
    tint: palette_.color(configuration.permissionColour)
    labelColor: Qt.darker(palette_.color(configuration.permissionColour), 1.35)
    font.bold: true
    Accessible.name: configuration.permissionTitle
    Accessible.description: configuration.permissionSummary
    menu: Menu {
        objectName: "session-permission-menu"
        width: 340
        MenuSeparator { contentItem: Label { text: pill.configuration.texts.permissionSection; font.pointSize: 8; opacity: 0.7 } }
        Repeater {
            model: pill.configuration.permissionOptions
            MenuItem {
                id: option
                required property string id
                required property string label
                required property string summary
                required property string colour
                required property bool selected
                objectName: "session-permission-" + id
                checkable: true
                checked: selected
                contentItem: ColumnLayout {
                    spacing: 0
                    Label { text: option.label; color: pill.palette_.color(option.colour); font.bold: option.selected; leftPadding: option.indicator ? option.indicator.width + 6 : 0 }
                    Label { text: option.summary; font.pointSize: 8; opacity: 0.7; wrapMode: Text.Wrap; leftPadding: option.indicator ? option.indicator.width + 6 : 0; Layout.fillWidth: true; Layout.preferredWidth: 300 }
                }
                onTriggered: pill.configuration.choosePermissionMode(id)
            }
        }
    }
}
