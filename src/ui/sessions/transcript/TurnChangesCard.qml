import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// What a turn changed: its files with their added and removed lines, each file's diff folded until
// opened, added and removed lines coloured.
Rectangle {
    id: card
    required property var palette_
    required property var view
    required property string turnID
    required property string title
    required property string summary
    required property string symbol
    required property string accent
    required property var files
    readonly property color tint: palette_.color(accent)

    objectName: "changes-" + turnID
    radius: 8
    color: Qt.rgba(tint.r, tint.g, tint.b, 0.08)
    border.color: Qt.rgba(tint.r, tint.g, tint.b, 0.35)
    implicitHeight: content.implicitHeight + 20

    ColumnLayout {
        id: content
        x: 10
        y: 10
        width: card.width - 20
        spacing: 4
        RowLayout {
            Layout.fillWidth: true
            IconImage { name: card.symbol; color: card.tint; sourceSize: Qt.size(16, 16) }
            Label {
                text: card.title
                textFormat: Text.PlainText
                font.bold: true
                color: card.tint
            }
            Label {
                objectName: "changes-summary-" + card.turnID
                text: card.summary
                textFormat: Text.PlainText
                opacity: 0.8
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
        }
        Repeater {
            model: card.files
            ColumnLayout {
                id: file
                required property string path
                required property string changeText
                required property string countsText
                required property string addedText
                required property string removedText
                required property bool expanded
                required property string chevron
                required property var lines
                required property string toggleLabel
                required property string accessibilityID
                objectName: accessibilityID + "-" + card.turnID
                spacing: 2
                Layout.fillWidth: true
                ItemDelegate {
                    objectName: "toggle-" + file.objectName
                    Layout.fillWidth: true
                    padding: 2
                    Accessible.name: file.path
                    Accessible.description: file.countsText
                    onClicked: card.view.toggleChangedFile(card.turnID, file.path)
                    contentItem: RowLayout {
                        spacing: 6
                        IconImage { name: file.chevron; sourceSize: Qt.size(12, 12); color: card.palette.windowText }
                        Label {
                            text: file.path
                            textFormat: Text.PlainText
                            font.family: "monospace"
                            elide: Text.ElideMiddle
                            Layout.fillWidth: true
                        }
                        Label {
                            visible: file.changeText !== ""
                            text: file.changeText
                            textFormat: Text.PlainText
                            opacity: 0.7
                            font.pointSize: 8
                            elide: Text.ElideRight
                            Layout.maximumWidth: 200
                        }
                        Label {
                            objectName: "added-" + file.objectName
                            text: file.addedText
                            textFormat: Text.PlainText
                            font.family: "monospace"
                            color: card.palette_.color("added")
                        }
                        Label {
                            objectName: "removed-" + file.objectName
                            text: file.removedText
                            textFormat: Text.PlainText
                            font.family: "monospace"
                            color: card.palette_.color("removed")
                        }
                    }
                }
                Rectangle {
                    visible: file.expanded
                    color: card.palette.base
                    radius: 4
                    Layout.fillWidth: true
                    implicitHeight: diffArea.implicitHeight + 8
                    Flickable {
                        id: diffArea
                        x: 4
                        y: 4
                        width: parent.width - 8
                        implicitHeight: diffText.implicitHeight + (ScrollBar.horizontal.visible ? 10 : 0)
                        height: implicitHeight
                        contentWidth: Math.max(width, diffText.implicitWidth)
                        contentHeight: diffText.implicitHeight
                        flickableDirection: Flickable.HorizontalFlick
                        boundsBehavior: Flickable.StopAtBounds
                        clip: true
                        ScrollBar.horizontal: ScrollBar {}
                        TextArea {
                            id: diffText
                            objectName: "diff-" + file.objectName
                            width: diffArea.contentWidth
                            readOnly: true
                            selectByMouse: true
                            textFormat: TextEdit.PlainText
                            wrapMode: TextEdit.NoWrap
                            font.family: "monospace"
                            font.pointSize: 9
                            padding: 0
                            background: null
                            Component.onCompleted: card.view.writeDiff(textDocument, file.lines)
                            Connections {
                                target: file
                                function onLinesChanged() { card.view.writeDiff(diffText.textDocument, file.lines) }
                            }
                        }
                    }
                }
                Button {
                    objectName: "full-diff-" + file.objectName
                    visible: file.expanded && file.toggleLabel !== ""
                    text: file.toggleLabel
                    flat: true
                    palette.buttonText: card.tint
                    onClicked: card.view.toggleFullDiff(card.turnID, file.path)
                }
            }
        }
    }
}
