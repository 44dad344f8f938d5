import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// The open sessions as tabs; the selected one scrolls to the centre.
ListView {
    id: strip
    required property var view
    required property var palette_
    readonly property var texts: view.texts
    readonly property int selectedTab: view.selectedTab

    objectName: "session-tabs"
    orientation: ListView.Horizontal
    implicitHeight: 39
    clip: true
    spacing: 2
    boundsBehavior: Flickable.StopAtBounds
    model: view.tabs
    // The selected tab slides towards the middle of the strip.
    currentIndex: selectedTab
    highlightRangeMode: ListView.ApplyRange
    preferredHighlightBegin: width / 2 - 120
    preferredHighlightEnd: width / 2 + 120
    highlightMoveDuration: 200

    delegate: Rectangle {
        id: tab
        required property string threadID
        required property string title
        required property string dotTint
        required property bool selected
        required property bool closeEnabled
        readonly property color accent: strip.palette_.color("accent")

        objectName: "tab-" + threadID
        width: Math.min(240, content.implicitWidth + 16)
        height: strip.height
        color: selected ? Qt.rgba(accent.r, accent.g, accent.b, 0.12) : "transparent"
        RowLayout {
            id: content
            anchors.fill: parent
            anchors.leftMargin: 8
            anchors.rightMargin: 4
            spacing: 4
            Rectangle { implicitWidth: 8; implicitHeight: 8; radius: 4; color: strip.palette_.color(tab.dotTint) }
            ToolButton {
                objectName: "tab-title-" + tab.threadID
                text: tab.title
                font.bold: tab.selected
                flat: true
                Layout.maximumWidth: 180
                contentItem: Label {
                    text: tab.title
                    textFormat: Text.PlainText
                    font.bold: tab.selected
                    elide: Text.ElideRight
                }
                onClicked: strip.view.selectTab(tab.threadID)
            }
            ToolButton {
                objectName: "tab-close-" + tab.threadID
                icon.name: strip.texts.closeSymbol
                icon.width: 12
                icon.height: 12
                display: AbstractButton.IconOnly
                enabled: tab.closeEnabled
                Accessible.name: strip.texts.close
                onClicked: strip.view.closeTab(tab.threadID)
            }
        }
        Rectangle {
            visible: tab.selected
            y: tab.height - height
            width: tab.width
            height: 2
            color: tab.accent
        }
    }
    ScrollBar.horizontal: ScrollBar { policy: ScrollBar.AlwaysOff }
}
