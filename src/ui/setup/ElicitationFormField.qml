import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One field of the form a tool server asks for: its title (marked when required), what it is
// for, and the control of its kind. Its value is text: "true"/"false" for a check box, the chosen
// values joined by ", " for several choices.
ColumnLayout {
    id: field
    required property var spec
    required property var palette_
    required property string requiredText
    property string value: spec.kind === "boolean" ? (spec.value ? "true" : "false")
                         : spec.kind === "choices" ? spec.value.join(", ")
                         : spec.kind === "choice" && String(spec.value) === "" ? spec.options[0]
                         : String(spec.value)
    spacing: 2

    Label {
        text: field.spec.title + (field.spec.required ? "  ·  " + field.requiredText : "")
        textFormat: Text.PlainText
        font.bold: true
        visible: field.spec.kind !== "boolean"
        Layout.fillWidth: true
        wrapMode: Text.Wrap
    }
    Loader {
        Layout.fillWidth: true
        sourceComponent: field.spec.kind === "boolean" ? checkControl
                       : field.spec.kind === "choice" ? choiceControl
                       : field.spec.kind === "choices" ? choicesControl : textControl
    }
    Label {
        visible: text !== ""
        text: field.spec.description
        textFormat: Text.PlainText
        font.pointSize: 8
        opacity: 0.7
        wrapMode: Text.Wrap
        Layout.fillWidth: true
    }

    Component {
        id: textControl
        TextField {
            objectName: "form-field-" + field.spec.name
            text: String(field.spec.value)
            inputMethodHints: field.spec.kind === "number" ? Qt.ImhFormattedNumbersOnly : Qt.ImhNone
            onTextEdited: field.value = text
        }
    }
    Component {
        id: checkControl
        CheckBox {
            objectName: "form-field-" + field.spec.name
            text: field.spec.title + (field.spec.required ? "  ·  " + field.requiredText : "")
            checked: field.spec.value === true
            onToggled: field.value = checked ? "true" : "false"
        }
    }
    Component {
        id: choiceControl
        ComboBox {
            objectName: "form-field-" + field.spec.name
            model: field.spec.optionTitles
            currentIndex: Math.max(0, field.spec.options.indexOf(String(field.spec.value)))
            onActivated: (index) => field.value = field.spec.options[index]
        }
    }
    Component {
        id: choicesControl
        Flow {
            id: flow
            objectName: "form-field-" + field.spec.name
            spacing: 6
            property var chosen: field.spec.value.slice()
            Repeater {
                model: field.spec.options.length
                CheckBox {
                    required property int index
                    text: field.spec.optionTitles[index]
                    checked: flow.chosen.indexOf(field.spec.options[index]) >= 0
                    onToggled: {
                        const value = field.spec.options[index]
                        const rest = flow.chosen.filter((item) => item !== value)
                        flow.chosen = checked ? rest.concat([value]) : rest
                        field.value = flow.chosen.join(", ")
                    }
                }
            }
        }
    }
}
