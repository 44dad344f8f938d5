#include "bridge/BridgeController.h"
#include "support/FakeEngine.h"
#include "support/RunningProgram.h"
#include "support/TemporaryHome.h"
#include "support/VirtualScheduler.h"

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

JSONValue cue(const char* word, JSONValue action)
{
    return JSONValue::object({{"when", word}, {"actions", JSONValue::array({std::move(action)})}});
}

// The engine lists one session and streams whole turns on cue words.
JSONValue streamingScenario()
{
    const auto decoded = [](const char* text) { return JSONValue::decode(text).value(); };
    return JSONValue::object({
        {"methods",
         JSONValue::object(
             {{"thread/list",
               JSONValue::object({{"result", decoded(R"({"data":[{"id":"thr_shown"}]})")}})},
              {"turn/start",
               JSONValue::object({{"result", decoded(R"({"turn":{"id":"turn-1"}})")}})}})},
        {"cues",
         JSONValue::array({
             cue("stream-here",
                 decoded(
                     R"({"streamTurn":{"threadId":"thr_shown","turnId":"turn-1","prompt":"stream-here","deltas":40,"delayMs":3}})")),
             cue("stream-elsewhere",
                 decoded(
                     R"({"streamTurn":{"threadId":"thr_other","turnId":"turn-2","status":"failed"}})")),
             cue("usage-only",
                 decoded(
                     R"({"send":{"method":"thread/tokenUsage/updated","params":{"threadId":"thr_shown","tokenUsage":{}}}})")),
         })},
    });
}

} // namespace

TEST(LiveSessionEndToEnd, ATurnStartedByAPeerGrowsTheDesktopsSession)
{
    TemporaryHome home;
    FakeEngine engine(streamingScenario());
    home.makeLink("bin/codex", FakeEngine::executablePath());
    home.setPath(home.filePath("bin"));
    SettingsUserDefaults defaults(home.filePath("defaults.ini"));
    VirtualScheduler scheduler;
    BridgeController controller(scheduler, defaults, PeerLinkSettings{QHostAddress::LocalHost, 0},
                                SecretStore(home.filePath("secrets")));
    CodexWorkspace& workspace = controller.workspace();
    controller.startOnce();
    ASSERT_TRUE(waitFor([&] { return workspace.openThreadIDs() == QStringList{"thr_shown"}; }));

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HOME", home.path());
    RunningProgram peer(NIMBREL_PEER_PATH,
                        {"--host", "127.0.0.1", "--port",
                         QString::number(controller.link().listeningPort()), "--name", "Phone",
                         "--state", home.filePath("peer")},
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
    peer.type(R"(call turn/start {"threadId": "thr_shown", "text": "stream-here"})");
    ASSERT_TRUE(waitFor([&] {
        return session("thr_shown").turnControl.phase == TurnControlState::Phase::Running;
    }));
    ASSERT_TRUE(waitFor([&] {
        return session("thr_shown").activityText == QStringLiteral("Writing the response…");
    }));
    ASSERT_TRUE(waitFor(
        [&] { return session("thr_shown").turnControl.phase == TurnControlState::Phase::Idle; }));
    EXPECT_EQ(session("thr_shown").transcript.size(),
              8u); // user, reasoning, plan, command, change, tool, search, reply
    EXPECT_EQ(text("thr_shown", "turn-1-reasoning"), "Reading the build files\n\nPlanning the fix");
    EXPECT_EQ(text("thr_shown", "turn-1-command"), "ok 1\nok 2\n");
    EXPECT_TRUE(text("thr_shown", "turn-1-reply").startsWith("word0 word1 "));
    EXPECT_FALSE(session("thr_shown").activityText);
    ASSERT_TRUE(peer.saysOnOutput(R"("method":"turn/completed")"));
    EXPECT_EQ(peer.out.count(R"("method":"item/agentMessage/delta")"), 40);

    // A turn on a session without a tab makes the session and no tab.
    peer.type(R"(call turn/start {"threadId": "thr_other", "text": "stream-elsewhere"})");
    ASSERT_TRUE(waitFor([&] {
        return !session("thr_other").transcript.empty() &&
               session("thr_other").transcript.back().title == "Turn failed";
    }));
    EXPECT_EQ(workspace.openThreadIDs(), QStringList{"thr_shown"});

    // Token usage asks for no list.
    const auto lists = [&] {
        const auto methods = engine.receivedMethods();
        return std::count(methods.begin(), methods.end(), "thread/list");
    };
    ASSERT_TRUE(waitFor([&] { return !workspace.isRefreshingThreads(); }));
    const auto before = lists();
    peer.type(R"(call turn/start {"threadId": "thr_shown", "text": "usage-only"})");
    ASSERT_TRUE(peer.saysOnOutput(
        R"("method":"thread/tokenUsage/updated","body":{"threadId":"thr_shown")"));
    settle(100);
    EXPECT_EQ(lists(), before);
}
