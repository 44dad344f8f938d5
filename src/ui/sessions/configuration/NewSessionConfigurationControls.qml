import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// The model and thinking effort of a session about to be created, and its permissions.
ColumnLayout {
    id: controls
    required property var configuration
    required property var palette_
    readonly property var texts: configuration.texts
    spacing: 8

    Label { text: controls.texts.modelSection; font.bold: true }
    GridLayout {
        columns: 2
        Layout.fillWidth: true
        Label { text: controls.texts.modelPicker }
        ComboBox {
            id: modelCombo
            objectName: "new-session-model"
            // The engine's names, drawn as plain text.
            contentItem: Label {
                text: modelCombo.displayText
                textFormat: Text.PlainText
                leftPadding: 6
                verticalAlignment: Text.AlignVCenter
                elide: Text.ElideRight
            }
            delegate: ItemDelegate {
                id: row
                required property int index
                required property string label
                width: modelCombo.width
                highlighted: modelCombo.highlightedIndex === index
                contentItem: Label {
                    text: row.label
                    textFormat: Text.PlainText
                    elide: Text.ElideRight
                }
            }
            model: controls.configuration.modelRows
            textRole: "label"
            valueRole: "id"
            currentIndex: controls.configuration.modelIndex
            onActivated: controls.configuration.model = currentValue
            Layout.fillWidth: true
        }
        Label { text: controls.texts.effortPicker }
        ComboBox {
            id: effortCombo
            objectName: "new-session-effort"
            // The engine's names, drawn as plain text.
            contentItem: Label {
                text: effortCombo.displayText
                textFormat: Text.PlainText
                leftPadding: 6
                verticalAlignment: Text.AlignVCenter
                elide: Text.ElideRight
            }
            delegate: ItemDelegate {
                id: row
                required property int index
                required property string label
                width: effortCombo.width
                highlighted: effortCombo.highlightedIndex === index
                contentItem: Label {
                    text: row.label
                    textFormat: Text.PlainText
                    elide: Text.ElideRight
                }
            }
            model: controls.configuration.effortRows
            textRole: "label"
            valueRole: "id"
            currentIndex: controls.configuration.effortIndex
            onActivated: controls.configuration.effort = currentValue
            Layout.fillWidth: true
        }
    }
    RowLayout {
        visible: controls.configuration.statusText !== ""
        BusyIndicator { visible: controls.configuration.statusIsProgress; running: visible; implicitWidth: 18; implicitHeight: 18 }
        Label { text: controls.configuration.statusText; textFormat: Text.PlainText; wrapMode: Text.Wrap; Layout.fillWidth: true }
        Button {
            visible: controls.configuration.statusShowsReload
            text: controls.texts.reload
            icon.name: controls.texts.reloadSymbol
            onClicked: controls.configuration.reloadModels()
        }
    }
    Label { text: controls.texts.permissionsHeading; font.bold: true }
    PermissionModeChoices {
        objectName: "new-session-permission"
        rows: controls.configuration.permissionRows
        palette_: controls.palette_
        onChosen: (key) => controls.configuration.permissionMode = key
        Layout.fillWidth: true
    }
    Label { text: controls.texts.permissionNote; font.pointSize: 8; opacity: 0.7; wrapMode: Text.Wrap; Layout.fillWidth: true }
}
