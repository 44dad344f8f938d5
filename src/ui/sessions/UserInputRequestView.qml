import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// The card in which the user answers one question of the engine.
Frame {
    id: card
    required property var question
    required property var palette_

    objectName: "question-card"
    ColumnLayout {
        width: card.availableWidth
        spacing: 10
        RowLayout {
            IconImage { name: card.question.symbol; sourceSize: Qt.size(18, 18) }
            Label { text: card.question.title; font.bold: true }
        }
        Repeater {
            model: card.question.questions
            Column {
                id: block
                required property string questionID
                required property string header
                required property string question
                required property var rows
                required property bool showsField
                required property bool isSecret
                required property string text
                required property string placeholder
                required property string fieldID
                Layout.fillWidth: true
                spacing: 4
                Label { visible: block.header !== ""; text: block.header; textFormat: Text.PlainText; font.pointSize: 8; opacity: 0.7 }
                Label { text: block.question; textFormat: Text.PlainText; wrapMode: Text.Wrap; width: block.width }
                Repeater {
                    model: block.rows
                    ItemDelegate {
                        id: choice
                        required property var modelData
                        objectName: modelData.accessibilityID
                        width: block.width
                        highlighted: modelData.selected
                        Accessible.role: Accessible.RadioButton
                        Accessible.checked: modelData.selected
                        Accessible.name: modelData.label
                        onClicked: card.question.choose(block.questionID, modelData.option)
                        contentItem: RowLayout {
                            spacing: 8
                            Rectangle {
                                implicitWidth: 14
                                implicitHeight: 14
                                radius: 7
                                border.width: choice.modelData.selected ? 4 : 1
                                border.color: choice.modelData.selected ? card.palette.highlight : card.palette.mid
                                color: "transparent"
                            }
                            ColumnLayout {
                                spacing: 0
                                Layout.fillWidth: true
                                Label { text: choice.modelData.label; textFormat: Text.PlainText; Layout.fillWidth: true; wrapMode: Text.Wrap }
                                Label {
                                    visible: choice.modelData.detail !== ""
                                    text: choice.modelData.detail
                                    textFormat: Text.PlainText
                                    font.pointSize: 8
                                    opacity: 0.7
                                    Layout.fillWidth: true
                                    wrapMode: Text.Wrap
                                }
                            }
                        }
                    }
                }
                TextField {
                    objectName: block.isSecret ? block.fieldID : ""
                    visible: block.showsField && block.isSecret
                    echoMode: TextInput.Password
                    placeholderText: block.placeholder
                    text: block.text
                    onTextEdited: card.question.setText(block.questionID, text)
                    width: block.width
                }
                TextArea {
                    id: area
                    objectName: block.isSecret ? "" : block.fieldID
                    visible: block.showsField && !block.isSecret
                    placeholderText: block.placeholder
                    text: block.text
                    wrapMode: TextEdit.Wrap
                    textFormat: TextEdit.PlainText
                    onTextChanged: if (activeFocus) card.question.setText(block.questionID, text)
                    // Grows from two to six lines.
                    width: block.width
                    height: Math.min(Math.max(lineCount, 2), 6) * lines.height + topPadding + bottomPadding
                    FontMetrics { id: lines; font: area.font }
                    background: Rectangle { color: area.palette.base; border.color: area.activeFocus ? area.palette.highlight : area.palette.mid; radius: 2 }
                }
            }
        }
        Label {
            objectName: "question-error"
            visible: card.question.errorMessage !== ""
            text: card.question.errorMessage
            textFormat: Text.PlainText
            color: card.palette_.color("orange")
            wrapMode: Text.Wrap
            Layout.fillWidth: true
        }
        Button {
            objectName: card.question.submitID
            text: card.question.sendText
            icon.name: card.question.isSubmitting ? "" : card.question.sendSymbol
            highlighted: true
            enabled: card.question.canSend
            onClicked: card.question.send()
            BusyIndicator {
                visible: card.question.isSubmitting
                running: visible
                anchors.verticalCenter: parent.verticalCenter
                anchors.right: parent.left
                implicitWidth: 20
                implicitHeight: 20
            }
        }
    }
}
