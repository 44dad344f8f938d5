import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import "../../common"

// The model of a session as a pill that opens its menu.
PillMenuButton {
    id: pill
    required property var configuration
    objectName: configuration.texts.modelSelectorID
    symbol: configuration.texts.modelSymbol
    label: configuration.modelName
    tint: "transparent"
    Accessible.name: configuration.modelAccessibleName
    Accessible.description: configuration.modelHint
    menu: Menu {
        objectName: "session-model-menu"
        MenuSeparator { contentItem: Label { text: pill.configuration.texts.modelSection; font.pointSize: 8; opacity: 0.7 } }
        MenuItem { visible: pill.configuration.modelsPlaceholder !== ""; height: visible ? implicitHeight : 0; enabled: false; text: pill.configuration.modelsPlaceholder }
        Repeater {
            model: pill.configuration.modelOptions
            MenuItem {
                id: option
                required property string id
                required property string label
                required property bool selected
                text: label
                icon.name: selected ? pill.configuration.texts.selectedSymbol : ""
                enabled: pill.configuration.isIdle
                onTriggered: pill.configuration.chooseModel(id)
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
        MenuItem { visible: pill.configuration.modelLoadError !== ""; height: visible ? implicitHeight : 0; enabled: false; text: pill.configuration.modelLoadError }
        MenuSeparator {}
        MenuItem {
            text: pill.configuration.texts.reload
            icon.name: pill.configuration.texts.reloadSymbol
            onTriggered: pill.configuration.reloadModels()
        }
    }
}
