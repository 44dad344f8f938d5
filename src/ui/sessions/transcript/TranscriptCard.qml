import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import "../../common"
import "../markdown"

// One transcript entry: its title and status in its kind's colour, and its output, shortened.
Rectangle {
    id: card
    required property var palette_
    required property var view
    required property string entryID
    required property string title
    required property string status
    required property string symbol
    required property string accent
    required property string text
    required property bool muted
    required property bool monospaced
    required property string toggleLabel
    required property bool inGroup
    required property var blocks
    required property var links
    required property var images
    required property string partText
    required property int previousPart
    required property int nextPart
    readonly property color tint: palette_.color(accent)

    objectName: "card-" + entryID
    radius: 8
    color: Qt.rgba(tint.r, tint.g, tint.b, 0.08)
    border.color: Qt.rgba(tint.r, tint.g, tint.b, 0.35)
    implicitHeight: content.implicitHeight + 20

    ColumnLayout {
        id: content
        x: 10
        y: 10
        width: card.width - 20
        spacing: 6
        RowLayout {
            Layout.fillWidth: true
            IconImage { name: card.symbol; color: card.tint; sourceSize: Qt.size(16, 16) }
            Label {
                text: card.title
                textFormat: Text.PlainText
                font.bold: true
                color: card.tint
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
            Label {
                visible: card.status !== ""
                text: card.status
                textFormat: Text.PlainText
                font.family: "monospace"
                font.pointSize: 8
                color: card.tint
                opacity: 0.8
            }
        }
        MarkdownBlocksView {
            objectName: "markdown-" + card.entryID
            visible: card.blocks !== null
            blocks: card.blocks
            actions: card.view.markdown
            palette_: card.palette_
            Layout.fillWidth: true
            Layout.preferredWidth: 1
        }
        SelectableText {
            objectName: "output-" + card.entryID
            visible: card.text !== "" && card.blocks === null
            text: card.text
            monospaced: card.monospaced
            font.pointSize: card.monospaced ? 9 : Qt.application.font.pointSize
            opacity: card.muted ? 0.6 : 1
            Layout.fillWidth: true
            Layout.preferredWidth: 1
        }
        Flow {
            visible: !!card.images && card.images.length > 0
            spacing: 6
            Layout.fillWidth: true
            Repeater {
                model: card.images
                Item {
                    required property var modelData
                    required property int index
                    objectName: "image-" + card.entryID + "-" + index
                    implicitWidth: modelData.source !== "" ? picture.width : label.implicitWidth
                    implicitHeight: modelData.source !== "" ? picture.height : label.implicitHeight
                    width: implicitWidth
                    height: implicitHeight
                    Image {
                        id: picture
                        visible: parent.modelData.source !== ""
                        source: parent.modelData.source
                        width: 240
                        height: 160
                        sourceSize: Qt.size(480, 320)
                        fillMode: Image.PreserveAspectFit
                        horizontalAlignment: Image.AlignLeft
                        asynchronous: true
                        cache: false
                    }
                    Label {
                        id: label
                        visible: parent.modelData.source === ""
                        text: parent.modelData.label
                        textFormat: Text.PlainText
                        font.family: "monospace"
                        opacity: 0.7
                    }
                }
            }
        }
        Flow {
            visible: !!card.links && card.links.length > 0
            spacing: 6
            Layout.fillWidth: true
            Repeater {
                model: card.links
                Button {
                    id: changeLink
                    required property var modelData
                    required property int index
                    objectName: "change-link-" + card.entryID + "-" + index
                    text: modelData.label
                    flat: true
                    Accessible.name: text
                    onClicked: card.view.revealChange(modelData.turnID, modelData.path)
                    // A file's name is the engine's text: drawn as plain text, never as markup.
                    contentItem: RowLayout {
                        spacing: 4
                        IconImage {
                            name: changeLink.modelData.symbol
                            sourceSize: Qt.size(14, 14)
                            color: card.tint
                        }
                        Label {
                            text: changeLink.text
                            textFormat: Text.PlainText
                            font.family: "monospace"
                            color: card.tint
                            elide: Text.ElideMiddle
                            Layout.fillWidth: true
                        }
                    }
                }
            }
        }
        RowLayout {
            visible: card.partText !== "" || card.toggleLabel !== ""
            Layout.fillWidth: true
            Label {
                objectName: "answer-part-" + card.entryID
                visible: card.partText !== ""
                text: card.partText
                textFormat: Text.PlainText
                opacity: 0.6
            }
            Button {
                objectName: "previous-part-" + card.entryID
                visible: card.previousPart >= 0
                text: card.view.previousPartText
                flat: true
                palette.buttonText: card.tint
                onClicked: card.view.showAnswerPart(card.entryID, card.previousPart)
            }
            Button {
                objectName: "next-part-" + card.entryID
                visible: card.nextPart >= 0
                text: card.view.nextPartText
                flat: true
                palette.buttonText: card.tint
                onClicked: card.view.showAnswerPart(card.entryID, card.nextPart)
            }
            Button {
                objectName: "toggle-" + card.entryID
                visible: card.toggleLabel !== ""
                text: card.toggleLabel
                flat: true
                palette.buttonText: card.tint
                onClicked: card.view.toggleFullText(card.entryID)
            }
        }
    }
}
