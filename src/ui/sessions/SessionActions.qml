import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// What can be done to one session: a menu, and the sheets that rename or archive it.
Item {
    id: actions
    required property var view
    readonly property var texts: view.texts
    property string threadID
    property string title

    // At the pointer, or below anchor where one is given.
    function openFor(id, name, anchor) {
        threadID = id
        title = name
        if (anchor)
            menu.popup(anchor, 0, anchor.height)
        else
            menu.popup()
    }

    Menu {
        id: menu
        objectName: "session-actions-menu"
        MenuItem {
            objectName: "session-rename"
            text: actions.texts.rename
            icon.name: actions.texts.renameSymbol
            onTriggered: {
                nameField.text = actions.title
                nameField.selectAll()
                renameSheet.open()
            }
        }
        MenuItem {
            objectName: "session-fork"
            text: actions.texts.fork
            icon.name: actions.texts.forkSymbol
            onTriggered: actions.view.forkSession(actions.threadID)
        }
        MenuSeparator {}
        MenuItem {
            objectName: "session-archive"
            text: actions.texts.archive
            icon.name: actions.texts.archiveSymbol
            onTriggered: archiveSheet.open()
        }
    }

    Dialog {
        id: renameSheet
        objectName: "rename-sheet"
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(420, parent.width - 40)
        modal: true
        title: actions.texts.renameTitle
        onOpened: nameField.forceActiveFocus()
        onAccepted: actions.view.renameSession(actions.threadID, nameField.text)
        contentItem: TextField {
            id: nameField
            objectName: "rename-field"
            placeholderText: actions.texts.namePlaceholder
            selectByMouse: true
            onAccepted: if (text.trim().length > 0) renameSheet.accept()
        }
        footer: DialogButtonBox {
            Button {
                objectName: "rename-confirm"
                text: actions.texts.renameConfirm
                enabled: nameField.text.trim().length > 0
                highlighted: true
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
            Button { text: actions.texts.cancel; DialogButtonBox.buttonRole: DialogButtonBox.RejectRole }
        }
    }

    Dialog {
        id: archiveSheet
        objectName: "archive-sheet"
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(420, parent.width - 40)
        modal: true
        title: actions.view.archiveQuestion(actions.title)
        onAccepted: actions.view.archiveSession(actions.threadID)
        // The session's name is anyone's text: drawn as plain text, never as markup.
        header: Label {
            text: archiveSheet.title
            textFormat: Text.PlainText
            font.bold: true
            elide: Text.ElideRight
            padding: 12
            bottomPadding: 0
        }
        contentItem: Label {
            text: actions.texts.archiveText
            wrapMode: Text.Wrap
        }
        footer: DialogButtonBox {
            Button {
                objectName: "archive-confirm"
                text: actions.texts.archiveConfirm
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
            Button { text: actions.texts.cancel; DialogButtonBox.buttonRole: DialogButtonBox.RejectRole }
        }
    }
}
