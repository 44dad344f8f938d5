import QtQuick
import QtQuick.Controls

// Settings: the Codex setup card with its install help, in every state.
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
        CodexSetupCard {
            x: 16
            y: 16
            width: scroll.availableWidth - 32
            controller: settings.controller
            setup: settings.setup
            palette_: settings.palette_
            showsInstallHelp: true
        }
    }
}
