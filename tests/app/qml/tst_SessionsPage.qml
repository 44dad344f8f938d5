import QtQuick
import QtTest
import NimbrelBridgeTest

// The Sessions page driven as a user would, over the fake engine: a new session whose turn streams
// into the view, following and not following it, a question, steering, stopping and closing.
TestCase {
    id: testCase
    name: "SessionsPage"
    when: windowShown
    // Only a broken test waits this long: the window under a loaded machine may take its time.
    readonly property int patience: 60000

    property var window

    function named(item, objectName) {
        if (!item)
            return null
        if (item.objectName === objectName)
            return item
        for (const list of [item.children || [], item.resources || []]) {
            for (let i = 0; i < list.length; ++i) {
                const found = named(list[i], objectName)
                if (found)
                    return found
            }
        }
        return null
    }
    function find(objectName) {
        return named(window.contentItem.parent, objectName)
    }
    function atBottom(area) {
        return area.contentHeight > area.height && Math.abs(area.contentY - (area.contentHeight - area.height)) < 2
    }
    // Deltas reach the transcript on the workspace's clock.
    function flushed(condition) {
        tryVerify(() => { Fixture.advance(0.2); return condition() }, patience)
    }

    function initTestCase() {
        const component = Qt.createComponent("qrc:/NimbrelBridge/ui/Main.qml")
        compare(component.status, Component.Ready, component.errorString())
        window = component.createObject(null, {
            controller: Fixture.controller, workspace: Fixture.workspace, setup: Fixture.setup,
            palette_: Fixture.palette, sessions: Fixture.sessions })
        window.show()
        tryVerify(() => Fixture.controller.appServerReady, patience)
    }
    function cleanupTestCase() {
        window.destroy()
        wait(0)
    }

    function test_aSessionFromStartToClose() {
        verify(find("sessions-empty").visible)
        Fixture.click(find("new-session"))
        tryVerify(() => find("new-session-sheet") && find("new-session-sheet").visible, patience)
        find("new-session-sheet").view.cwd = "/srv/app"
        find("new-session-prompt").text = "Fix the build"
        Fixture.click(find("new-session-create"))
        tryVerify(() => !find("new-session-sheet"), patience)

        // The turn streams into the new session's tab, and the view follows it.
        tryVerify(() => find("session-title") && find("session-folder"), patience)
        compare(find("session-folder").text, "/srv/app")
        const transcript = find("transcript")
        flushed(() => Fixture.sessions.session.working && atBottom(transcript))
        compare(find("session-phase").text, "Working")
        verify(!find("tab-close-thr_new").enabled)

        // Scrolling up stops the following; "Follow live" brings it back.
        Fixture.wheel(transcript, 360)
        tryVerify(() => find("follow-live").visible, patience)
        verify(!atBottom(transcript))
        Fixture.click(find("follow-live"))
        tryVerify(() => !find("follow-live").visible && atBottom(transcript), patience)

        // A message during the turn steers it; the question it brings shows on the newest page.
        const composer = find("composer")
        compare(composer.placeholderText, "Steer the active turn…")
        Fixture.sessions.session.draft = "Now ask me which database"
        compare(composer.text, "Now ask me which database")
        Fixture.click(find("composer-send"))
        tryVerify(() => Fixture.received("turn/steer") === 1, patience)
        // The draft stays until Codex has taken the message.
        tryCompare(composer, "text", "", patience)
        tryVerify(() => Fixture.sessions.session.questions.length === 1, patience)
        tryVerify(() => atBottom(transcript), patience)

        // Stop interrupts the turn; the tab closes once it has ended.
        Fixture.click(find("tab-close-thr_new"))
        verify(find("tab-thr_new"))
        Fixture.click(find("session-stop"))
        tryVerify(() => Fixture.received("turn/interrupt") === 1, patience)
        tryCompare(find("session-phase"), "text", "READY", patience)
        Fixture.click(find("tab-close-thr_new"))
        tryVerify(() => find("sessions-empty").visible, patience)
    }
}
