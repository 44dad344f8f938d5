import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// A plain pill with a symbol, one line of text and a chevron, that opens its menu below it.
AbstractButton {
    id: pill
    required property var palette_
    property string symbol
    property string label
    property color tint
    property color labelColor: palette.buttonText
    property Menu menu

    onClicked: menu.popup(pill, 0, pill.height)
    padding: 6
    horizontalPadding: 10
    background: Rectangle {
        radius: height / 2
        color: pill.tint.a > 0 ? Qt.rgba(pill.tint.r, pill.tint.g, pill.tint.b, 0.15) : pill.palette.button
        border.color: pill.palette.mid
    }
    contentItem: RowLayout {
        spacing: 6
        IconImage { name: pill.symbol; sourceSize: Qt.size(14, 14) }
        Label {
            text: pill.label
            color: pill.labelColor
            textFormat: Text.PlainText
            elide: Text.ElideRight
            fontSizeMode: Text.HorizontalFit
            minimumPointSize: Math.round(font.pointSize * 0.7)
            Layout.fillWidth: true
        }
        IconImage { name: "go-down"; sourceSize: Qt.size(10, 10) }
    }
}
