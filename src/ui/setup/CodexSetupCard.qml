import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Dialogs
import QtQuick.Layouts
import "../common"

// Where Codex was found, its version and sign-in, the ways to choose it, and how to install it.
Frame {
    id: card
    required property var controller
    required property var setup
    required property var palette_
    required property bool showsInstallHelp
    readonly property var texts: setup.texts
    readonly property var symbols: setup.symbols

    objectName: "codexSetupCard"
    // The custom path is read when the card is drawn, not observed.
    Component.onCompleted: setup.refreshCustomExecutable()
    onVisibleChanged: if (visible) setup.refreshCustomExecutable()

    Column {
        id: content
        width: card.availableWidth
        spacing: 10

        RowLayout {
            width: content.width
            SectionHeading {
                text: card.texts.setupHeading
                symbol: card.setup.setupSymbol
                color: card.palette_.color(card.setup.setupTint)
                symbolColor: color
            }
            Item { Layout.fillWidth: true }
            Button { objectName: "recheck"; text: card.texts.recheck; icon.name: card.symbols.refresh; onClicked: card.controller.restartCodex() }
        }

        Repeater {
            model: card.setup.setupRows
            RowLayout {
                required property string label
                required property string value
                required property bool monospaced
                width: content.width
                Label { text: label; opacity: 0.7; Layout.preferredWidth: 100; Layout.alignment: Qt.AlignTop }
                SelectableText { text: value; monospaced: monospaced; Layout.fillWidth: true }
            }
        }

        Loader {
            active: card.setup.showsSignIn
            visible: active
            width: content.width
            sourceComponent: SignInPanel {
                controller: card.controller
                setup: card.setup
                palette_: card.palette_
            }
        }

        Flow {
            width: content.width
            spacing: 10
            Button {
                objectName: "chooseExecutable"
                text: card.texts.chooseExecutable
                icon.name: card.symbols.folder
                highlighted: true
                onClicked: chooser.open()
            }
            Button {
                objectName: "useAutomaticDetection"
                text: card.texts.useAutomaticDetection
                visible: card.setup.usesCustomExecutable
                onClicked: {
                    card.controller.clearCustomExecutable()
                    card.setup.refreshCustomExecutable()
                }
            }
            Button {
                objectName: "officialSetup"
                text: card.texts.officialSetup
                flat: true
                icon.name: "help-browser"
                Accessible.description: card.setup.setupDocumentationLink
                onClicked: Qt.openUrlExternally(card.setup.setupDocumentationLink)
            }
        }

        Column {
            objectName: "installHelp"
            visible: card.showsInstallHelp
            width: content.width
            spacing: 8
            MenuSeparator { width: parent.width }
            Label { text: card.texts.installHeading; font.bold: true }
            Label { text: card.texts.installText; wrapMode: Text.Wrap; width: parent.width }
            Repeater {
                model: card.setup.installCommands
                RowLayout {
                    required property string label
                    required property string command
                    width: content.width
                    Label { text: label; Layout.preferredWidth: 100 }
                    SelectableText { text: command; monospaced: true; Layout.fillWidth: true }
                }
            }
        }
    }

    FileDialog {
        id: chooser
        objectName: "executableChooser"
        title: card.texts.chooserTitle
        acceptLabel: card.texts.chooserAccept
        fileMode: FileDialog.OpenFile
        onAccepted: {
            card.setup.useExecutable(selectedFile)
            card.setup.refreshCustomExecutable()
        }
    }
}
