import QtQuick
import QtQuick.Controls

// Read-only text from outside the program that the user can select and copy; never rich text.
TextArea {
    property bool monospaced: false
    readOnly: true
    selectByMouse: true
    textFormat: TextEdit.PlainText
    wrapMode: TextEdit.Wrap
    font.family: monospaced ? "monospace" : Qt.application.font.family
    padding: 0
    background: null
}
