import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import "../common"

// The engine's approval shown on this computer, more access a command asks for, or what a tool
// server asks: a form to fill in or an address to visit. Only its three buttons close it.
Dialog {
    id: sheet
    required property var controller
    required property var setup
    required property var palette_
    readonly property var prompt: setup.approval
    readonly property string kind: prompt.kind || "approval"
    // Why the last attempt to send the form failed.
    property string formError: ""
    onPromptChanged: formError = ""

    function decide(decision) {
        if (kind === "form") {
            const values = {}
            for (let i = 0; i < formFields.count; ++i) {
                const field = formFields.itemAt(i)
                if (field)
                    values[field.schema.name] = field.value
            }
            formError = setup.answerForm(decision, values)
        } else {
            controller.respondToApproval(decision)
        }
    }

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
        Label {
            objectName: "approvalAccess"
            visible: text !== ""
            text: sheet.prompt.access || ""
            textFormat: Text.PlainText
            font.family: "monospace"
            wrapMode: Text.WrapAtWordBoundaryOrAnywhere
            Layout.fillWidth: true
        }
        RowLayout {
            visible: (sheet.prompt.accessToggle || "") !== ""
            Label {
                objectName: "approvalAccessMore"
                text: sheet.prompt.accessMore || ""
                textFormat: Text.PlainText
                opacity: 0.7
            }
            Button {
                objectName: "approvalAccessToggle"
                text: sheet.prompt.accessToggle || ""
                flat: true
                onClicked: sheet.setup.toggleAllAccess()
            }
        }
        ColumnLayout {
            objectName: "approvalAddress"
            visible: sheet.kind === "address"
            spacing: 6
            Layout.fillWidth: true
            SelectableText {
                text: sheet.prompt.url || ""
                monospaced: true
                Layout.fillWidth: true
                Layout.preferredWidth: 1
            }
            Button {
                objectName: "openRequestedAddress"
                text: sheet.setup.texts.openAddress
                icon.name: "web-browser"
                onClicked: sheet.setup.openRequestedAddress()
            }
        }
        ScrollView {
            objectName: "approvalForm"
            visible: sheet.kind === "form"
            clip: true
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(formColumn.implicitHeight, 320)
            contentWidth: availableWidth
            ColumnLayout {
                id: formColumn
                width: parent.width
                spacing: 10
                Repeater {
                    id: formFields
                    model: sheet.kind === "form" ? sheet.prompt.fields : []
                    ElicitationFormField {
                        required property var modelData
                        schema: modelData
                        palette_: sheet.palette_
                        requiredText: sheet.setup.texts.formRequired
                        noChoiceText: sheet.setup.texts.formNoChoice
                        Layout.fillWidth: true
                    }
                }
            }
        }
        Label {
            objectName: "approvalFormError"
            visible: text !== ""
            text: sheet.formError
            textFormat: Text.PlainText
            color: sheet.palette_.color("red")
            wrapMode: Text.Wrap
            Layout.fillWidth: true
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
                    onClicked: sheet.decide(decision)
                }
            }
        }
    }
}
