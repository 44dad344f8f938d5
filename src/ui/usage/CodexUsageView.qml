import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// "Usage & Limits": the account's allowances and, for a session, its context and tokens.
Page {
    id: page
    required property var view
    required property var palette_
    readonly property var texts: view.texts
    signal done()

    objectName: "usage-sheet"
    header: ToolBar {
        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 12
            anchors.rightMargin: 8
            Label { text: page.texts.title; font.bold: true; font.pointSize: 12; Layout.fillWidth: true }
            Button {
                objectName: "usage-refresh"
                text: page.texts.refresh
                icon.name: page.texts.refreshSymbol
                enabled: page.view.refreshEnabled
                onClicked: page.view.refresh()
            }
            Button {
                objectName: "usage-done"
                text: page.texts.done
                highlighted: true
                onClicked: page.done()
            }
        }
    }

    ScrollView {
        id: scroll
        anchors.fill: parent
        contentWidth: availableWidth
        Column {
            x: 16
            y: 16
            width: scroll.availableWidth - 32
            spacing: 16
            Label {
                visible: text !== ""
                text: page.view.demoLabel
                font.bold: true
                font.pointSize: 8
                color: page.palette_.color("purple")
                leftPadding: 20
                IconImage {
                    anchors.verticalCenter: parent.verticalCenter
                    name: page.texts.demoSymbol
                    color: parent.color
                    sourceSize: Qt.size(14, 14)
                }
            }
            UsageRows {
                objectName: "usage-account"
                width: parent.width
                model_: page.view.accountRows
                texts: page.texts
                palette_: page.palette_
            }
            Rectangle {
                readonly property color tint: page.palette_.color("cyan")
                visible: page.view.showsSession
                width: parent.width
                height: sessionRows.implicitHeight + 24
                radius: 10
                color: Qt.rgba(tint.r, tint.g, tint.b, 0.08)
                UsageRows {
                    id: sessionRows
                    objectName: "usage-session"
                    x: 12
                    y: 12
                    width: parent.width - 24
                    model_: page.view.sessionRows
                    texts: page.texts
                    palette_: page.palette_
                }
            }
            Item { width: 1; height: 8 }
        }
    }
}
