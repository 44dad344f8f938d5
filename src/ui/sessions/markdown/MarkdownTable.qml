import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A table: its cells in a grid, the header row bold, scrolled sideways when wider than the card.
Flickable {
    id: table
    required property var actions
    required property var palette_
    required property var cells
    required property int columns
    implicitHeight: grid.implicitHeight + (ScrollBar.horizontal.visible ? 10 : 0)
    contentWidth: grid.implicitWidth
    contentHeight: grid.implicitHeight
    flickableDirection: Flickable.HorizontalFlick
    boundsBehavior: Flickable.StopAtBounds
    clip: true
    ScrollBar.horizontal: ScrollBar {}

    GridLayout {
        id: grid
        columns: Math.max(1, table.columns)
        columnSpacing: 0
        rowSpacing: 0
        Repeater {
            model: table.cells
            Rectangle {
                required property var modelData
                implicitWidth: Math.min(cellText.implicitWidth, 320) + 12
                implicitHeight: cellText.implicitHeight + 8
                Layout.fillWidth: true
                Layout.fillHeight: true
                color: modelData.header ? table.palette_.color("codeBackground") : "transparent"
                border.color: table.palette_.color("quote")
                border.width: 1
                MarkdownSpanText {
                    id: cellText
                    x: 6
                    y: 4
                    width: parent.width - 12
                    actions: table.actions
                    palette_: table.palette_
                    spans: parent.modelData.spans
                    font.bold: parent.modelData.header
                    wrapMode: TextEdit.NoWrap
                }
            }
        }
    }
}
