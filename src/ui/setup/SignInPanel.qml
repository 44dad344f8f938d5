import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import "../common"

// The ways to sign Codex in when it has no account: ChatGPT in the browser here, a code entered on
// any device, or an API key (a secret field, emptied once sent); then the address or code to use,
// or Codex's reason for failing.
ColumnLayout {
    id: panel
    required property var controller
    required property var setup
    required property var palette_
    readonly property var texts: setup.texts
    readonly property var state_: setup.signIn
    readonly property bool busy: state_.phase === "starting" || state_.phase === "waiting"
    objectName: "signInPanel"
    spacing: 8

    MenuSeparator { Layout.fillWidth: true }
    Label { text: panel.texts.signInHeading; font.bold: true }
    Label {
        objectName: "signInText"
        text: panel.state_.text
        textFormat: Text.PlainText
        wrapMode: Text.Wrap
        color: panel.state_.phase === "failed" ? panel.palette_.color("red") : palette.windowText
        Layout.fillWidth: true
    }
    SelectableText {
        objectName: "signInAddress"
        visible: panel.state_.phase === "waiting" && panel.state_.url !== ""
        text: panel.state_.url
        monospaced: true
        Layout.fillWidth: true
        Layout.preferredWidth: 1
    }
    Label {
        objectName: "signInCode"
        visible: text !== ""
        text: panel.state_.phase === "waiting" ? panel.state_.code : ""
        textFormat: Text.PlainText
        font.family: "monospace"
        font.pointSize: 20
        font.bold: true
        font.letterSpacing: 2
        color: panel.palette_.color("accent")
    }
    Flow {
        Layout.fillWidth: true
        spacing: 8
        Button {
            objectName: "signInChatGPT"
            text: panel.texts.signInChatGPT
            icon.name: "web-browser"
            highlighted: true
            enabled: !panel.busy
            onClicked: panel.controller.startSignIn("chatgpt")
        }
        Button {
            objectName: "signInCodeButton"
            text: panel.texts.signInCode
            icon.name: "pda"
            enabled: !panel.busy
            onClicked: panel.controller.startSignIn("chatgptDeviceCode")
        }
        Button {
            objectName: "signInOpenAddress"
            visible: panel.state_.phase === "waiting" && panel.state_.url !== ""
            text: panel.texts.openAddress
            onClicked: panel.setup.openSignInAddress()
        }
        Button {
            objectName: "cancelSignIn"
            visible: panel.busy
            text: panel.texts.cancelSignIn
            onClicked: panel.controller.cancelSignIn()
        }
    }
    RowLayout {
        Layout.fillWidth: true
        enabled: !panel.busy
        TextField {
            id: apiKey
            objectName: "apiKeyField"
            placeholderText: panel.texts.apiKeyPlaceholder
            echoMode: TextInput.Password
            inputMethodHints: Qt.ImhSensitiveData | Qt.ImhNoPredictiveText
            Layout.fillWidth: true
            onAccepted: submit.clicked()
        }
        Button {
            id: submit
            objectName: "signInAPIKey"
            text: panel.texts.signInAPIKey
            enabled: apiKey.text.trim() !== ""
            onClicked: {
                panel.controller.signInWithAPIKey(apiKey.text)
                apiKey.clear()
            }
        }
    }
    Label {
        text: panel.texts.apiKeyNote
        font.pointSize: 8
        opacity: 0.7
        wrapMode: Text.Wrap
        Layout.fillWidth: true
    }
}
