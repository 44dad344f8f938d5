import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import "../common"

// The engine's approval shown on this computer; only its three buttons close it.
Dialog {
    id: sheet
    required property var controller
    required property var setup
    required property var palette_
    readonly property var prompt: setup.approval

    objectName: "approvalSheet"
    modal: true
    Overlay.modal: Rectangle { color: sheet.palette_.color("scrim") }
    closePolicy: Popup.NoAutoClose
    visible: controller.hasApproval
    padding: 20

    ColumnLayout {
        anchors.fill: parent
        spacing: 10
        Label {
            objectName: "approvalTitle"
            text: sheet.prompt.title || ""
            color: sheet.palette_.color("orange")
            font.bold: true
            font.pointSize: 13
            textFormat: Text.PlainText
            leftPadding: 26
            Layout.fillWidth: true
            wrapMode: Text.Wrap
            IconImage {
                anchors.verticalCenter: parent.verticalCenter
                name: sheet.setup.symbols.approval
                color: sheet.palette_.color("orange")
                sourceSize: Qt.size(18, 18)
            }
        }
        Label {
            objectName: "approvalDetail"
            text: sheet.prompt.detail || ""
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            Layout.fillWidth: true
        }
        SelectableText {
            objectName: "approvalCommand"
            visible: text !== ""
            text: sheet.prompt.command || ""
            monospaced: true
            padding: 10
            Layout.fillWidth: true
            // Its width comes from the sheet, not from the wrapped command.
            Layout.preferredWidth: 1
            background: Rectangle { color: sheet.palette_.color("orange"); opacity: 0.12; radius: 6 }
        }
        Label {
            objectName: "approvalCwd"
            visible: (sheet.prompt.cwd || "") !== ""
            text: sheet.prompt.cwd || ""
            textFormat: Text.PlainText
            font.family: "monospace"
            font.pointSize: 9
            elide: Text.ElideMiddle
            leftPadding: 20
            Layout.fillWidth: true
            IconImage {
                anchors.verticalCenter: parent.verticalCenter
                name: sheet.setup.symbols.cwd
                sourceSize: Qt.size(14, 14)
            }
        }
        Row {
            Layout.alignment: Qt.AlignRight
            spacing: 8
            Repeater {
                model: sheet.setup.approvalButtons
                Button {
                    required property string label
                    required property string decision
                    required property string tone
                    objectName: decision + "Button"
                    text: label
                    readonly property bool prominent: tone === "prominent"
                    font.bold: prominent
                    palette.button: prominent ? sheet.palette_.color("green") : sheet.palette.button
                    palette.buttonText: prominent ? "white"
                                      : tone === "destructive" ? sheet.palette_.color("red") : sheet.palette.buttonText
                    onClicked: sheet.controller.respondToApproval(decision)
                }
            }
        }
    }
}
