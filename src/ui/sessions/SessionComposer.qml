import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts

// The message field (1 to 6 lines, monospaced), the images going with it as removable thumbnails,
// and its attach and send buttons; Ctrl+Return sends, pasting an image attaches it.
ColumnLayout {
    id: composer
    required property var view
    readonly property var images: view.images
    readonly property real lineHeight: fontMetrics.lineSpacing
    spacing: 6

    FontMetrics { id: fontMetrics; font.family: "monospace" }

    Flow {
        objectName: "composer-images"
        visible: composer.images !== null && composer.images.images.length > 0
        spacing: 6
        Layout.fillWidth: true
        Repeater {
            model: composer.images ? composer.images.images : []
            Rectangle {
                required property var modelData
                required property int index
                objectName: "composer-image-" + index
                width: 72
                height: 72
                radius: 6
                color: "transparent"
                border.color: composer.palette.mid
                Image {
                    anchors.fill: parent
                    anchors.margins: 3
                    source: parent.modelData.source
                    sourceSize: Qt.size(132, 132)
                    fillMode: Image.PreserveAspectCrop
                    asynchronous: true
                    cache: false
                    Accessible.name: parent.modelData.name + ", " + parent.modelData.sizeText
                }
                RoundButton {
                    objectName: "composer-image-remove-" + parent.index
                    anchors.top: parent.top
                    anchors.right: parent.right
                    anchors.margins: -4
                    width: 22
                    height: 22
                    padding: 2
                    icon.name: composer.images.removeSymbol
                    icon.width: 10
                    icon.height: 10
                    Accessible.name: composer.images.removeLabel
                    ToolTip.visible: hovered
                    ToolTip.text: composer.images.removeLabel
                    onClicked: composer.images.remove(parent.modelData.id)
                }
            }
        }
    }
    Label {
        objectName: "composer-image-error"
        visible: composer.images !== null && composer.images.error !== ""
        text: composer.images ? composer.images.error : ""
        textFormat: Text.PlainText
        wrapMode: Text.Wrap
        color: composer.palette.windowText
        opacity: 0.8
        Layout.fillWidth: true
    }

    RowLayout {
        spacing: 8
        Layout.fillWidth: true
        ToolButton {
            objectName: "composer-attach"
            visible: composer.images !== null
            icon.name: composer.images ? composer.images.attachSymbol : ""
            text: composer.images ? composer.images.attachLabel : ""
            display: AbstractButton.IconOnly
            Accessible.name: text
            ToolTip.visible: hovered
            ToolTip.text: text
            Layout.alignment: Qt.AlignBottom
            onClicked: chooser.open()
        }
        ScrollView {
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(6, Math.max(1, field.lineCount)) * composer.lineHeight
                                    + field.topPadding + field.bottomPadding
            TextArea {
                id: field
                objectName: "composer"
                text: composer.view.draft
                placeholderText: composer.view.placeholder
                textFormat: TextEdit.PlainText
                font.family: "monospace"
                wrapMode: TextEdit.Wrap
                Accessible.name: composer.view.placeholder
                onTextChanged: composer.view.draft = text
                Keys.onPressed: event => {
                    if ((event.key === Qt.Key_Return || event.key === Qt.Key_Enter)
                            && (event.modifiers & Qt.ControlModifier)) {
                        composer.view.submit()
                        event.accepted = true
                    } else if (event.matches(StandardKey.Paste) && composer.images) {
                        event.accepted = composer.images.pasteImage()
                    }
                }
            }
        }
        Button {
            objectName: "composer-send"
            icon.name: composer.view.sendSymbol
            text: composer.view.sendLabel
            display: AbstractButton.IconOnly
            enabled: composer.view.sendEnabled
            highlighted: true
            Accessible.name: text
            ToolTip.visible: hovered
            ToolTip.text: text + " (Ctrl+Return)"
            Layout.alignment: Qt.AlignBottom
            onClicked: composer.view.send()
        }
    }
    Shortcut {
        sequences: ["Ctrl+Return", "Ctrl+Enter"]
        enabled: composer.view.sendEnabled
        onActivated: composer.view.send()
    }
    FileDialog {
        id: chooser
        objectName: "composer-chooser"
        title: composer.images ? composer.images.chooserTitle : ""
        nameFilters: composer.images ? composer.images.chooserFilters : []
        fileMode: FileDialog.OpenFiles
        onAccepted: composer.images.attachFiles(selectedFiles)
    }
}
