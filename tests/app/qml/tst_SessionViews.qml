import QtQuick
import QtTest
import NimbrelBridgeTest

// What the session's views show, hide and enable by themselves, over a real workspace.
TestCase {
    name: "SessionViews"
    when: windowShown
    // Only a broken test waits this long: the window under a loaded machine may take its time.
    readonly property int patience: 60000

    property var gallery

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
    function find(objectName) { return named(gallery.contentItem.parent, objectName) }

    function init() {
        gallery = Fixture.openGallery()
        tryVerify(() => find("card-c1") !== null, patience)
    }
    function cleanup() {
        Fixture.setTurnRunning(false)
        Fixture.closeGallery()
        wait(0)
    }

    function test_headerFoldsItsCardsAndTheOutputUnfolds() {
        const toggle = find("toggle-c1")
        verify(toggle.visible)
        compare(toggle.text, "Show complete output")
        toggle.clicked()
        tryCompare(find("toggle-c1"), "text", "Collapse output", patience)
        compare(find("output-c1").text.length, 4500)
        find("processing-c1").clicked()
        tryVerify(() => find("card-c1") === null, patience)
        compare(find("processing-c1").Accessible.description, "Collapsed")
        find("toggle-session-activity").clicked()
        find("toggle-session-activity").clicked()
        tryVerify(() => find("card-c1") !== null, patience)
    }

    function test_theWrittenAnswerShowsItsFieldAndEnablesSending() {
        const send = find("question-submit-q-9")
        verify(!send.enabled)
        verify(!find("question-db-response").visible)
        find("question-db-custom").clicked()
        tryVerify(() => find("question-db-response").visible, patience)
        find("question-db-response").forceActiveFocus()
        find("question-db-response").text = "SQLite"
        tryVerify(() => send.enabled, patience)
    }

    function test_theStripShowsOnlyDuringATurn() {
        verify(!find("codex-activity-strip").visible)
        Fixture.setTurnRunning(true)
        tryVerify(() => find("codex-activity-strip").visible, patience)
    }
}
