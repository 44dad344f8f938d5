// Notifications through a real session bus (the test runs under dbus-run-session) and a stand-in
// notification service that records what it is asked.
#include "platform/DesktopNotifications.h"
#include "app/BridgeWindow.h"
#include "support/BridgeUnderTest.h"
#include "support/EventLoop.h"
#include "support/RunningProgram.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QQuickWindow>
#include <QTest>
#include <QWindow>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

class StandInNotificationService : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Shown {
        uint id;
        QString summary;
        QString body;
        QStringList actions;
    };

    explicit StandInNotificationService(QDBusConnection bus)
        : m_bus(std::move(bus))
    {
        m_bus.registerObject(DesktopNotifications::path, this,
                             QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals);
        registered = m_bus.registerService(DesktopNotifications::service);
    }
    ~StandInNotificationService() override
    {
        m_bus.unregisterService(DesktopNotifications::service);
        m_bus.unregisterObject(DesktopNotifications::path);
    }

    std::vector<Shown> shown;
    std::vector<uint> closed;
    bool registered = false;

public slots:
    QStringList GetCapabilities() { return {QStringLiteral("body"), QStringLiteral("actions")}; }
    uint Notify(const QString&, uint, const QString&, const QString& summary, const QString& body,
                const QStringList& actions, const QVariantMap&, int)
    {
        shown.push_back({++m_lastID, summary, body, actions});
        return m_lastID;
    }
    void CloseNotification(uint id) { closed.push_back(id); }

signals:
    void ActionInvoked(uint id, const QString& action);
    void NotificationClosed(uint id, uint reason);

private:
    QDBusConnection m_bus;
    uint m_lastID = 0;
};

const char* scenario = R"({
  "methods": {"thread/list": {"result": {"data": [
    {"id": "thr_1", "preview": "Fix the flaky upload test", "cwd": "/work", "source": "cli",
     "createdAt": 1700000000, "updatedAt": 1700000000}]}}},
  "cues": [
    {"when": "approve", "actions": [{"send": {"id": 0, "method": "item/commandExecution/requestApproval",
      "params": {"threadId": "thr_1", "turnId": "u", "command": "make test"}}}]},
    {"when": "again", "actions": [{"send": {"id": 1, "method": "item/commandExecution/requestApproval",
      "params": {"threadId": "thr_1", "turnId": "u", "command": "make check"}}}]},
    {"when": "ask", "actions": [{"send": {"id": 5, "method": "item/tool/requestUserInput",
      "params": {"threadId": "thr_1", "turnId": "u", "itemId": "i", "isBlocking": true,
        "questions": [{"id": "branch", "header": "", "question": "Which branch?"}]}}}]},
    {"when": "finish", "actions": [{"send": {"method": "turn/completed",
      "params": {"threadId": "thr_1", "turn": {"id": "u", "status": "completed"}}}}]},
    {"when": "fail", "actions": [{"send": {"method": "turn/completed",
      "params": {"threadId": "thr_1", "turn": {"id": "u", "status": "failed"}}}}]}]})";

// The real window over the fake engine, telling the desktop through the session bus.
class DesktopNotificationsTest : public ::testing::Test {
protected:
    DesktopNotificationsTest()
        : bridge(json(scenario))
        , window(bridge.controller(), bridge.defaults, &notifications)
    {
    }
    void SetUp() override
    {
        ASSERT_TRUE(QDBusConnection::sessionBus().isConnected()) << "run under dbus-run-session";
        ASSERT_TRUE(window.mainWindow());
        window.mainWindow()->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.mainWindow()));
        ASSERT_TRUE(waitFor([&] { return bridge.controller().appServerReady(); }));
        ASSERT_TRUE(waitFor([&] { return bridge.workspace().threadForID("thr_1").has_value(); }));
    }
    // Another window takes the focus: the user looks elsewhere.
    void lookElsewhere()
    {
        elsewhere.show();
        elsewhere.requestActivate();
        ASSERT_TRUE(waitFor([&] { return !window.mainWindow()->isActive(); }));
    }
    void lookAtTheWindow()
    {
        window.mainWindow()->requestActivate();
        ASSERT_TRUE(waitFor([&] { return window.mainWindow()->isActive(); }));
    }

    QDBusConnection serviceBus =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("stand-in"));
    StandInNotificationService service{serviceBus};
    DesktopNotifications notifications;
    BridgeUnderTest bridge;
    BridgeWindow window;
    QWindow elsewhere;
};

