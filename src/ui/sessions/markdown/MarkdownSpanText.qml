import QtQuick
import QtQuick.Controls

// A run of styled spans the user can select; C++ writes its formats (never markup), and a link
// opens only when clicked, through C++.
TextArea {
    id: spanText
    required property var actions
    required property var spans
    required property var palette_
    readOnly: true
    selectByMouse: true
    textFormat: TextEdit.PlainText
    wrapMode: TextEdit.Wrap
    padding: 0
    background: null
    // Written once when made (its spans are set while it is made), then on every change.
    property bool made: false
    onSpansChanged: if (made) write()
    Component.onCompleted: {
        made = true
        write()
    }
    onLinkActivated: link => actions.openLink(link)

    function write() {
        actions.write(textDocument, spans, palette_.color("link"), palette_.color("address"))
    }

    HoverHandler { cursorShape: spanText.hoveredLink !== "" ? Qt.PointingHandCursor : Qt.IBeamCursor }
}
