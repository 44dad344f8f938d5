import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts

// The Bridge Setup page: head, status cards, the Codex setup card, pairing requests, trusted
// devices and the newest activity.
ColumnLayout {
    id: page
    required property var controller
    required property var setup
    required property var palette_
    spacing: 16

    RowLayout {
        Layout.margins: 16
        Label { text: "Nimbrel Bridge"; font.pointSize: 18; font.bold: true }
        Label { text: "Your Mac is the secure engine. Your iPhone or iPad is the cockpit."; Layout.fillWidth: true; wrapMode: Text.Wrap }
        Switch {
            objectName: "launchAtLogin"
            text: "Launch at Login"
            checked: page.controller.launchAtLogin
            onToggled: page.controller.launchAtLogin = checked
        }
    }

    RowLayout {
        Layout.leftMargin: 16
        Layout.rightMargin: 16
        Repeater {
            model: page.setup.statusCards
            StatusCard {
                required property var modelData
                title: modelData.title
                value: modelData.value
                tint: page.palette_.color(modelData.color)
            }
        }
        Button { objectName: "restartCodex"; text: "Restart Codex"; icon.name: "view-refresh"; onClicked: page.controller.restartCodex() }
    }

    CodexSetupCard {
        Layout.leftMargin: 16
        Layout.rightMargin: 16
        Layout.fillWidth: true
        controller: page.controller
        setup: page.setup
        palette_: page.palette_
        showsInstallHelp: page.setup.showsInstallHelp
    }

    ColumnLayout {
        objectName: "pairingSection"
        visible: page.setup.hasPairingRequests
        Layout.leftMargin: 16
        Layout.rightMargin: 16
        Label { text: "PAIRING REQUEST"; font.bold: true }
        Repeater {
            model: page.setup.pairingRows
            Frame {
                required property var modelData
                Layout.fillWidth: true
                RowLayout {
                    anchors.fill: parent
                    ColumnLayout {
                        Label { text: modelData.name; textFormat: Text.PlainText; font.bold: true }
                        Label { text: modelData.line }
                    }
                    Label { objectName: "pairingCode"; text: modelData.code; font.family: "monospace"; font.pointSize: 22 }
                    Button { text: "Reject"; onClicked: page.setup.reject(modelData.id) }
                    Button { objectName: "pairButton"; text: "Pair"; highlighted: true; onClicked: page.setup.pair(modelData.id) }
                }
            }
        }
    }

    ColumnLayout {
        Layout.leftMargin: 16
        Layout.rightMargin: 16
        Label { text: "TRUSTED DEVICES"; font.bold: true }
        Label {
            visible: page.setup.trustedRows.length === 0
            text: "Open Nimbrel on an iPhone or iPad connected to this Wi-Fi network, choose this Mac, and compare the six-digit code."
            wrapMode: Text.Wrap
            Layout.fillWidth: true
        }
        Repeater {
            model: page.setup.trustedRows
            RowLayout {
                required property var modelData
                Label { text: modelData.name; textFormat: Text.PlainText; font.bold: true }
                Label { text: modelData.paired; opacity: 0.7; Layout.fillWidth: true }
                Button { text: "Forget"; onClicked: page.setup.forget(modelData.deviceID) }
            }
        }
    }

    ColumnLayout {
        Layout.margins: 16
        Label { text: "ACTIVITY"; font.bold: true }
        Repeater {
            model: page.setup.activityLines
            Label {
                required property string modelData
                text: modelData
                textFormat: Text.PlainText
                font.family: "monospace"
                font.pointSize: 9
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
        }
    }
}
