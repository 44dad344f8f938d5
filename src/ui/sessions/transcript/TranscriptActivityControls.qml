import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// "Session activity", and the button that folds or unfolds every group at once.
RowLayout {
    id: controls
    required property var preference
    spacing: 8
    IconImage { name: controls.preference.symbol; sourceSize: Qt.size(16, 16) }
    Label { text: controls.preference.label; Layout.fillWidth: true }
    Button {
        objectName: "toggle-session-activity"
        flat: true
        text: controls.preference.buttonText
        Accessible.description: controls.preference.accessibilityValue
        onClicked: controls.preference.toggle()
    }
}