TEST_F(DesktopNotificationsTest, AnApprovalIsNotifiedUntilItIsAnsweredAnywhere)
{
    ASSERT_TRUE(service.registered);
    lookElsewhere();
    bridge.say("approve");
    ASSERT_TRUE(waitFor([&] { return service.shown.size() == 1; }));
    EXPECT_EQ(service.shown[0].summary, "Codex asks to run a command");
    EXPECT_EQ(service.shown[0].body, "Fix the flaky upload test\nmake test");
    EXPECT_EQ(service.shown[0].actions, QStringList({"default", "Open"}));

    // Its action raises the window with the sheet; answering there withdraws it.
    emit service.ActionInvoked(service.shown[0].id, QStringLiteral("default"));
    ASSERT_TRUE(waitFor([&] { return window.mainWindow()->isActive(); }));
    QObject* sheet = window.find("approvalSheet");
    ASSERT_TRUE(waitFor([&] { return sheet->property("opened").toBool(); }));
    EXPECT_TRUE(service.closed.empty());
    bridge.controller().respondToApproval(QStringLiteral("accept"));
    ASSERT_TRUE(waitFor([&] { return service.closed == std::vector<uint>{1}; }));

    // A paired phone that answers first withdraws the next one.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HOME", bridge.home.filePath("peer-home"));
    RunningProgram peer(NIMBREL_PEER_PATH,
                        {"--host", "127.0.0.1", "--port", QString::number(bridge.port()), "--state",
                         bridge.home.filePath("peer"), "--answer", R"({"decision":"decline"})"},
                        environment);
    peer.type("pair");
    const QString code = peer.captured("Pairing code: (\\d{6})");
    ASSERT_EQ(code.size(), 6) << peer.err.toStdString();
    ASSERT_TRUE(
        waitFor([&] { return bridge.controller().pairingRequestWithCode(code).has_value(); }));
    bridge.controller().approvePairing(*bridge.controller().pairingRequestWithCode(code));
    ASSERT_TRUE(peer.saysOnOutput(R"("kind":"pairingAccepted")")) << peer.err.toStdString();
    lookElsewhere();
    bridge.say("again");
    ASSERT_TRUE(waitFor([&] { return service.closed == std::vector<uint>{1, 2}; }));
    ASSERT_EQ(service.shown.size(), 2u);
    EXPECT_EQ(service.shown[1].body, "Fix the flaky upload test\nmake check");
    EXPECT_FALSE(bridge.controller().hasApproval());
}

TEST_F(DesktopNotificationsTest, AQuestionIsWithdrawnWhenCodexClosesIt)
{
    lookElsewhere();
    bridge.say("ask");
    ASSERT_TRUE(waitFor([&] { return service.shown.size() == 1; }));
    EXPECT_EQ(service.shown[0].summary, "Codex has a question");
    EXPECT_EQ(service.shown[0].body, "Fix the flaky upload test\nWhich branch?");
    // The turn's end closes the question: its notification goes, the turn's own comes.
    bridge.say("finish");
    ASSERT_TRUE(waitFor([&] { return service.closed == std::vector<uint>{1}; }));
    ASSERT_TRUE(waitFor([&] { return service.shown.size() == 2; }));
    EXPECT_EQ(service.shown[1].summary, "Turn finished");
}

TEST_F(DesktopNotificationsTest, ATurnEndingOutOfSightIsNotified)
{
    int ended = 0;
    QObject::connect(&bridge.workspace(), &CodexWorkspace::turnEnded, [&] { ++ended; });
    // In front: the Sessions page shows the session in the active window.
    bridge.workspace().openThread(QStringLiteral("thr_1"));
    lookAtTheWindow();
    bridge.say("finish");
    ASSERT_TRUE(waitFor([&] { return ended == 1; }));
    // Switched off: nothing either.
    lookElsewhere();
    window.setup().setShowNotifications(false);
    bridge.say("finish");
    ASSERT_TRUE(waitFor([&] { return ended == 2; }));
    window.setup().setShowNotifications(true);
    bridge.say("fail");
    // Notifications arrive in the order they were sent: a wrong earlier one would come first.
    ASSERT_TRUE(waitFor([&] { return !service.shown.empty(); }));
    ASSERT_EQ(service.shown.size(), 1u);
    EXPECT_EQ(service.shown[0].summary, "Turn failed");
    EXPECT_EQ(service.shown[0].body, "Fix the flaky upload test");

    // Its action brings the session forward.
    window.mainWindow()->showMinimized();
    emit service.ActionInvoked(service.shown[0].id, QStringLiteral("default"));
    ASSERT_TRUE(waitFor([&] { return window.mainWindow()->isActive(); }));
    EXPECT_TRUE(window.shows(QStringLiteral("thr_1")));
}

TEST(DesktopNotifications, WithoutAServiceNothingIsShownAndNothingFails)
{
    DesktopNotifications notifications;
    notifications.show(QStringLiteral("k"), QStringLiteral("Summary"), QStringLiteral("Body"));
    EXPECT_TRUE(notifications.isShowing(QStringLiteral("k")));
    ASSERT_TRUE(waitFor([&] { return !notifications.isShowing(QStringLiteral("k")); }));
    notifications.withdraw(QStringLiteral("k"));

    DesktopNotifications noBus(QDBusConnection(QStringLiteral("never connected")));
    noBus.show(QStringLiteral("k"), QStringLiteral("Summary"), QStringLiteral("Body"));
    EXPECT_FALSE(noBus.isShowing(QStringLiteral("k")));
}

} // namespace

#include "DesktopNotificationsTest.moc"
