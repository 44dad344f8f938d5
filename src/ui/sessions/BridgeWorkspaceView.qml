import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts
import "../usage"

// The page "Sessions": the sidebar of threads beside the selected session, and the new-session sheet.
SplitView {
    id: page
    required property var view
    required property var workspace
    required property var palette_
    readonly property var texts: view.texts

    objectName: "sessions"
    orientation: Qt.Horizontal
    Component.onCompleted: view.refresh()

    SessionActions { id: sessionActions; view: page.view }

    ColumnLayout {
        objectName: "sidebar"
        SplitView.minimumWidth: 235
        // The ideal width, where the session pane keeps its own minimum beside it.
        SplitView.preferredWidth: Math.max(235, Math.min(285, page.width - 540 - 6))
        SplitView.maximumWidth: 360
        spacing: 8
        RowLayout {
            Layout.fillWidth: true
            Layout.topMargin: 10
            Layout.leftMargin: 10
            Layout.rightMargin: 10
            Button {
                objectName: "new-session"
                text: page.texts.newSession
                icon.name: page.texts.newSessionSymbol
                highlighted: true
                Layout.fillWidth: true
                onClicked: page.view.showNewSession()
            }
            ToolButton {
                objectName: "refresh-sessions"
                text: page.texts.refresh
                icon.name: page.texts.refreshSymbol
                display: AbstractButton.IconOnly
                Accessible.name: text
                ToolTip.visible: hovered
                ToolTip.text: text
                onClicked: page.view.refresh()
            }
        }
        TextField {
            objectName: "session-search"
            placeholderText: page.texts.search
            text: page.workspace.searchText
            onTextEdited: page.workspace.searchText = text
            Layout.fillWidth: true
            Layout.leftMargin: 10
            Layout.rightMargin: 10
        }
        UsageStatusButton {
            view: page.view.accountUsage
            palette_: page.palette_
            Layout.leftMargin: 4
            Layout.maximumWidth: parent.width - 8
        }
        ListView {
            id: threadList
            objectName: "thread-list"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            spacing: 4
            leftMargin: 6
            rightMargin: 6
            model: page.view.threadRows
            ScrollBar.vertical: ScrollBar {}
            delegate: MacThreadRow {
                width: threadList.width - 12
                palette_: page.palette_
                onOpen: id => page.view.openRow(id)
                onActionsRequested: (id, title) => sessionActions.openFor(id, title, null)
            }
        }
    }

    Item {
        SplitView.minimumWidth: 540
        SplitView.fillWidth: true
        Loader {
            anchors.fill: parent
            active: page.view.session.present
            sourceComponent: MacSessionView {
                workspaceView: page.view
                actions: sessionActions
                view: page.view.session
                palette_: page.palette_
            }
        }
        ColumnLayout {
            objectName: "sessions-empty"
            visible: !page.view.session.present
            anchors.centerIn: parent
            width: Math.min(parent.width - 60, 420)
            spacing: 10
            IconImage {
                name: page.texts.emptySymbol
                sourceSize: Qt.size(48, 48)
                color: palette.windowText
                opacity: 0.5
                Layout.preferredWidth: 48
                Layout.preferredHeight: 48
                Layout.alignment: Qt.AlignHCenter
            }
            Label { text: page.texts.emptyTitle; font.bold: true; font.pointSize: 14; Layout.alignment: Qt.AlignHCenter }
            Label {
                text: page.texts.emptyText
                wrapMode: Text.Wrap
                horizontalAlignment: Text.AlignHCenter
                opacity: 0.7
                Layout.fillWidth: true
            }
            Button {
                objectName: "new-session-empty"
                text: page.texts.newSession
                icon.name: page.texts.newSessionSymbol
                highlighted: true
                Layout.alignment: Qt.AlignHCenter
                onClicked: page.view.showNewSession()
            }
            Label {
                objectName: "tour-offer-text"
                visible: page.view.offersTour
                text: page.texts.tourText
                wrapMode: Text.Wrap
                horizontalAlignment: Text.AlignHCenter
                opacity: 0.7
                Layout.topMargin: 14
                Layout.fillWidth: true
            }
            Button {
                objectName: "start-tour"
                visible: page.view.offersTour
                text: page.texts.tourButton
                icon.name: page.texts.tourSymbol
                Layout.alignment: Qt.AlignHCenter
                onClicked: page.view.startTour()
            }
        }
    }

    Popup {
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(600, parent.width - 40)
        height: Math.min(570, parent.height - 40)
        padding: 0
        modal: true
        Overlay.modal: Rectangle { color: page.palette_.color("scrim") }
        visible: page.view.newSession !== null
        onClosed: page.view.dismissNewSession(false)
        Loader {
            anchors.fill: parent
            active: page.view.newSession !== null
            sourceComponent: NewBridgeSessionView {
                view: page.view.newSession
                palette_: page.palette_
                onFinished: create => page.view.dismissNewSession(create)
            }
        }
    }
}
