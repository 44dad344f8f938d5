import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One device asking to pair: its name, the line asking to compare, the code, and the decision.
Frame {
    id: row
    required property string requestID
    required property string name
    required property string line
    required property string code
    required property var texts
    required property var setup

    objectName: "pairingRequest"
    RowLayout {
        anchors.fill: parent
        spacing: 12
        ColumnLayout {
            Layout.fillWidth: true
            Label { text: row.name; textFormat: Text.PlainText; font.bold: true; elide: Text.ElideRight; Layout.fillWidth: true }
            Label { text: row.line; wrapMode: Text.Wrap; opacity: 0.8; Layout.fillWidth: true }
        }
        Label {
            objectName: "pairingCode"
            text: row.code
            font.family: "monospace"
            font.pointSize: 24
            font.bold: true
            font.letterSpacing: 4
        }
        Button { objectName: "rejectButton"; text: row.texts.reject; onClicked: row.setup.reject(row.requestID) }
        Button { objectName: "pairButton"; text: row.texts.pair; highlighted: true; onClicked: row.setup.pair(row.requestID) }
    }
}
