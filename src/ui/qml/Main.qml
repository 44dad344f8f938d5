import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The main window: a top bar, the page picked there, the "Codex" alert and the approval sheet.
ApplicationWindow {
    id: window
    required property var controller
    required property var workspace
    required property var setup
    required property var palette_

    objectName: "mainWindow"
    title: "Nimbrel Bridge"
    minimumWidth: 780
    minimumHeight: 620
    width: 900
    height: 700

    Component.onCompleted: controller.startOnce()

    header: ToolBar {
        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 12
            anchors.rightMargin: 12
            spacing: 12
            Label {
                text: "Nimbrel"
                font.bold: true
            }
            TabBar {
                id: pagePicker
                objectName: "pagePicker"
                Layout.preferredWidth: 260
                Accessible.name: "View"
                TabButton { text: "Sessions"; objectName: "sessionsPage" }
                TabButton { text: "Bridge Setup"; objectName: "bridgeSetupPage" }
            }
            Item { Layout.fillWidth: true }
            Rectangle {
                objectName: "statusDot"
                width: 10; height: 10; radius: 5
                color: window.palette_.color(window.controller.appServerReady ? "green" : "orange")
            }
            Label {
                objectName: "appServerStatus"
                text: window.controller.appServerStatus
                textFormat: Text.PlainText
                font.family: "monospace"
                font.pointSize: 9
                elide: Text.ElideRight
                Layout.maximumWidth: 320
            }
        }
    }

    StackLayout {
        anchors.fill: parent
        currentIndex: pagePicker.currentIndex
        Label {
            text: "Sessions arrive with the sessions page."
            horizontalAlignment: Text.AlignHCenter
            verticalAlignment: Text.AlignVCenter
        }
        ScrollView {
            contentWidth: availableWidth
            BridgeSetupPage {
                width: parent.width
                controller: window.controller
                setup: window.setup
                palette_: window.palette_
            }
        }
    }

    Dialog {
        objectName: "codexAlert"
        title: "Codex"
        modal: true
        anchors.centerIn: parent
        visible: window.workspace.errorMessage !== ""
        standardButtons: Dialog.Ok
        Label { text: window.workspace.errorMessage; textFormat: Text.PlainText; wrapMode: Text.Wrap }
        onClosed: window.workspace.errorMessage = ""
    }

    ApprovalSheet {
        controller: window.controller
        palette_: window.palette_
        anchors.centerIn: parent
        width: Math.min(560, window.width - 40)
    }
}
