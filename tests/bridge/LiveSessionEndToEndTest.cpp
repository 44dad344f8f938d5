#include "bridge/BridgeController.h"
#include "support/BridgeUnderTest.h"
#include "support/RunningProgram.h"

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

// The engine lists one session and streams whole turns on cue words.
const char* streamingScenario = R"({
    "methods": {"thread/list": {"result": {"data": [{"id": "thr_shown"}]}},
                "turn/start": {"result": {"turn": {"id": "turn-1"}}}},
    "cues": [
        {"when": "stream-here", "actions": [{"streamTurn": {"threadId": "thr_shown", "turnId": "turn-1",
                                                            "prompt": "stream-here", "deltas": 40, "delayMs": 3}}]},
        {"when": "stream-elsewhere", "actions": [{"streamTurn": {"threadId": "thr_other", "turnId": "turn-2", "status": "failed"}}]},
        {"when": "usage-only", "actions": [{"send": {"method": "thread/tokenUsage/updated",
                                                     "params": {"threadId": "thr_shown", "tokenUsage": {}}}}]}]})";

} // namespace

TEST(LiveSessionEndToEnd, ATurnStartedByAPeerGrowsTheDesktopsSession)
{
    BridgeUnderTest bridge(json(streamingScenario));
    BridgeController& controller = bridge.controller();
    CodexWorkspace& workspace = bridge.workspace();
    ASSERT_TRUE(waitFor([&] { return workspace.openThreadIDs() == QStringList{"thr_shown"}; }));

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HOME", bridge.home.path());
    RunningProgram peer(NIMBREL_PEER_PATH,
                        {"--host", "127.0.0.1", "--port",
                         QString::number(controller.link().listeningPort()), "--name", "Phone",
                         "--state", bridge.home.filePath("peer")},
                        environment);
    peer.type("pair");
    const QString code = peer.captured("Pairing code: (\\d{6})");
    ASSERT_TRUE(waitFor([&] { return controller.pairingRequestWithCode(code).has_value(); }))
        << peer.err.toStdString();
    controller.approvePairing(*controller.pairingRequestWithCode(code));
    ASSERT_TRUE(peer.saysOnOutput(R"("kind":"pairingAccepted")"));

    const auto session = [&](const char* id) { return workspace.sessionState(id); };
    const auto text = [&](const char* id, const char* item) {
        for (const TranscriptEntry& entry : session(id).transcript)
            if (entry.id == item)
                return entry.text;
        return QString();
    };
    // Every state the session passes through, however quickly the turn streams past.
    bool running = false, writing = false;
    QObject watching; // ends the watch before the flags go
    QObject::connect(&workspace, &CodexWorkspace::sessionChanged, &watching,
                     [&](const QString& id) {
                         if (id != QLatin1String("thr_shown"))
                             return;
                         running = running || session("thr_shown").turnControl.phase ==
                                                  TurnControlState::Phase::Running;
                         writing = writing || session("thr_shown").activityText ==
                                                  QStringLiteral("Writing the response…");
                     });
    peer.type(R"(call turn/start {"threadId": "thr_shown", "text": "stream-here"})");
    ASSERT_TRUE(waitFor([&] {
        return running && session("thr_shown").turnControl.phase == TurnControlState::Phase::Idle;
    }));
    EXPECT_TRUE(writing);
    EXPECT_EQ(session("thr_shown").transcript.size(),
              8u); // user, reasoning, plan, command, change, tool, search, reply
    EXPECT_EQ(text("thr_shown", "turn-1-reasoning"), "Reading the build files\n\nPlanning the fix");
    EXPECT_EQ(text("thr_shown", "turn-1-command"), "ok 1\nok 2\n");
    EXPECT_TRUE(text("thr_shown", "turn-1-reply").startsWith("word0 word1 "));
    EXPECT_FALSE(session("thr_shown").activityText);
    ASSERT_TRUE(peer.saysOnOutput(R"("method":"turn/completed")"));
    EXPECT_EQ(peer.out.count(R"("method":"item/agentMessage/delta")"), 40);

    // A turn on a session without a tab makes the session and no tab, and its entries go with
    // the turn.
    QString otherEnded;
    QObject::connect(&workspace, &CodexWorkspace::turnEnded,
                     [&](const QString& threadID, const QString& status) {
                         if (threadID == "thr_other")
                             otherEnded = status;
                     });
    peer.type(R"(call turn/start {"threadId": "thr_other", "text": "stream-elsewhere"})");
    ASSERT_TRUE(waitFor([&] { return otherEnded == "failed"; }));
    EXPECT_TRUE(workspace.sessions().count("thr_other"));
    EXPECT_TRUE(session("thr_other").transcript.empty());
    EXPECT_EQ(workspace.openThreadIDs(), QStringList{"thr_shown"});

    // Token usage asks for no list.
    const auto lists = [&] { return bridge.received("thread/list"); };
    ASSERT_TRUE(waitFor([&] { return !workspace.isRefreshingThreads(); }));
    const auto before = lists();
    peer.type(R"(call turn/start {"threadId": "thr_shown", "text": "usage-only"})");
    ASSERT_TRUE(peer.saysOnOutput(
        R"("method":"thread/tokenUsage/updated","body":{"threadId":"thr_shown")"));
    settle(100);
    EXPECT_EQ(lists(), before);
}
