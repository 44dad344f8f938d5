#include "app/BridgeWindow.h"
#include "app/SessionGallery.h"
#include "support/BridgeUnderTest.h"
#include "ui/common/WindowPalette.h"
#include "ui/sessions/BridgeWorkspaceViewModel.h"
#include "ui/setup/BridgeSetupModel.h"

#include <QDir>
#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QTest>
#include <QWheelEvent>
#include <QtQuickTest>

#include <memory>

using namespace nimbrel;
using namespace nimbrel::test;

// The engine: an allowance reading; a new session whose first task starts a turn of 300 lines that
// runs until interrupted; a question when the turn is steered to ask; an approval on cue.
const char* scenario = R"({
    "methods": {
        "account/rateLimits/read": {"result": {"rateLimits": {"limitId": "codex",
            "primary": {"usedPercent": 30, "windowDurationMins": 300}}}},
        "thread/start": {"result": {"thread": {"id": "thr_new"}}},
        "turn/start": {"result": {"turn": {"id": "turn-1"}}},
        "turn/interrupt": {"result": {}, "after": [{"send": {"method": "turn/completed",
            "params": {"threadId": "thr_new", "turn": {"id": "turn-1", "status": "interrupted"}}}}]}},
    "cues": [
        {"when": "approve", "actions": [{"send": {"id": 7, "method": "item/commandExecution/requestApproval",
            "params": {"threadId": "t", "turnId": "u", "command": "rm -rf build", "cwd": "/work"}}}]},
        {"when": "Fix the build", "actions": [
            {"send": {"method": "turn/started", "params": {"threadId": "thr_new",
                "turn": {"id": "turn-1", "status": "inProgress"}}}},
            {"send": {"method": "item/started", "params": {"threadId": "thr_new", "turnId": "turn-1",
                "item": {"type": "agentMessage", "id": "reply", "text": ""}}}},
            {"flood": {"count": 300, "message": {"method": "item/agentMessage/delta", "params": {
                "threadId": "thr_new", "turnId": "turn-1", "itemId": "reply", "delta": "a line of output\n"}}}}]},
        {"when": "ask me", "actions": [{"send": {"id": 11, "method": "item/tool/requestUserInput",
            "params": {"threadId": "thr_new", "turnId": "turn-1", "itemId": "ask",
                "questions": [{"id": "db", "header": "", "question": "Which database?",
                               "options": [{"label": "Postgres", "description": ""}]}]}}}]}]})";

// What the window's Qt Quick tests are handed: a controller over the fake engine, the page's view
// model and palette, and the few moves the tests make on them.
class WindowFixture : public QObject {
    Q_OBJECT
    Q_PROPERTY(QObject* controller READ controller CONSTANT)
    Q_PROPERTY(QObject* workspace READ workspace CONSTANT)
    Q_PROPERTY(QObject* setup READ setup CONSTANT)
    Q_PROPERTY(QObject* palette READ palette CONSTANT)
    Q_PROPERTY(QObject* sessions READ sessions CONSTANT)

public:
    QObject* controller() { return &m_bridge->controller(); }
    QObject* workspace() { return &m_bridge->workspace(); }
    QObject* setup() { return m_setup.get(); }
    QObject* palette() { return &m_palette; }
    QObject* sessions() { return m_sessions.get(); }

