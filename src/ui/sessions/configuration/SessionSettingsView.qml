import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// The session's settings sheet: model, thinking effort, permissions; disabled during a turn.
Dialog {
    id: sheet
    required property var configuration
    required property var palette_
    readonly property var texts: configuration.texts

    objectName: "session-settings-sheet"
    title: texts.settingsTitle
    modal: true
    Overlay.modal: Rectangle { color: sheet.palette_.color("scrim") }
    width: 540
    height: 560
    standardButtons: Dialog.Ok
    Component.onCompleted: standardButton(Dialog.Ok).text = texts.done

    ColumnLayout {
        anchors.fill: parent
        spacing: 12
        ColumnLayout {
            enabled: sheet.configuration.isIdle
            Layout.fillWidth: true
            spacing: 8
            Label { text: sheet.texts.modelHeading; font.bold: true }
            ComboBox {
                objectName: "session-settings-model"
                Accessible.name: sheet.texts.modelPicker
                model: sheet.configuration.modelPickerRows
                textRole: "label"
                valueRole: "id"
                currentIndex: sheet.configuration.modelPickerIndex
                onActivated: sheet.configuration.chooseModel(currentValue)
                Layout.fillWidth: true
            }
            RowLayout {
                visible: sheet.configuration.modelNote !== ""
                BusyIndicator { visible: sheet.configuration.modelNoteIsProgress; running: visible; implicitWidth: 18; implicitHeight: 18 }
                Label { text: sheet.configuration.modelNote; textFormat: Text.PlainText; font.pointSize: 8; opacity: 0.7; wrapMode: Text.Wrap; Layout.fillWidth: true }
                Button {
                    visible: sheet.configuration.modelNoteShowsReload
                    text: sheet.texts.reload
                    icon.name: sheet.texts.reloadSymbol
                    onClicked: sheet.configuration.reloadModels()
                }
            }
            Label { text: sheet.texts.effortHeading; font.bold: true }
            ComboBox {
                objectName: "session-settings-effort"
                Accessible.name: sheet.texts.effortPicker
                model: sheet.configuration.effortPickerRows
                textRole: "label"
                valueRole: "id"
                currentIndex: sheet.configuration.effortPickerIndex
                onActivated: sheet.configuration.chooseEffort(currentValue)
                Layout.fillWidth: true
            }
            Label {
                visible: text !== ""
                text: sheet.configuration.effortNote
                textFormat: Text.PlainText
                font.pointSize: 8
                opacity: 0.7
                wrapMode: Text.Wrap
                Layout.fillWidth: true
            }
            Label { text: sheet.texts.permissionsHeading; font.bold: true }
            PermissionModeChoices {
                objectName: "session-settings-permission"
                rows: sheet.configuration.permissionOptions
                palette_: sheet.palette_
                onChosen: (key) => sheet.configuration.choosePermissionMode(key)
                Layout.fillWidth: true
            }
        }
        RowLayout {
            objectName: "session-settings-footer"
            Layout.fillWidth: true
            IconImage { visible: sheet.configuration.footerSymbol !== ""; name: sheet.configuration.footerSymbol; sourceSize: Qt.size(14, 14) }
            Label { text: sheet.configuration.footer; font.pointSize: 8; wrapMode: Text.Wrap; Layout.fillWidth: true }
        }
        Item { Layout.fillHeight: true }
    }
}
