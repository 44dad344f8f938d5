import QtQuick

// Read-only text from outside the program that the user can select and copy; never rich text.
TextEdit {
    property bool monospaced: false
    readOnly: true
    selectByMouse: true
    textFormat: TextEdit.PlainText
    wrapMode: TextEdit.Wrap
    font.family: monospaced ? "monospace" : Qt.application.font.family
    color: palette.text
    selectionColor: palette.highlight
    selectedTextColor: palette.highlightedText
}
