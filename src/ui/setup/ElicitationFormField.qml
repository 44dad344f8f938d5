import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One field of the form a tool server asks for: its title (marked when required), what it is
// for, and the control of its kind. It reports its value as text: "true"/"false" for a switch,
// the chosen values joined by ", " for several choices.
ColumnLayout {
    id: field
    required property var spec
    required property var palette_
    required property string requiredText
    signal edited(string name, string value)
    spacing: 2

    Component.onCompleted: {
        const start = spec.kind === "boolean" ? (spec.value ? "true" : "false")
                    : spec.kind === "choices" ? spec.value.join(", ") : String(spec.value)
        field.edited(spec.name, start)
    }

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
            onTextEdited: field.edited(field.spec.name, text)
        }
    }
    Component {
        id: checkControl
        CheckBox {
            objectName: "form-field-" + field.spec.name
            text: field.spec.title + (field.spec.required ? "  ·  " + field.requiredText : "")
            checked: field.spec.value === true
            onToggled: field.edited(field.spec.name, checked ? "true" : "false")
        }
    }
    Component {
        id: choiceControl
        ComboBox {
            objectName: "form-field-" + field.spec.name
            model: field.spec.optionTitles
            currentIndex: Math.max(0, field.spec.options.indexOf(String(field.spec.value)))
            onActivated: (index) => field.edited(field.spec.name, field.spec.options[index])
            Component.onCompleted: if (String(field.spec.value) === "") field.edited(field.spec.name, field.spec.options[0])
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
                        field.edited(field.spec.name, flow.chosen.join(", "))
                    }
                }
            }
        }
    }
}
