import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts

// Where Codex was found, its version and sign-in, the ways to choose it, and how to install it.
Frame {
    id: card
    required property var controller
    required property var setup
    required property var palette_
    required property bool showsInstallHelp

    Component.onCompleted: setup.refreshCustomExecutable()

    ColumnLayout {
        anchors.fill: parent
        RowLayout {
            Label { text: "CODEX SETUP"; font.bold: true; color: card.palette_.color(card.setup.setupTint) }
            Item { Layout.fillWidth: true }
            Button { objectName: "recheck"; text: "Recheck"; icon.name: "view-refresh"; onClicked: card.controller.restartCodex() }
        }
        Repeater {
            model: card.setup.setupRows
            RowLayout {
                required property var modelData
                Label { text: modelData.label; opacity: 0.7; Layout.preferredWidth: 100 }
                TextEdit {
                    text: modelData.value
                    readOnly: true
                    selectByMouse: true
                    textFormat: TextEdit.PlainText
                    font.family: modelData.monospaced ? "monospace" : Qt.application.font.family
                    color: card.palette.text
                    Layout.fillWidth: true
                }
            }
        }
        RowLayout {
            Button {
                objectName: "chooseExecutable"
                text: "Choose Codex Executable…"
                icon.name: "folder-open"
                highlighted: true
                onClicked: chooser.open()
            }
            Button {
                objectName: "useAutomaticDetection"
                text: "Use Automatic Detection"
                visible: card.setup.usesCustomExecutable
                onClicked: { card.controller.clearCustomExecutable(); card.setup.refreshCustomExecutable() }
            }
            Label {
                text: "<a href=\"" + card.setup.setupDocumentationLink + "\">Official Codex setup</a>"
                onLinkActivated: (link) => Qt.openUrlExternally(link)
            }
        }
        ColumnLayout {
            objectName: "installHelp"
            visible: card.showsInstallHelp
            Label { text: "Installing Codex on a clean Mac"; font.bold: true }
            Label {
                text: "Nimbrel accepts the official standalone installer, Homebrew cask, or npm package. After installing, run codex once in Terminal and sign in, then choose Recheck."
                wrapMode: Text.Wrap
                Layout.fillWidth: true
            }
            Repeater {
                model: card.setup.installCommands
                RowLayout {
                    required property var modelData
                    Label { text: modelData.label; Layout.preferredWidth: 100 }
                    TextEdit { text: modelData.command; readOnly: true; selectByMouse: true; font.family: "monospace"; color: card.palette.text }
                }
            }
        }
    }

    FileDialog {
        id: chooser
        title: "Choose the Codex executable"
        acceptLabel: "Use Codex"
        fileMode: FileDialog.OpenFile
        onAccepted: { card.setup.useExecutable(selectedFile); card.setup.refreshCustomExecutable() }
    }
}
