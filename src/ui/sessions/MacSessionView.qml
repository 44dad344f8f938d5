import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import "configuration"
import "transcript"
import "../usage"

// One session: the tabs, its header, the page of its transcript, its questions and the composer.
ColumnLayout {
    id: pane
    required property var workspaceView
    required property var view
    required property var palette_
    property var actions: null
    readonly property var texts: view.texts
    spacing: 0

    MacSessionTabBar { view: pane.workspaceView; palette_: pane.palette_; Layout.fillWidth: true }
    Rectangle { implicitHeight: 1; color: pane.palette.mid; Layout.fillWidth: true }

    RowLayout {
        objectName: "session-header"
        spacing: 8
        Layout.fillWidth: true
        Layout.margins: 10
        IconImage { name: pane.texts.terminalSymbol; sourceSize: Qt.size(16, 16) }
        ColumnLayout {
            spacing: 1
            Layout.fillWidth: true
            Layout.minimumWidth: 110
            Label {
                objectName: "session-title"
                text: pane.view.title
                textFormat: Text.PlainText
                font.bold: true
                font.pointSize: 11
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
            Label {
                objectName: "session-folder"
                text: pane.view.folder
                textFormat: Text.PlainText
                font.family: "monospace"
                font.pointSize: 8
                opacity: 0.7
                elide: Text.ElideMiddle
                Layout.fillWidth: true
            }
        }
        // The menus give up width before the title does: their labels elide.
        SessionModelMenu { configuration: pane.view.configuration; palette_: pane.palette_; Layout.fillWidth: true; Layout.minimumWidth: 56; Layout.maximumWidth: implicitWidth }
        SessionEffortMenu { configuration: pane.view.configuration; palette_: pane.palette_; Layout.fillWidth: true; Layout.minimumWidth: 56; Layout.maximumWidth: implicitWidth }
        BusyIndicator { visible: pane.view.working; running: visible; implicitWidth: 18; implicitHeight: 18 }
        Label {
            objectName: "session-phase"
            text: pane.view.phaseText
            font.bold: !pane.view.working
            font.pointSize: pane.view.working ? 9 : 8
            color: pane.view.working ? pane.palette.windowText : pane.palette_.color("green")
        }
        Button {
            objectName: "session-stop"
            visible: pane.view.working
            enabled: pane.view.stopEnabled
            text: pane.texts.stop
            icon.name: pane.texts.stopSymbol
            palette.buttonText: pane.palette_.color("red")
            onClicked: pane.view.stop()
        }
        ToolButton {
            id: actionsButton
            objectName: "session-actions"
            visible: pane.actions !== null
            icon.name: pane.workspaceView.texts.actionsSymbol
            text: pane.workspaceView.texts.actions
            display: AbstractButton.IconOnly
            Accessible.name: text
            ToolTip.visible: hovered
            ToolTip.text: text
            onClicked: pane.actions.openFor(pane.view.threadID, pane.view.title, actionsButton)
        }
        ToolButton {
            objectName: "session-settings"
            icon.name: pane.texts.settingsSymbol
            text: pane.texts.settings
            display: AbstractButton.IconOnly
            Accessible.name: text
            ToolTip.visible: hovered
            ToolTip.text: text
            onClicked: settingsSheet.open()
        }
    }

    RowLayout {
        spacing: 8
        Layout.fillWidth: true
        Layout.leftMargin: 10
        Layout.rightMargin: 10
        SessionConfigurationSummary { configuration: pane.view.configuration; palette_: pane.palette_ }
        Item { Layout.fillWidth: true }
        UsageStatusButton { view: pane.view.usage; palette_: pane.palette_; Layout.maximumWidth: 300 }
    }
    SessionActivityStrip {
        visible: pane.view.working
        view: pane.view.transcript
        Layout.fillWidth: true
        Layout.leftMargin: 10
        Layout.rightMargin: 10
    }
    TranscriptActivityControls {
        preference: pane.workspaceView.preference
        Layout.fillWidth: true
        Layout.leftMargin: 10
        Layout.rightMargin: 10
    }

    Item {
        Layout.fillWidth: true
        Layout.fillHeight: true
        Flickable {
            id: transcriptArea
            objectName: "transcript"
            property real moveStart: 0
            // After a request for the bottom, growth keeps the end in view until the user moves.
            property bool pinnedToBottom: false
            anchors.fill: parent
            contentWidth: width
            contentHeight: stack.implicitHeight
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {}
            onMovementStarted: {
                moveStart = contentY
                pinnedToBottom = false
            }
            onContentHeightChanged: if (pinnedToBottom) contentY = Math.max(0, contentHeight - height)
            onHeightChanged: if (pinnedToBottom) contentY = Math.max(0, contentHeight - height)
            onContentYChanged: if (moving) pane.view.userMoved(contentY - moveStart)
            Component.onCompleted: pane.view.appeared()

            // The wheel moves by steps of its own, so that the view knows the user moved it.
            WheelHandler {
                target: null
                onWheel: event => {
                    const delta = event.pixelDelta.y !== 0 ? event.pixelDelta.y : event.angleDelta.y / 2
                    const before = transcriptArea.contentY
                    const bottom = Math.max(0, transcriptArea.contentHeight - transcriptArea.height)
                    transcriptArea.pinnedToBottom = false
                    transcriptArea.contentY = Math.max(0, Math.min(bottom, before - delta))
                    pane.view.userMoved(transcriptArea.contentY - before)
                }
            }

            function scrollTo(anchor) {
                pinnedToBottom = anchor === "bottom"
                contentY = pinnedToBottom ? Math.max(0, contentHeight - height) : 0
            }

            Column {
                id: stack
                x: 10
                width: transcriptArea.width - 20
                spacing: 8
                topPadding: 8
                bottomPadding: 8
                Button {
                    objectName: "earlier-output"
                    visible: pane.view.showsEarlier
                    enabled: pane.view.earlierEnabled
                    text: pane.view.earlierText
                    icon.name: pane.texts.earlierSymbol
                    flat: true
                    anchors.horizontalCenter: parent.horizontalCenter
                    onClicked: pane.view.showEarlier()
                }
                TranscriptRows { width: parent.width; view: pane.view.transcript; palette_: pane.palette_ }
                Button {
                    objectName: "newer-output"
                    visible: pane.view.showsNewer
                    text: pane.texts.newer
                    icon.name: pane.texts.newerSymbol
                    flat: true
                    anchors.horizontalCenter: parent.horizontalCenter
                    onClicked: pane.view.showNewer()
                }
                SessionStateBlock { width: parent.width; view: pane.view; palette_: pane.palette_ }
                Repeater {
                    model: pane.view.questions
                    UserInputRequestView {
                        required property var modelData
                        width: stack.width
                        question: modelData
                        palette_: pane.palette_
                    }
                }
            }
        }
        Button {
            objectName: "follow-live"
            visible: pane.view.showsFollowLive
            text: pane.texts.followLive
            icon.name: pane.texts.followLiveSymbol
            highlighted: true
            anchors.right: parent.right
            anchors.bottom: parent.bottom
            anchors.margins: 16
            onClicked: pane.view.followLive()
        }
    }

    Rectangle { implicitHeight: 1; color: pane.palette.mid; Layout.fillWidth: true }
    SessionComposer { view: pane.view; Layout.fillWidth: true; Layout.margins: 10 }

    Connections {
        target: pane.view
        function onScrollRequested(anchor) { Qt.callLater(transcriptArea.scrollTo, anchor) }
    }

    SessionSettingsView {
        id: settingsSheet
        parent: Overlay.overlay
        anchors.centerIn: parent
        configuration: pane.view.configuration
        palette_: pane.palette_
    }
}
