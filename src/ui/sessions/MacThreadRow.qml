import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One thread of the sidebar: its dot, title, folder, source and age; the whole row opens it.
ItemDelegate {
    id: row
    required property var palette_
    required property string threadID
    required property string title
    required property string dotTint
    required property bool busy
    required property string folder
    required property string source
    required property string updated
    required property bool selected
    signal open(string threadID)
    // A right click or a long press: the session's actions.
    signal actionsRequested(string threadID, string title)

    objectName: "thread-" + threadID
    highlighted: selected
    onClicked: open(threadID)
    onPressAndHold: actionsRequested(threadID, title)
    TapHandler {
        acceptedButtons: Qt.RightButton
        onTapped: row.actionsRequested(row.threadID, row.title)
    }
    Accessible.name: title

    background: Rectangle {
        radius: 8
        color: row.selected ? Qt.rgba(row.palette_.color("accent").r, row.palette_.color("accent").g,
                                      row.palette_.color("accent").b, 0.14)
                            : row.hovered ? Qt.rgba(0.5, 0.5, 0.5, 0.08) : "transparent"
        border.width: row.selected ? 1 : 0
        border.color: row.palette_.color("accent")
    }
    contentItem: ColumnLayout {
        spacing: 3
        RowLayout {
            spacing: 6
            Rectangle {
                implicitWidth: 8
                implicitHeight: 8
                radius: 4
                color: row.palette_.color(row.dotTint)
                Layout.alignment: Qt.AlignTop
                Layout.topMargin: 5
            }
            Label {
                text: row.title
                textFormat: Text.PlainText
                font.bold: true
                wrapMode: Text.Wrap
                maximumLineCount: 2
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
            BusyIndicator { visible: row.busy; running: visible; implicitWidth: 14; implicitHeight: 14 }
        }
        Label {
            text: row.folder
            textFormat: Text.PlainText
            font.family: "monospace"
            font.pointSize: 8
            elide: Text.ElideMiddle
            opacity: 0.7
            Layout.fillWidth: true
        }
        RowLayout {
            Label { text: row.source; textFormat: Text.PlainText; font.pointSize: 7; font.bold: true; opacity: 0.6 }
            Item { Layout.fillWidth: true }
            Label { text: row.updated; font.pointSize: 8; opacity: 0.6 }
        }
    }
}
