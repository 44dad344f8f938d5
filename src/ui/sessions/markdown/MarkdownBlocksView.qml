import QtQuick
import QtQuick.Controls

// A message as Markdown: its blocks one under another, indented by the lists and quotes they sit
// in, a list item's marker in its margin.
Column {
    id: view
    required property var blocks
    required property var actions
    required property var palette_
    spacing: 6

    Repeater {
        model: view.blocks
        delegate: Item {
            id: block
            required property int index
            required property string blockType
            required property int headingLevel
            required property int listDepth
            required property string marker
            required property int quoteDepth
            required property var spans
            required property string code
            required property string language
            required property var cells
            required property int columns
            required property string plainText
            readonly property real indent: quoteDepth * 14 + listDepth * 20
            objectName: "markdown-" + blockType + "-" + index
            width: view.width
            implicitHeight: body.item ? body.item.implicitHeight : 0

            Repeater {
                model: block.quoteDepth
                Rectangle {
                    required property int index
                    x: index * 14
                    width: 3
                    height: block.height
                    radius: 1
                    color: view.palette_.color("quote")
                }
            }
            Label {
                visible: block.marker !== ""
                text: block.marker
                textFormat: Text.PlainText
                x: block.indent - width - 5
                topPadding: 0
            }
            Loader {
                id: body
                x: block.indent
                width: block.width - block.indent
                sourceComponent: block.blockType === "code" ? codeBlock
                               : block.blockType === "table" ? tableBlock
                               : block.blockType === "rule" ? ruleBlock
                               : block.blockType === "notice" ? noticeBlock
                               : textBlock
            }
            Component {
                id: textBlock
                MarkdownSpanText {
                    actions: view.actions
                    palette_: view.palette_
                    spans: block.spans
                    font.bold: block.blockType === "heading"
                    font.pointSize: block.blockType === "heading"
                                    ? Qt.application.font.pointSize + Math.max(0, 4 - block.headingLevel) * 2
                                    : Qt.application.font.pointSize
                }
            }
            Component {
                id: codeBlock
                MarkdownCodeBlock {
                    actions: view.actions
                    palette_: view.palette_
                    code: block.code
                    language: block.language
                }
            }
            Component {
                id: tableBlock
                MarkdownTable {
                    actions: view.actions
                    palette_: view.palette_
                    cells: block.cells
                    columns: block.columns
                }
            }
            Component {
                id: ruleBlock
                Item {
                    implicitHeight: 9
                    Rectangle { y: 4; width: parent.width; height: 1; color: view.palette_.color("quote") }
                }
            }
            Component {
                id: noticeBlock
                Label {
                    text: block.plainText
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    opacity: 0.6
                    font.italic: true
                }
            }
        }
    }
}
