import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The engine's approval shown on this computer; only its three buttons close it.
Dialog {
    id: sheet
    required property var controller
    required property var palette_
    readonly property var prompt: controller.approval

    objectName: "approvalSheet"
    modal: true
    closePolicy: Popup.NoAutoClose
    visible: controller.hasApproval

    ColumnLayout {
        anchors.fill: parent
        spacing: 10
        Label {
            objectName: "approvalTitle"
            text: sheet.prompt.title || ""
            color: sheet.palette_.color("orange")
            font.bold: true
            textFormat: Text.PlainText
        }
        Label { text: sheet.prompt.detail || ""; textFormat: Text.PlainText; wrapMode: Text.Wrap; Layout.fillWidth: true }
        TextArea {
            objectName: "approvalCommand"
            visible: (sheet.prompt.command || "") !== ""
            text: sheet.prompt.command || ""
            readOnly: true
            selectByMouse: true
            textFormat: TextEdit.PlainText
            font.family: "monospace"
            wrapMode: TextEdit.Wrap
            Layout.fillWidth: true
        }
        Label {
            visible: (sheet.prompt.cwd || "") !== ""
            text: sheet.prompt.cwd || ""
            textFormat: Text.PlainText
            font.family: "monospace"
            font.pointSize: 9
        }
        RowLayout {
            Layout.alignment: Qt.AlignRight
            Button { objectName: "declineButton"; text: "Decline"; onClicked: sheet.controller.respondToApproval("decline") }
            Button { objectName: "allowSessionButton"; text: "Allow Similar This Session"; onClicked: sheet.controller.respondToApproval("acceptForSession") }
            Button { objectName: "allowOnceButton"; text: "Allow Once"; highlighted: true; onClicked: sheet.controller.respondToApproval("accept") }
        }
    }
}
