import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl

// A small capitalised heading with its symbol.
Label {
    id: heading
    property string symbol
    // The symbol's tint; transparent keeps the icon's own colours.
    property color symbolColor: "transparent"
    font.bold: true
    font.pointSize: 9
    leftPadding: symbol === "" ? 0 : 22
    IconImage {
        visible: heading.symbol !== ""
        anchors.verticalCenter: parent.verticalCenter
        name: heading.symbol
        color: heading.symbolColor
        sourceSize: Qt.size(16, 16)
    }
}
