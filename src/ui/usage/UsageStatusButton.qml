import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// The account's allowance in one tinted line; it opens "Usage & Limits".
Button {
    id: button
    required property var view
    required property var palette_
    readonly property color tint: palette_.color(view.tint)

    objectName: view.identifier
    flat: true
    Accessible.name: view.accessibleName
    Accessible.description: view.texts.hint
    onClicked: view.present()

    contentItem: RowLayout {
        spacing: 6
        IconImage { name: button.view.texts.symbol; color: button.tint; sourceSize: Qt.size(16, 16) }
        Label { visible: button.view.showsWord; text: button.view.texts.word; color: button.tint; font.bold: true }
        Label {
            objectName: button.view.identifier + "-status"
            text: button.view.statusText
            textFormat: Text.PlainText
            color: button.tint
            maximumLineCount: 1
            fontSizeMode: Text.HorizontalFit
            minimumPointSize: Math.round(button.font.pointSize * 0.8)
            elide: Text.ElideRight
            Layout.fillWidth: true
            Layout.maximumWidth: implicitWidth
        }
        IconImage { name: button.view.texts.chevron; color: button.tint; sourceSize: Qt.size(12, 12) }
    }

    Popup {
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(520, parent.width - 40)
        height: Math.min(implicitHeight, parent.height - 40)
        padding: 0
        modal: true
        Overlay.modal: Rectangle { color: button.palette_.color("scrim") }
        visible: button.view.isPresented
        onClosed: button.view.dismiss()
        Loader {
            anchors.fill: parent
            active: button.view.isPresented
            sourceComponent: CodexUsageView {
                view: button.view.sheet
                palette_: button.palette_
                onDone: button.view.dismiss()
            }
        }
    }
}
