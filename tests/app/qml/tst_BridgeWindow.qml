import QtQuick
import QtTest
import NimbrelBridgeTest

// What the window shows and hides by itself, over a controller that runs the fake engine.
TestCase {
    id: testCase
    name: "BridgeWindow"
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

    function init() {
        const component = Qt.createComponent("qrc:/NimbrelBridge/ui/Main.qml")
        compare(component.status, Component.Ready, component.errorString())
        window = component.createObject(null, {
            controller: Fixture.controller, workspace: Fixture.workspace,
            setup: Fixture.setup, palette_: Fixture.palette,
            sessions: Fixture.sessions })
        window.show()
        tryVerify(() => Fixture.controller.appServerReady, patience)
        Fixture.click(find("bridgeSetupPage"))
        tryVerify(() => find("bridgeSetup").visible, patience)
    }
    function cleanup() {
        window.destroy()
        wait(0)
    }

    function test_installHelpOnlyInSettingsWhileCodexIsReady() {
        verify(!find("installHelp").visible)
        Fixture.key(window.contentItem, Qt.Key_Comma, Qt.ControlModifier)
        const settings = window.settingsWindow
        tryVerify(() => settings.visible, patience)
        verify(settings.width >= 620 && settings.height >= 430)
        verify(named(settings.contentItem, "installHelp").visible)
        settings.close()
    }

    function test_pairingSectionAndTrustedDevicesWhenEmpty() {
        verify(!find("pairingSection").visible)
        verify(find("noTrustedDevices").visible)
    }

    function test_automaticDetectionFollowsTheDefaultWhenTheCardIsDrawn() {
        verify(!find("useAutomaticDetection").visible)
        verify(find("chooseExecutable").visible)
        Fixture.setCustomExecutable("/opt/codex/bin/codex")
        verify(!find("useAutomaticDetection").visible)  // read when drawn, not observed
        Fixture.click(find("sessionsPage"))
        Fixture.click(find("bridgeSetupPage"))
        tryVerify(() => find("useAutomaticDetection").visible, patience)
        window.settingsWindow.open()
        const settingsButton = named(window.settingsWindow.contentItem, "useAutomaticDetection")
        tryVerify(() => settingsButton.visible, patience)
        Fixture.removeCustomExecutable()
        window.settingsWindow.close()
        window.settingsWindow.open()
        tryVerify(() => !settingsButton.visible, patience)
        window.settingsWindow.close()
    }

    function test_chooseExecutableOpensTheFileDialog() {
        Fixture.click(find("chooseExecutable"))
        const chooser = find("executableChooser")
        tryVerify(() => chooser.visible, patience)
        compare(chooser.title, "Choose the Codex executable")
        compare(chooser.acceptLabel, "Use Codex")
        compare(chooser.fileMode, 0)  // one existing file
        chooser.reject()
        verify(!Fixture.setup.usesCustomExecutable)
    }

    function test_launchAtLoginFallsBackWhenTheChangeFails() {
        const toggle = find("launchAtLogin")
        Fixture.click(toggle)
        tryVerify(() => Fixture.controller.launchAtLogin && toggle.checked, patience)
        Fixture.click(toggle)
        tryVerify(() => !Fixture.controller.launchAtLogin && !toggle.checked, patience)
        Fixture.blockAutostart()
        Fixture.click(toggle)
        wait(50)
        verify(!Fixture.controller.launchAtLogin)
        verify(!toggle.checked)
    }

    function test_activityShowsTheNewestTenLines() {
        for (let i = 0; i < 12; ++i)
            Fixture.log("activity " + i)
        const lines = []
        const section = find("activitySection")
        for (let i = 0; i < section.children.length; ++i)
            if (section.children[i].objectName === "activityLine")
                lines.push(section.children[i].text)
        compare(lines.length, 10)
        compare(lines[0], "activity 11")
    }

    function test_alertStandsOverEitherPageUntilDismissed() {
        Fixture.click(find("sessionsPage"))
        Fixture.workspace.errorMessage = "The engine refused."
        tryVerify(() => find("codexAlertMessage") && find("codexAlertMessage").visible, patience)
        compare(find("codexAlertMessage").text, "The engine refused.")
        // It hangs on the whole window: the page behind it does not matter.
        verify(!find("bridgeSetup").visible)
        Fixture.key(window.contentItem, Qt.Key_Escape)
        tryCompare(Fixture.workspace, "errorMessage", "", patience)
    }

    function test_approvalSheetShowsTheCommandAndItsFolder() {
        Fixture.approvalFromEngine()
        tryVerify(() => find("approvalCommand") && find("approvalCommand").visible, patience)
        compare(find("approvalCommand").text, "rm -rf build")
        compare(find("approvalCwd").text, "/work")
        Fixture.click(find("acceptButton"))
        tryVerify(() => !Fixture.controller.hasApproval, patience)
    }

    function test_usageButtonOpensTheSheetWhoseRefreshAsksTheEngine() {
        Fixture.click(find("sessionsPage"))
        const button = find("account-usage-details")
        tryCompare(find("account-usage-details-status"), "text", "5h 70% left", patience)
        Fixture.click(button)
        tryVerify(() => find("usage-sheet") && find("usage-sheet").visible, patience)
        const refresh = find("usage-refresh")
        tryVerify(() => refresh.enabled, patience)
        const reads = Fixture.received("account/rateLimits/read")
        Fixture.click(refresh)
        tryVerify(() => Fixture.received("account/rateLimits/read") > reads, patience)
        Fixture.click(find("usage-done"))
        tryVerify(() => !find("usage-sheet"), patience)
    }
}
