import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts
import "configuration"

// The sheet that starts a session: folder, first task, model and effort, Cancel and Create.
Page {
    id: sheet
    required property var view
    required property var palette_
    readonly property var texts: view.texts
    signal finished(bool create)

    objectName: "new-session-sheet"
    padding: 20
    header: Label {
        text: sheet.texts.title
        font.bold: true
        font.pointSize: 14
        padding: 20
        bottomPadding: 4
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 8
        Label { text: sheet.texts.folderSection; font.pointSize: 8; font.bold: true; opacity: 0.7 }
        RowLayout {
            Layout.fillWidth: true
            TextField {
                objectName: "new-session-folder"
                text: sheet.view.cwd
                placeholderText: sheet.texts.folderPrompt
                font.family: "monospace"
                onTextEdited: sheet.view.cwd = text
                Layout.fillWidth: true
            }
            Button {
                objectName: "new-session-choose"
                text: sheet.texts.choose
                onClicked: folderDialog.open()
            }
        }
        Label { text: sheet.texts.taskSection; font.pointSize: 8; font.bold: true; opacity: 0.7; Layout.topMargin: 8 }
        ScrollView {
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(7, Math.max(3, task.lineCount)) * taskMetrics.lineSpacing
                                    + task.topPadding + task.bottomPadding
            FontMetrics { id: taskMetrics; font: task.font }
            TextArea {
                id: task
                objectName: "new-session-prompt"
                text: sheet.view.prompt
                placeholderText: sheet.texts.taskPrompt
                textFormat: TextEdit.PlainText
                wrapMode: TextEdit.Wrap
                onTextChanged: sheet.view.prompt = text
            }
        }
        Frame {
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.minimumHeight: 215
            Layout.topMargin: 8
            NewSessionConfigurationControls {
                width: parent.width
                configuration: sheet.view.configuration
                palette_: sheet.palette_
            }
        }
        RowLayout {
            Layout.fillWidth: true
            Item { Layout.fillWidth: true }
            Button {
                objectName: "new-session-cancel"
                text: sheet.texts.cancel
                onClicked: sheet.finished(false)
            }
            Button {
                objectName: "new-session-create"
                text: sheet.texts.create
                highlighted: true
                onClicked: sheet.finished(true)
            }
        }
    }

    FolderDialog {
        id: folderDialog
        objectName: "new-session-folder-dialog"
        acceptLabel: sheet.texts.chooseAccept
        onAccepted: sheet.view.chooseFolder(selectedFolder)
    }
}