    Q_INVOKABLE void log(const QString& line) { m_bridge->controller().appendLog(line); }
    Q_INVOKABLE void setCustomExecutable(const QString& path)
    {
        m_bridge->defaults.setValue(BridgeController::customCodexPathKey, path);
    }
    Q_INVOKABLE void removeCustomExecutable()
    {
        m_bridge->defaults.remove(BridgeController::customCodexPathKey);
    }
    // A file where the autostart folder belongs: turning Launch at Login on fails.
    Q_INVOKABLE void blockAutostart()
    {
        QDir(m_bridge->home.filePath(".config/autostart")).removeRecursively();
        m_bridge->home.makeFile(".config/autostart", "", false);
    }
    Q_INVOKABLE void approvalFromEngine() { m_bridge->say("approve"); }
    // How many requests of method the engine has read.
    Q_INVOKABLE int received(const QString& method) const
    {
        return int(m_bridge->received(method.toUtf8().constData()));
    }
    // The session's views over a session with a long command, a group of steps and a question.
    Q_INVOKABLE QObject* openGallery()
    {
        m_bridge->workspace().changeSession(SessionGallery::threadID, [](CodexSessionState&
                                                                             session) {
            session.transcript = {
                {"u1", TranscriptKind::User, "You", "Build it", std::nullopt, std::nullopt, {}},
                {"c1",
                 TranscriptKind::Command,
                 "make",
                 QString(4500, 'x'),
                 QStringLiteral("completed"),
                 std::nullopt,
                 {}},
                {"r1", TranscriptKind::Reasoning, "Thinking", "", std::nullopt, std::nullopt, {}}};
        });
        UserInputRequest request{"q-9", SessionGallery::threadID, "t", {}, true};
        request.questions.push_back({"db", "", "Which database?",
                                     std::vector<UserInputQuestion::Option>{{"Postgres", ""}},
                                     std::nullopt});
        m_bridge->workspace().addUserInputPrompt(request);
        m_gallery = std::make_unique<SessionGallery>(*m_bridge, QStringList{"q-9"});
        m_gallery->window()->show();
        return m_gallery->window();
    }
    Q_INVOKABLE void closeGallery() { m_gallery.reset(); }
    Q_INVOKABLE void setTurnRunning(bool running)
    {
        m_bridge->workspace().changeSession(
            SessionGallery::threadID, [&](CodexSessionState& session) {
                session.turnControl.phase =
                    running ? TurnControlState::Phase::Running : TurnControlState::Phase::Idle;
            });
    }
    // Input into the window under test, which is not the test's own window.
    Q_INVOKABLE void click(QQuickItem* item)
    {
        QTest::mouseClick(
            item->window(), Qt::LeftButton, {},
            item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint());
    }
    // A turn of the mouse wheel over item: positive dy scrolls up.
    Q_INVOKABLE void wheel(QQuickItem* item, int dy)
    {
        const QPointF at = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
        QWheelEvent event(at, item->window()->mapToGlobal(at), QPoint(), QPoint(0, dy),
                          Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QGuiApplication::sendEvent(item->window(), &event);
    }
    // The virtual clock moves on, and what came due runs.
    Q_INVOKABLE void advance(double seconds) { m_bridge->scheduler.advance(seconds); }
    Q_INVOKABLE void key(QQuickItem* item, int key, int modifiers = 0)
    {
        QTest::keyClick(item->window(), Qt::Key(key), Qt::KeyboardModifiers(modifiers));
    }

public slots:
    void qmlEngineAvailable(QQmlEngine* engine)
    {
        m_bridge = std::make_unique<BridgeUnderTest>(json(scenario));
        m_setup = std::make_unique<BridgeSetupModel>(m_bridge->controller(), m_bridge->defaults);
        m_sessions = std::make_unique<BridgeWorkspaceViewModel>(
            m_bridge->workspace(), m_bridge->scheduler, m_bridge->defaults);
        qmlRegisterSingletonInstance("NimbrelBridgeTest", 1, 0, "Fixture", this);
        (void)engine;
    }
    void cleanupTestCase()
    {
        m_gallery.reset();
        m_sessions.reset();
        m_setup.reset();
        m_bridge.reset();
    }

private:
    std::unique_ptr<BridgeUnderTest> m_bridge;
    std::unique_ptr<BridgeSetupModel> m_setup;
    std::unique_ptr<BridgeWorkspaceViewModel> m_sessions;
    std::unique_ptr<SessionGallery> m_gallery;
    WindowPalette m_palette;
};

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    QTEST_SET_MAIN_SOURCE_PATH
    WindowFixture fixture;
    return quick_test_main_with_setup(argc, argv, "window", WINDOW_QML_TESTS, &fixture);
}

#include "WindowQuickTest.moc"
