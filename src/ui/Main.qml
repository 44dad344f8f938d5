import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import "sessions"
import "setup"

// The main window: a top bar, the page picked there, the "Codex" alert and the approval sheet.
ApplicationWindow {
    id: window
    required property var controller
    required property var workspace
    required property var setup
    required property var palette_
    required property var sessions
    readonly property var texts: setup.texts
    readonly property var symbols: setup.symbols
    property alias settingsWindow: settingsWindow

    objectName: "mainWindow"
    title: texts.title
    minimumWidth: 780
    minimumHeight: 620
    width: 1100
    height: 760

    // The bridge starts when its window first shows; startOnce guards later showings.
    onVisibleChanged: if (visible) controller.startOnce()

    Shortcut {
        sequences: [StandardKey.Preferences, "Ctrl+,"]
        context: Qt.ApplicationShortcut
        onActivated: settingsWindow.open()
    }

    header: ToolBar {
        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 12
            anchors.rightMargin: 12
            spacing: 12
            Label {
                text: window.texts.appLabel
                font.bold: true
                leftPadding: 22
                IconImage {
                    anchors.verticalCenter: parent.verticalCenter
                    name: window.symbols.terminal
                    sourceSize: Qt.size(16, 16)
                }
            }
            TabBar {
                id: pagePicker
                objectName: "pagePicker"
                Layout.preferredWidth: 260
                Accessible.name: window.texts.pagePicker
                TabButton { text: window.texts.sessionsPage; objectName: "sessionsPage" }
                TabButton { text: window.texts.setupPage; objectName: "bridgeSetupPage" }
            }
            Item { Layout.fillWidth: true }
            Rectangle {
                objectName: "statusDot"
                implicitWidth: 10
                implicitHeight: 10
                radius: 5
                color: window.palette_.color(window.setup.setupTint)
                Accessible.ignored: true
            }
            Label {
                objectName: "appServerStatus"
                text: window.controller.appServerStatus
                textFormat: Text.PlainText
                font.family: "monospace"
                font.pointSize: 9
                elide: Text.ElideRight
                Layout.maximumWidth: 320
                // The whole status where the bar cuts it.
                HoverHandler { id: statusHover }
                ToolTip.visible: truncated && statusHover.hovered
                ToolTip.text: text
                Accessible.name: text
            }
            ToolButton {
                objectName: "settingsButton"
                icon.name: window.symbols.settings
                text: window.texts.settings
                display: AbstractButton.IconOnly
                Accessible.name: window.texts.settings
                ToolTip.visible: hovered
                ToolTip.text: text
                onClicked: settingsWindow.open()
            }
        }
    }

    StackLayout {
        anchors.fill: parent
        currentIndex: pagePicker.currentIndex
        Loader {
            // Built again each time the page shows, so that it reads the list again.
            active: pagePicker.currentIndex === 0
            sourceComponent: BridgeWorkspaceView {
                view: window.sessions
                workspace: window.workspace
                palette_: window.palette_
            }
        }
        ScrollView {
            id: setupScroll
            contentWidth: availableWidth
            BridgeSetupPage {
                width: setupScroll.availableWidth
                controller: window.controller
                setup: window.setup
                palette_: window.palette_
            }
        }
    }

    Dialog {
        objectName: "codexAlert"
        title: window.texts.alertTitle
        modal: true
        Overlay.modal: Rectangle { color: window.palette_.color("scrim") }
        anchors.centerIn: parent
        width: Math.min(480, window.width - 40)
        visible: window.workspace.errorMessage !== ""
        standardButtons: Dialog.Ok
        Label {
            objectName: "codexAlertMessage"
            width: parent.width
            text: window.workspace.errorMessage
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
        }
        onClosed: window.workspace.errorMessage = ""
    }

    ApprovalSheet {
        controller: window.controller
        setup: window.setup
        palette_: window.palette_
        anchors.centerIn: parent
        width: Math.min(560, window.width - 40)
    }

    SettingsWindow {
        id: settingsWindow
        controller: window.controller
        setup: window.setup
        palette_: window.palette_
    }
}
