import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import "../common"

// The Bridge Setup page: head, status cards, the Codex setup card, pairing requests, trusted
// devices and the newest activity. Repeated rows stand in columns, one delegate per model row.
Column {
    id: page
    required property var controller
    required property var setup
    required property var palette_
    readonly property var texts: setup.texts
    readonly property var symbols: setup.symbols
    readonly property real innerWidth: width - 2 * padding

    objectName: "bridgeSetup"
    padding: 16
    spacing: 16

    RowLayout {
        width: page.innerWidth
        spacing: 12
        Rectangle {
            implicitWidth: 44
            implicitHeight: 44
            radius: 10
            color: page.palette_.color("accent")
            IconImage {
                anchors.centerIn: parent
                name: page.symbols.terminal
                sourceSize: Qt.size(28, 28)
            }
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 2
            Label { text: page.texts.title; font.pointSize: 16; font.bold: true }
            Label { text: page.texts.tagline; wrapMode: Text.Wrap; opacity: 0.8; Layout.fillWidth: true }
        }
        Switch {
            objectName: "launchAtLogin"
            text: page.texts.launchAtLogin
            checked: page.controller.launchAtLogin
            // Written through the controller, which keeps the old value when the change fails.
            onToggled: {
                page.controller.launchAtLogin = checked
                checked = Qt.binding(() => page.controller.launchAtLogin)
            }
        }
    }

    RowLayout {
        width: page.innerWidth
        spacing: 10
        Repeater {
            model: page.setup.statusCards
            StatusCard {
                Layout.fillWidth: true
                Layout.preferredWidth: 1
                palette_: page.palette_
            }
        }
        Button {
            objectName: "restartCodex"
            text: page.texts.restartCodex
            icon.name: page.symbols.refresh
            onClicked: page.controller.restartCodex()
        }
    }

    CodexSetupCard {
        width: page.innerWidth
        controller: page.controller
        setup: page.setup
        palette_: page.palette_
        showsInstallHelp: page.setup.showsInstallHelp
    }

    Column {
        objectName: "pairingSection"
        visible: page.setup.hasPairingRequests
        width: page.innerWidth
        spacing: 8
        SectionHeading { text: page.texts.pairingHeading; symbol: page.symbols.pairing }
        Repeater {
            model: page.setup.pairingRows
            PairingRequestRow {
                width: page.innerWidth
                texts: page.texts
                setup: page.setup
            }
        }
    }

    Column {
        objectName: "cockpitSection"
        width: page.innerWidth
        spacing: 8
        onVisibleChanged: if (visible) page.setup.refreshCockpit()
        SectionHeading { text: page.texts.cockpitHeading; symbol: page.symbols.cockpit }
        RowLayout {
            width: page.innerWidth
            spacing: 16
            Image {
                objectName: "cockpitQrCode"
                visible: page.setup.cockpitQrSource !== ""
                source: page.setup.cockpitQrSource
                sourceSize: Qt.size(150, 150)
                smooth: false
                Layout.alignment: Qt.AlignTop
                Accessible.name: page.texts.cockpitHeading
            }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 6
                Label {
                    text: page.setup.cockpitAddresses.length > 0 ? page.texts.cockpitHint : page.texts.cockpitNoAddress
                    wrapMode: Text.Wrap
                    Layout.fillWidth: true
                }
                Repeater {
                    model: page.setup.cockpitAddresses
                    SelectableText {
                        required property string modelData
                        objectName: "cockpitAddress"
                        text: modelData
                        font.bold: true
                        Layout.fillWidth: true
                    }
                }
                Label { text: page.texts.cockpitCertificate; wrapMode: Text.Wrap; opacity: 0.8; Layout.fillWidth: true }
                SelectableText {
                    objectName: "certificateFingerprint"
                    text: page.setup.certificateFingerprint
                    monospaced: true
                    font.pointSize: 8
                    Layout.fillWidth: true
                }
            }
        }
    }

    Column {
        objectName: "trustedSection"
        width: page.innerWidth
        spacing: 6
        SectionHeading { text: page.texts.trustedHeading; symbol: page.symbols.trusted }
        Label {
            objectName: "noTrustedDevices"
            visible: !page.setup.hasTrustedDevices
            width: parent.width
            text: page.texts.noTrustedDevices
            wrapMode: Text.Wrap
            opacity: 0.8
        }
        Repeater {
            model: page.setup.trustedRows
            RowLayout {
                required property string deviceID
                required property string name
                required property string paired
                width: page.innerWidth
                spacing: 8
                IconImage { name: page.symbols.device; sourceSize: Qt.size(16, 16) }
                Label { text: name; textFormat: Text.PlainText; font.bold: true; elide: Text.ElideRight }
                Label { text: paired; opacity: 0.7; Layout.fillWidth: true; elide: Text.ElideRight }
                Button {
                    objectName: "forgetButton"
                    text: page.texts.forget
                    palette.buttonText: page.palette_.color("red")
                    onClicked: page.setup.forget(deviceID)
                }
            }
        }
    }

    Column {
        objectName: "activitySection"
        width: page.innerWidth
        spacing: 2
        SectionHeading { text: page.texts.activityHeading; symbol: page.symbols.activity; bottomPadding: 4 }
        Repeater {
            model: page.setup.activityLines
            Label {
                required property string line
                objectName: "activityLine"
                width: page.innerWidth
                text: line
                textFormat: Text.PlainText
                font.family: "monospace"
                font.pointSize: 9
                elide: Text.ElideRight
            }
        }
    }
}
