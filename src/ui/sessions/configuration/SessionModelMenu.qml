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
                required property string id
                required property string label
                required property bool selected
                text: label
                icon.name: selected ? pill.configuration.texts.selectedSymbol : ""
                enabled: pill.configuration.isIdle
                onTriggered: pill.configuration.chooseModel(id)
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
