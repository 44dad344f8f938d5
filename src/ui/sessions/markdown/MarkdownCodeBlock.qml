import QtQuick
import QtQuick.Controls

// A fenced code block: monospaced, never wrapped, scrolled sideways, with a copy button.
Rectangle {
    id: block
    required property var actions
    required property var palette_
    required property string code
    required property string language
    radius: 6
    color: palette_.color("codeBackground")
    implicitHeight: lines.implicitHeight + 16 + (sideways.ScrollBar.horizontal.visible ? 8 : 0)

    Flickable {
        id: sideways
        objectName: "code-scroll"
        x: 8
        y: 8
        width: block.width - 16 - copyButton.width
        height: parent.height - 8
        contentWidth: lines.implicitWidth
        contentHeight: lines.implicitHeight
        flickableDirection: Flickable.HorizontalFlick
        boundsBehavior: Flickable.StopAtBounds
        clip: true
        ScrollBar.horizontal: ScrollBar { policy: sideways.contentWidth > sideways.width ? ScrollBar.AlwaysOn : ScrollBar.AsNeeded }
        TextArea {
            id: lines
            objectName: "code-text"
            text: block.code
            textFormat: TextEdit.PlainText
            wrapMode: TextEdit.NoWrap
            readOnly: true
            selectByMouse: true
            font.family: "monospace"
            font.pointSize: 9
            padding: 0
            background: null
        }
    }
    ToolButton {
        id: copyButton
        objectName: "code-copy"
        anchors.top: parent.top
        anchors.right: parent.right
        icon.name: block.actions.copySymbol
        text: block.actions.copyLabel
        display: AbstractButton.IconOnly
        Accessible.name: text
        ToolTip.visible: hovered
        ToolTip.text: text
        onClicked: block.actions.copy(block.code)
    }
}
