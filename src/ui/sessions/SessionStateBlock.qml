import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// Under the transcript: the history loading, failing with "Try Again", or a session ready for a task.
ColumnLayout {
    id: block
    required property var view
    required property var palette_
    readonly property bool loading: view.stateKind === "loading"
    readonly property color tint: view.stateTint !== "" ? palette_.color(view.stateTint) : palette.windowText

    objectName: "session-state"
    visible: view.stateKind !== ""
    spacing: 6

    IconImage {
        visible: block.view.stateSymbol !== ""
        name: block.view.stateSymbol
        sourceSize: Qt.size(28, 28)
        color: block.tint
        opacity: 0.8
        Layout.alignment: Qt.AlignHCenter
        Layout.topMargin: 24
    }
    Label {
        objectName: "session-state-title"
        visible: text !== ""
        text: block.view.stateTitle
        font.bold: true
        font.pointSize: 12
        Layout.alignment: Qt.AlignHCenter
    }
    RowLayout {
        Layout.alignment: Qt.AlignHCenter
        Layout.fillWidth: true
        BusyIndicator { visible: block.loading; running: visible; implicitWidth: 20; implicitHeight: 20 }
        Label {
            objectName: "session-state-text"
            text: block.view.stateText
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
            opacity: 0.7
            Layout.fillWidth: !block.loading
        }
    }
    Button {
        objectName: "session-try-again"
        visible: block.view.stateKind === "unavailable"
        text: block.view.texts.tryAgain
        Layout.alignment: Qt.AlignHCenter
        onClicked: block.view.tryAgain()
    }
}
