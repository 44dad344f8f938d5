import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The message field (1 to 6 lines, monospaced) and its send button; Ctrl+Return sends.
RowLayout {
    id: composer
    required property var view
    readonly property real lineHeight: fontMetrics.lineSpacing
    spacing: 8

    FontMetrics { id: fontMetrics; font.family: "monospace" }

    ScrollView {
        Layout.fillWidth: true
        Layout.preferredHeight: Math.min(6, Math.max(1, field.lineCount)) * composer.lineHeight
                                + field.topPadding + field.bottomPadding
        TextArea {
            id: field
            objectName: "composer"
            text: composer.view.draft
            placeholderText: composer.view.placeholder
            textFormat: TextEdit.PlainText
            font.family: "monospace"
            wrapMode: TextEdit.Wrap
            Accessible.name: composer.view.placeholder
            onTextChanged: composer.view.draft = text
            Keys.onPressed: event => {
                if ((event.key === Qt.Key_Return || event.key === Qt.Key_Enter)
                        && (event.modifiers & Qt.ControlModifier)) {
                    composer.view.submit()
                    event.accepted = true
                }
            }
        }
    }
    Button {
        objectName: "composer-send"
        icon.name: composer.view.sendSymbol
        text: composer.view.sendLabel
        display: AbstractButton.IconOnly
        enabled: composer.view.sendEnabled
        highlighted: true
        Accessible.name: text
        ToolTip.visible: hovered
        ToolTip.text: text + " (Ctrl+Return)"
        Layout.alignment: Qt.AlignBottom
        onClicked: composer.view.send()
    }
    Shortcut {
        sequences: ["Ctrl+Return", "Ctrl+Enter"]
        enabled: composer.view.sendEnabled
        onActivated: composer.view.send()
    }
}
