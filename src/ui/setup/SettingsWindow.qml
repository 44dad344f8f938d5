import QtQuick
import QtQuick.Controls
import "../common"

// Settings: the Codex setup card with its install help, in every state, and notifications.
ApplicationWindow {
    id: settings
    required property var controller
    required property var setup
    required property var palette_

    objectName: "settingsWindow"
    title: setup.texts.settingsTitle
    minimumWidth: 620
    minimumHeight: 430
    width: 660
    height: 520

    // The card is drawn anew each time the window opens.
    onVisibleChanged: if (visible) setup.refreshCustomExecutable()

    function open() {
        show()
        raise()
        requestActivate()
    }

    ScrollView {
        id: scroll
        anchors.fill: parent
        contentWidth: availableWidth
        Column {
            x: 16
            y: 16
            width: scroll.availableWidth - 32
            spacing: 12
            bottomPadding: 16
            CodexSetupCard {
                width: parent.width
                controller: settings.controller
                setup: settings.setup
                palette_: settings.palette_
                showsInstallHelp: true
            }
            Frame {
                objectName: "permissionModesSection"
                width: parent.width
                Column {
                    width: parent.width
                    spacing: 8
                    SectionHeading { text: settings.setup.texts.permissionModesHeading; symbol: "changes-allow" }
                    Repeater {
                        model: settings.setup.permissionModes
                        Column {
                            required property string label
                            required property string summary
                            required property string colour
                            width: parent.width
                            Label { text: label; font.bold: true; color: settings.palette_.color(colour) }
                            Label { text: summary; wrapMode: Text.Wrap; width: parent.width }
                        }
                    }
                    Label {
                        width: parent.width
                        text: settings.setup.texts.permissionModesNote
                        wrapMode: Text.Wrap
                        opacity: 0.7
                    }
                }
            }
            Switch {
                objectName: "showNotifications"
                text: settings.setup.texts.showNotifications
                checked: settings.setup.showNotifications
                Accessible.name: settings.setup.texts.showNotifications
                Accessible.description: settings.setup.texts.showNotificationsHint
                onToggled: {
                    settings.setup.showNotifications = checked
                    checked = Qt.binding(() => settings.setup.showNotifications)
                }
            }
            Label {
                width: parent.width
                text: settings.setup.texts.showNotificationsHint
                textFormat: Text.PlainText
                wrapMode: Text.WordWrap
                opacity: 0.7
            }
        }
    }
}
