import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One field of the form a tool server asks for: its title (marked when required), what it is
// for, and the control of its kind. Its value is text: "true"/"false" for a check box, the chosen
// values joined by ", " for several choices, "" for a choice not made. Every text of the server's
// is drawn as plain text.
ColumnLayout {
    id: field
    required property var schema
    required property var palette_
    required property string requiredText
    required property string noChoiceText
    // A single choice without a default starts unmade, so that nothing is sent the user did not pick.
    readonly property bool startsUnchosen: schema.kind === "choice" && String(schema.value) === ""
    property string value: schema.kind === "boolean" ? (schema.value ? "true" : "false")
                         : schema.kind === "choices" ? schema.value.join(", ")
                         : String(schema.value)
    spacing: 2

    Label {
        text: field.schema.title + (field.schema.required ? "  ·  " + field.requiredText : "")
        textFormat: Text.PlainText
        font.bold: true
        visible: field.schema.kind !== "boolean"
        Layout.fillWidth: true
        wrapMode: Text.Wrap
    }
    Loader {
        Layout.fillWidth: true
        sourceComponent: field.schema.kind === "boolean" ? checkControl
                       : field.schema.kind === "choice" ? choiceControl
                       : field.schema.kind === "choices" ? choicesControl : textControl
    }
    Label {
        visible: text !== ""
        text: field.schema.description
        textFormat: Text.PlainText
        font.pointSize: 8
        opacity: 0.7
        wrapMode: Text.Wrap
        Layout.fillWidth: true
    }

    component PlainCheckBox: CheckBox {
        id: box
        contentItem: Label {
            text: box.text
            textFormat: Text.PlainText
            leftPadding: box.indicator.width + box.spacing
            verticalAlignment: Text.AlignVCenter
            wrapMode: Text.Wrap
        }
    }

    Component {
        id: textControl
        TextField {
            objectName: "form-field-" + field.schema.name
            text: String(field.schema.value)
            inputMethodHints: field.schema.kind === "number" ? Qt.ImhFormattedNumbersOnly : Qt.ImhNone
            onTextEdited: field.value = text
        }
    }
    Component {
        id: checkControl
        PlainCheckBox {
            objectName: "form-field-" + field.schema.name
            text: field.schema.title + (field.schema.required ? "  ·  " + field.requiredText : "")
            checked: field.schema.value === true
            onToggled: field.value = checked ? "true" : "false"
        }
    }
    Component {
        id: choiceControl
        ComboBox {
            id: combo
            objectName: "form-field-" + field.schema.name
            readonly property int offset: field.startsUnchosen ? 1 : 0
            model: (field.startsUnchosen ? [field.noChoiceText] : []).concat(field.schema.optionTitles)
            currentIndex: field.startsUnchosen ? 0
                        : Math.max(0, field.schema.options.indexOf(String(field.schema.value)))
            onActivated: (index) => field.value = index < offset ? "" : field.schema.options[index - offset]
            contentItem: Label {
                text: combo.displayText
                textFormat: Text.PlainText
                leftPadding: 6
                verticalAlignment: Text.AlignVCenter
                elide: Text.ElideRight
            }
            delegate: ItemDelegate {
                id: choice
                required property int index
                required property var modelData
                width: combo.width
                highlighted: combo.highlightedIndex === index
                contentItem: Label {
                    text: choice.modelData
                    textFormat: Text.PlainText
                    elide: Text.ElideRight
                }
            }
        }
    }
    Component {
        id: choicesControl
        Flow {
            id: flow
            objectName: "form-field-" + field.schema.name
            spacing: 6
            property var chosen: field.schema.value.slice()
            Repeater {
                model: field.schema.options.length
                PlainCheckBox {
                    required property int index
                    text: field.schema.optionTitles[index]
                    checked: flow.chosen.indexOf(field.schema.options[index]) >= 0
                    onToggled: {
                        const value = field.schema.options[index]
                        const rest = flow.chosen.filter((item) => item !== value)
                        flow.chosen = checked ? rest.concat([value]) : rest
                        field.value = flow.chosen.join(", ")
                    }
                }
            }
        }
    }
}
