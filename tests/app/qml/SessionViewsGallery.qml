import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import "qrc:/NimbrelBridge/ui/sessions"
import "qrc:/NimbrelBridge/ui/sessions/configuration"
import "qrc:/NimbrelBridge/ui/sessions/transcript"
import "qrc:/NimbrelBridge/ui/usage"

// The session's views side by side, over one session of a real workspace: for the screenshot tour
// and the Qt Quick tests, until the session view holds them.
ApplicationWindow {
    id: gallery
    required property var transcript
    required property var preference
    required property var questions
    required property var configuration
    required property var newSession
    required property var usage
    required property var palette_

    objectName: "gallery"
    width: 1100
    height: 860

    RowLayout {
        anchors.fill: parent
        anchors.margins: 12
        spacing: 16
        ScrollView {
            id: left
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.preferredWidth: 3
            contentWidth: availableWidth
            Column {
                width: left.availableWidth
                spacing: 8
                RowLayout {
                    width: parent.width
                    SessionConfigurationSummary { id: summary; configuration: gallery.configuration; palette_: gallery.palette_ }
                    Item { Layout.fillWidth: true }
                    UsageStatusButton { view: gallery.usage; palette_: gallery.palette_; Layout.maximumWidth: 260 }
                    SessionModelMenu { id: modelMenu; configuration: gallery.configuration; palette_: gallery.palette_ }
                    SessionEffortMenu { id: effortMenu; configuration: gallery.configuration; palette_: gallery.palette_ }
                }
                SessionActivityStrip { width: parent.width; view: gallery.transcript }
                TranscriptActivityControls { width: parent.width; preference: gallery.preference }
                TranscriptRows { width: parent.width; view: gallery.transcript; palette_: gallery.palette_ }
                Repeater {
                    model: gallery.questions
                    UserInputRequestView {
                        required property var modelData
                        width: parent.width
                        question: modelData
                        palette_: gallery.palette_
                    }
                }
            }
        }
        Frame {
            Layout.fillHeight: true
            Layout.preferredWidth: 1
            Layout.fillWidth: true
            NewSessionConfigurationControls {
                width: parent.width
                configuration: gallery.newSession
                palette_: gallery.palette_
            }
        }
    }

    SessionSettingsView {
        id: settingsSheet
        anchors.centerIn: parent
        configuration: gallery.configuration
        palette_: gallery.palette_
    }

    function openModelMenu() { modelMenu.clicked() }
    function openEffortMenu() { effortMenu.clicked() }
    function openSettings() { settingsSheet.open() }
    function openPermissionMenu() { summary.openPermissionMenu() }
    function openUsage() { usage.present() }
    function scrollToEnd() { left.contentItem.contentY = Math.max(0, left.contentItem.contentHeight - left.height) }
}
