import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The thin bar over a transcript while a turn runs.
Pane {
    id: strip
    required property var view
    objectName: "codex-activity-strip"
    visible: view.showsActivityStrip
    padding: 6
    Accessible.role: Accessible.StatusBar
    Accessible.name: view.activityStripText
    RowLayout {
        anchors.fill: parent
        spacing: 8
        BusyIndicator { running: strip.visible; implicitWidth: 20; implicitHeight: 20 }
        Label {
            text: strip.view.activityStripText
            textFormat: Text.PlainText
            elide: Text.ElideRight
            Layout.fillWidth: true
        }
        Label { text: strip.view.liveText; font.bold: true; font.pointSize: 8; opacity: 0.7 }
    }
}
