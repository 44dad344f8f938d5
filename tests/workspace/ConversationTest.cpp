#include "bridge/BridgeController.h"
#include "support/BridgeUnderTest.h"
#include "support/EventLoop.h"
#include "support/ScriptedWorkspace.h"
#include "support/TemporaryHome.h"
#include "support/VirtualScheduler.h"

#include <QCoreApplication>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

using namespace nimbrel;
using namespace nimbrel::test;
using ::testing::ElementsAre;
using Phase = TurnControlState::Phase;

namespace {

AppServerClient::RequestResult failure(const char* message)
{
    return AppServerError::server(message);
}

std::vector<QString> entryIDs(const CodexSessionState& session)
{
    std::vector<QString> ids;
    for (const TranscriptEntry& entry : session.transcript)
        ids.push_back(entry.id);
    return ids;
}

class ConversationTest : public ScriptedWorkspace {
protected:
    const CodexSessionState& session(const QString& id) { return *workspace.session(id); }
    Phase phase(const QString& id) { return session(id).turnControl.phase; }
};

} // namespace

TEST_F(ConversationTest, ASessionsPermissionModeGoesWithItsStartResumeAndNextTurn)
{
    workspace.setEngineReady(true, {});
    workspace.createSession("", "", "", "", "ask");
    EXPECT_EQ(
        engine.last("thread/start").params,
        json(
            R"({"approvalPolicy":"untrusted","sandbox":"workspace-write","serviceName":"sar_vane"})"));
    engine.last("thread/start").completion(json(R"({"thread":{"id":"t1"}})"));
    EXPECT_EQ(workspace.sessionMode("t1"), PermissionMode::AskBeforeActing);

    workspace.setPermissionMode("read-only", "t1");
    workspace.setPermissionMode("everything", "t1");
    workspace.send("look", "t1");
    EXPECT_EQ(engine.last("thread/resume").params["approvalPolicy"], JSONValue("on-request"));
    EXPECT_EQ(engine.last("thread/resume").params["sandbox"], JSONValue("read-only"));
    engine.last("thread/resume").completion(json("{}"));
    EXPECT_EQ(engine.last("turn/start").params["approvalPolicy"], JSONValue("on-request"));
    EXPECT_EQ(engine.last("turn/start").params["sandboxPolicy"], json(R"({"type":"readOnly"})"));

    // Changed while the turn runs: the next turn carries it.
    engine.last("turn/start").completion(json(R"({"turn":{"id":"T1"}})"));
    notify("turn/started", R"({"threadId":"t1","turn":{"id":"T1"}})");
    workspace.setPermissionMode("full-access", "t1");
    notify("turn/completed", R"({"threadId":"t1","turn":{"id":"T1","status":"completed"}})");
    workspace.send("now build", "t1");
    engine.last("thread/resume").completion(json("{}"));
    EXPECT_EQ(engine.last("turn/start").params["approvalPolicy"], JSONValue("never"));
    EXPECT_EQ(engine.last("turn/start").params["sandboxPolicy"],
              json(R"({"type":"dangerFullAccess"})"));
}

TEST_F(ConversationTest, ASessionNobodyChoseAModeForRunsAsCodexReportsAndIsKeptAcrossRestarts)
{
    workspace.setEngineReady(true, {});
    const auto modeAfterResume = [&](const QString& id, const char* answer) {
        workspace.send("go on", id);
        EXPECT_EQ(engine.last("thread/resume").params,
                  JSONValue::object({{"threadId", id}, {"excludeTurns", true}}));
        engine.last("thread/resume").completion(json(answer));
        engine.last("turn/start").completion(failure("no"));
        return workspace.sessionMode(id);
    };
    EXPECT_EQ(
        modeAfterResume("r1", R"({"approvalPolicy":"on-request","sandbox":{"type":"readOnly"}})"),
        PermissionMode::ReadOnly);
    EXPECT_EQ(
        modeAfterResume("r2", R"({"approvalPolicy":"on-failure","sandbox":{"type":"readOnly"}})"),
        PermissionMode::Custom);
    EXPECT_EQ(modeAfterResume("r3", "{}"), std::nullopt);

    // Kept for the next run of the window, and carried by its next resume and turn.
    CodexWorkspace later(defaults, scheduler, "tabs", 4, 20);
    later.requester = workspace.requester;
    later.setEngineReady(true, {});
    EXPECT_EQ(later.sessionMode("r1"), PermissionMode::ReadOnly);
    later.send("again", "r1");
    EXPECT_EQ(engine.last("thread/resume").params["sandbox"], JSONValue("read-only"));
    engine.last("thread/resume").completion(json("{}"));
    EXPECT_EQ(engine.last("turn/start").params["sandboxPolicy"], json(R"({"type":"readOnly"})"));
    // A custom combination is left as Codex has it.
    later.send("again", "r2");
    EXPECT_FALSE(engine.last("thread/resume").params.find("sandbox"));
}

TEST_F(ConversationTest, AMessageCodexDidNotTakeStaysInTheComposerWithItsImagesAndLeavesNoEcho)
{
    const QString image = QStringLiteral("data:image/png;base64,AA");
    workspace.setDraft("describe this", "t1");
    workspace.addDraftImage(DraftImage{"i1", "shot", image, 1, 1}, "t1");
    const auto sendDraft = [&] {
        workspace.send(session("t1").draft, "t1", {image});
        engine.last("thread/resume").completion(json("{}"));
    };
    sendDraft();
    EXPECT_TRUE(session("t1").isSendingMessage);
    engine.last("turn/start").completion(failure("This message is too large to send (20.0 MB)"));
    EXPECT_EQ(session("t1").draft, "describe this");
    EXPECT_EQ(session("t1").draftImages.size(), 1u);
    EXPECT_TRUE(session("t1").transcript.empty());
    EXPECT_EQ(phase("t1"), Phase::Idle);
    EXPECT_EQ(workspace.errorMessage(), "This message is too large to send (20.0 MB)");

    sendDraft();
    engine.last("turn/start").completion(json(R"({"turn":{"id":"T1"}})"));
    EXPECT_EQ(session("t1").draft, "");
    EXPECT_TRUE(session("t1").draftImages.empty());
    EXPECT_EQ(session("t1").transcript.size(), 1u);
}

TEST_F(ConversationTest, ATurnRunningWhenTheSessionIsReadIsSteeredAndStoppedByItsId)
{
    workspace.openThread("h");
    engine.last("thread/items/list").completion(failure("thread/items/list is not supported yet"));
    engine.last("thread/turns/list")
        .completion(json(R"({"data":[{"id":"T7","status":"inProgress","items":[]}]})"));
    EXPECT_EQ(session("h").turnControl, (TurnControlState{Phase::Running, QStringLiteral("T7")}));
    workspace.send("focus on the tests", "h");
    EXPECT_EQ(engine.last("turn/steer").params["expectedTurnId"], JSONValue("T7"));
    workspace.stopTurn("h");
    EXPECT_EQ(engine.last("turn/interrupt").params, json(R"({"threadId":"h","turnId":"T7"})"));
}

TEST_F(ConversationTest, ANewSessionTakesItsNameModelAndFirstTurnFromWhatWasGiven)
{
    workspace.createSession("  /work/app \n", "  \n ");
    EXPECT_EQ(
        engine.last("thread/start").params,
        json(
            R"({"approvalPolicy":"never","sandbox":"danger-full-access","serviceName":"sar_vane","cwd":"/work/app"})"));
    engine.last("thread/start").completion(json(R"({"thread":{"id":"t1"}})"));
    const CodexThread made = workspace.threads().front();
    EXPECT_EQ(made.title, "New Codex session");
    EXPECT_EQ(made.preview, "");
    EXPECT_EQ(made.cwd, "/work/app");
    EXPECT_EQ(workspace.selectedThreadID(), QStringLiteral("t1"));
    EXPECT_TRUE(session("t1").hasLoadedTranscript);
    EXPECT_FALSE(session("t1").model);
    EXPECT_FALSE(session("t1").reasoningEffort);
    EXPECT_EQ(engine.count("turn/start") + engine.count("thread/items/list") +
                  engine.count("thread/resume"),
              0);
    EXPECT_EQ(engine.count("thread/list"), 2);

    // The model: the thread's, else the result's, else the one asked for; the effort likewise.
    workspace.createSession("", " Fix the build ", "asked", "high");
    EXPECT_EQ(engine.last("thread/start").params["model"], JSONValue("asked"));
    EXPECT_FALSE(engine.last("thread/start").params.contains("cwd"));
    engine.last("thread/start")
        .completion(json(R"({"thread":{"id":"t2","model":null},"model":"top"})"));
    EXPECT_EQ(session("t2").model, QStringLiteral("top"));
    EXPECT_EQ(session("t2").reasoningEffort, QStringLiteral("high"));
    EXPECT_EQ(workspace.threads().front().title, "Fix the build");
    ASSERT_EQ(session("t2").transcript.size(), 1u);
    EXPECT_EQ(session("t2").transcript[0].text, "Fix the build");
    EXPECT_EQ(engine.last("turn/start").params["model"], JSONValue("top"));
    EXPECT_EQ(engine.last("turn/start").params["effort"], JSONValue("high"));
    EXPECT_EQ(engine.count("thread/resume"), 0);
    workspace.createSession("", "", "asked");
    engine.last("thread/start")
        .completion(
            json(R"({"thread":{"id":"t3","model":"own","reasoningEffort":"low"},"model":"top"})"));
    EXPECT_EQ(session("t3").model, QStringLiteral("own"));
    EXPECT_EQ(session("t3").reasoningEffort, QStringLiteral("low"));

    workspace.createSession("", "");
    engine.last("thread/start").completion(json(R"({"thread":{"id":7}})"));
    EXPECT_EQ(workspace.errorMessage(),
              QStringLiteral("Codex returned an unexpected response while creating the session."));
    workspace.createSession("", "");
    engine.last("thread/start").completion(failure("model not found"));
    EXPECT_EQ(workspace.errorMessage(), QStringLiteral("model not found"));
    workspace.requester = nullptr;
    workspace.createSession("", "");
    EXPECT_EQ(workspace.errorMessage(), QStringLiteral("The Codex connection is unavailable."));
    EXPECT_EQ(workspace.threads().size(), 3u);
}

TEST_F(ConversationTest, HistoryFallsBackOnceToTurnsAndEveryEarlierLoadCompletesOnce)
{
    std::vector<int> completions;
    auto earlier = [&] {
        workspace.loadEarlierTranscript("h", [&](int added) { completions.push_back(added); });
    };
    const JSONValue turnsPage =
        json(R"({"data":[{"id":"t2","items":[{"type":"agentMessage","id":"a2","text":"two"}]},
        {"id":"t1","items":[{"type":"agentMessage","id":"a1","text":"one"}]}],"nextCursor":"c1"})");

    workspace.openThread("h");
    EXPECT_EQ(engine.last("thread/items/list").params,
              json(R"({"threadId":"h","limit":20,"sortDirection":"desc"})"));
    EXPECT_TRUE(session("h").isLoadingTranscript);
    engine.last("thread/items/list").completion(failure("thread/items/list is not supported yet"));
    EXPECT_EQ(engine.last("thread/turns/list").params,
              json(R"({"threadId":"h","limit":1,"sortDirection":"desc","itemsView":"full"})"));
    engine.last("thread/turns/list").completion(turnsPage);
    EXPECT_THAT(entryIDs(session("h")), ElementsAre("a1", "a2"));
    EXPECT_TRUE(session("h").canLoadEarlierTranscript);

    // Pages behind the first keep their source and never fall back.
    earlier();
    EXPECT_EQ(engine.last("thread/turns/list").params["cursor"], JSONValue("c1"));
    engine.last("thread/turns/list").completion(failure("Method not found"));
    EXPECT_EQ(session("h").transcriptLoadError,
              QStringLiteral("Earlier messages could not be loaded: Method not found"));
    EXPECT_EQ(engine.count("thread/items/list"), 1);
    earlier(); // the same page again, holding only known entries, and the last
    engine.last("thread/turns/list")
        .completion(json(R"({"data":[{"id":"t1","items":[{"type":"agentMessage","id":"a1"}]}]})"));
    EXPECT_FALSE(session("h").canLoadEarlierTranscript);
    earlier();
    EXPECT_THAT(completions, ElementsAre(0, 0, 0));
    EXPECT_EQ(engine.count("thread/turns/list"), 3);

    // A first page that takes too long, and its late reply.
    workspace.loadTranscript("h", true);
    advance(20);
    EXPECT_EQ(session("h").transcriptLoadError,
              QStringLiteral("Loading session history took too long. Please try again."));
    EXPECT_FALSE(session("h").isLoadingTranscript);
    engine.last("thread/items/list")
        .completion(json(R"({"data":[{"item":{"type":"agentMessage","id":"late"}}]})"));
    EXPECT_THAT(entryIDs(session("h")), ElementsAre("a1", "a2"));

    // An earlier load dropped by closing the tab, or by the engine's fall, completes with 0 once.
    for (bool byClosing : {true, false}) {
        completions.clear();
        workspace.openThread("h");
        workspace.loadTranscript("h", true);
        engine.last("thread/items/list").completion(json(R"({"data":[],"nextCursor":"c9"})"));
        earlier();
        if (byClosing)
            workspace.closeTab("h");
        else
            workspace.setEngineReady(false, QStringLiteral("Codex app-server exited with code 1."));
        EXPECT_THAT(completions, ElementsAre(0));
        engine.last("thread/items/list").completion(json(R"({"data":[]})"));
        advance(30);
        EXPECT_THAT(completions, ElementsAre(0));
        workspace.setEngineReady(true, {});
    }
    EXPECT_EQ(session("h").transcriptLoadError,
              QStringLiteral("Codex app-server exited with code 1."));
}

TEST_F(ConversationTest, ARunningSessionLoadsItsHistoryOnceAndAThreadWithoutAUserMessageHasNone)
{
    workspace.changeSession("r", [](CodexSessionState& s) {
        s.turnControl = {Phase::Running, QStringLiteral("T")};
    });
    workspace.openThread("r");
    engine.last("thread/items/list").completion(json(R"({"data":[]})"));
    workspace.selectThread("r");
    workspace.openThread("r");
    EXPECT_EQ(engine.count("thread/items/list"), 1);

    workspace.openThread("n");
    engine.last("thread/items/list").completion(failure("thread/items/list is not supported yet"));
    engine.last("thread/turns/list")
        .completion(failure("thread n is not materialized yet; thread/turns/list is unavailable "
                            "before first user message"));
    EXPECT_TRUE(session("n").transcript.empty());
    EXPECT_FALSE(session("n").transcriptLoadError);
    EXPECT_TRUE(session("n").hasLoadedTranscript);
    EXPECT_FALSE(session("n").canLoadEarlierTranscript);
}

TEST_F(ConversationTest, MessagesStartSteerOrWaitAndAStopIsNeverLost)
{
    // The composer sends from the session's tab.
    workspace.rememberThread({"s", "S", "", "", "cli", "idle", 0, {}, {}});
    workspace.openThread("s");
    engine.last("thread/items/list").completion(json(R"({"data":[]})"));
    workspace.setEngineReady(false, {});
    workspace.send(" \n ", "s");
    EXPECT_FALSE(workspace.errorMessage());
    workspace.send("hello", "s");
    EXPECT_EQ(workspace.errorMessage(), QStringLiteral("Codex app-server is not ready."));
    workspace.setEngineReady(true, {});
    workspace.changeSession("s", [](CodexSessionState& s) {
        s.model = "gpt-5";
        s.reasoningEffort = "";
    });

    // Idle: resumed first; a stop during the resume waits for the turn's id.
    workspace.send("  hello ", "s");
    EXPECT_EQ(engine.last("thread/resume").params, json(R"({"threadId":"s","excludeTurns":true})"));
    EXPECT_EQ(session("s").activityText, QStringLiteral("Opening this Codex session…"));
    workspace.send("again", "s");
    EXPECT_EQ(
        workspace.errorMessage(),
        QStringLiteral("Codex is still starting this turn. You can stop it or wait a moment."));
    workspace.stopTurn("s");
    workspace.stopTurn("s");
    EXPECT_EQ(phase("s"), Phase::Stopping);
    engine.last("thread/resume").completion(json("{}"));
    EXPECT_EQ(engine.last("turn/start").params,
              json(R"({"threadId":"s","input":[{"type":"text","text":"hello"}],"summary":"detailed",
                       "model":"gpt-5"})"));
    EXPECT_EQ(phase("s"), Phase::Stopping);
    notify("turn/started", R"({"threadId":"s","turn":{"id":"T1"}})");
    EXPECT_EQ(engine.count("turn/interrupt"), 1);
    EXPECT_EQ(engine.last("turn/interrupt").params, json(R"({"threadId":"s","turnId":"T1"})"));

    // The turn ends first; the failed interrupt and the late reply change nothing but the message.
    notify("turn/completed", R"({"threadId":"s","turn":{"id":"T1","status":"interrupted"}})");
    engine.last("turn/interrupt").completion(failure("no active turn to interrupt"));
    engine.last("turn/start").completion(json(R"({"turn":{"id":"T1"}})"));
    EXPECT_EQ(session("s").turnControl, TurnControlState{});
    EXPECT_EQ(workspace.errorMessage(), QStringLiteral("no active turn to interrupt"));
    EXPECT_EQ(session("s").transcript.size(), 1u);

    // A turn started elsewhere is steered, with no entry of its own.
    notify("turn/started", R"({"threadId":"s","turn":{"id":"T2"}})");
    workspace.send("also this", "s");
    EXPECT_EQ(
        engine.last("turn/steer").params,
        json(
            R"({"threadId":"s","expectedTurnId":"T2","input":[{"type":"text","text":"also this"}]})"));
    engine.last("turn/steer").completion(failure("expected active turn id `T2` but found `T3`"));
    EXPECT_EQ(workspace.errorMessage(),
              QStringLiteral("expected active turn id `T2` but found `T3`"));
    EXPECT_EQ(phase("s"), Phase::Running);
    EXPECT_EQ(session("s").transcript.size(), 1u);
    workspace.stopTurn("s");
    workspace.send("wait", "s");
    EXPECT_EQ(workspace.errorMessage(),
              QStringLiteral("Wait for this session to stop before sending another message."));
    engine.last("turn/interrupt").completion(failure("busy"));
    EXPECT_EQ(phase("s"), Phase::Running);

    // The reply before turn/started: the id is kept, and a message still waits for the turn.
    notify("turn/completed", R"({"threadId":"s","turn":{"id":"T2"}})");
    workspace.send("go", "s");
    engine.last("thread/resume").completion(json("{}"));
    engine.last("turn/start").completion(json(R"({"turn":{"id":"T3"}})"));
    EXPECT_EQ(session("s").turnControl, (TurnControlState{Phase::Starting, QStringLiteral("T3")}));
    workspace.send("now", "s");
    EXPECT_EQ(
        workspace.errorMessage(),
        QStringLiteral("Codex is still starting this turn. You can stop it or wait a moment."));

    // A reply without a turn id ends the attempt.
    notify("turn/completed", R"({"threadId":"s","turn":{"id":"T3","status":"failed"}})");
    EXPECT_EQ(session("s").transcript.back().text, "Codex could not complete this turn.");
    workspace.send("next", "s");
    engine.last("thread/resume").completion(json("{}"));
    engine.last("turn/start").completion(json(R"({"turn":{}})"));
    EXPECT_EQ(workspace.errorMessage(),
              QStringLiteral("Codex returned an unexpected response while starting the turn."));
    EXPECT_EQ(phase("s"), Phase::Idle);
}

TEST_F(ConversationTest, ImagesGoBesideTheTextAsImagesOrLocalImages)
{
    workspace.send("", "s", {"data:image/png;base64,iVBO", "/home/ada/shot.png"});
    engine.last("thread/resume").completion(json("{}"));
    // Without text, the images alone.
    EXPECT_EQ(engine.last("turn/start").params["input"],
              json(R"([{"type":"image","url":"data:image/png;base64,iVBO"},
                       {"type":"localImage","path":"/home/ada/shot.png"}])"));
    EXPECT_EQ(session("s").transcript.back().images,
              QStringList({"data:image/png;base64,iVBO", "/home/ada/shot.png"}));
    engine.last("turn/start").completion(json(R"({"turn":{"id":"T1"}})"));
    notify("turn/started", R"({"threadId":"s","turn":{"id":"T1"}})");
    workspace.send("and this", "s", {"data:image/jpeg;base64,/9j/"});
    EXPECT_EQ(engine.last("turn/steer").params["input"], json(R"([{"type":"text","text":"and this"},
                       {"type":"image","url":"data:image/jpeg;base64,/9j/"}])"));
    workspace.send("  ", "s", {});
    EXPECT_EQ(engine.count("turn/steer"), 1);
}

TEST_F(ConversationTest, TheOfflineTourAnswersWithoutTheEngine)
{
    workspace.setDemoMode(true);
    workspace.setEngineReady(false, {});
    const std::size_t calls = engine.calls.size();
    workspace.send(" Show me ", "d");
    workspace.send("And again", "d");
    EXPECT_EQ(phase("d"), Phase::Starting);
    advance(0.64);
    EXPECT_EQ(session("d").transcript.size(), 2u);
    advance(0.01);
    ASSERT_EQ(session("d").transcript.size(), 4u);
    EXPECT_EQ(session("d").transcript[0].text, "Show me");
    EXPECT_TRUE(session("d").transcript[2].id.startsWith("demo-codex-"));
    EXPECT_EQ(session("d").transcript[2].title, "Offline Demo");
    EXPECT_EQ(phase("d"), Phase::Idle);
    workspace.createSession("", "hi");
    workspace.loadTranscript("d", true);
    EXPECT_EQ(engine.calls.size(), calls);

    // Leaving the tour drops a reply under way.
    workspace.send("late", "d");
    workspace.setDemoMode(false);
    advance(1);
    EXPECT_EQ(session("d").transcript.size(), 5u);
    EXPECT_EQ(phase("d"), Phase::Starting);
}

TEST_F(ConversationTest, TheTourOpensItsSampleSessionsWhichOutliveTheEngine)
{
    const std::size_t calls = engine.calls.size();
    workspace.seedDemoSessions();
    EXPECT_TRUE(workspace.threads().empty()); // only in the tour
    workspace.setDemoMode(true);
    workspace.seedDemoSessions();
    const QStringList tabs{"demo-thread-question", "demo-thread-build", "demo-thread-notes"};
    EXPECT_EQ(workspace.openThreadIDs(), tabs);
    EXPECT_EQ(workspace.selectedThreadID(), "demo-thread-build");
    EXPECT_EQ(workspace.filteredThreads().size(), 3u);
    std::set<TranscriptKind> kinds;
    for (const TranscriptEntry& entry : session("demo-thread-build").transcript)
        kinds.insert(entry.kind);
    EXPECT_EQ(kinds.size(), 6u);
    EXPECT_GT(session("demo-thread-notes").transcript.size(), 40u);
    EXPECT_TRUE(session("demo-thread-notes").hasLoadedTranscript);

    // Seeding again adds nothing; losing the engine keeps the question and the tabs.
    workspace.seedDemoSessions();
    EXPECT_EQ(workspace.openThreadIDs(), tabs);
    workspace.setEngineReady(false, QStringLiteral("Codex CLI was not found."));
    ASSERT_EQ(session("demo-thread-question").userInputPrompts.size(), 1u);
    workspace.setUserInputDraft("demo-question", "demo-thread-question", "database",
                                UserInputAnswerDraft{1, false, {}});
    workspace.submitUserInput("demo-question", "demo-thread-question");
    EXPECT_TRUE(session("demo-thread-question").userInputPrompts.empty());
    EXPECT_EQ(engine.calls.size(), calls);
}

namespace {

JSONValue notice(const char* method, const char* params)
{
    return sendAction(JSONValue::object({{"method", method}, {"params", json(params)}}));
}

// An engine with three listed sessions and history of each kind, that starts turns on cue words.
JSONValue conversationScenario()
{
    return JSONValue::object({
        {"history", json(R"({"thr_45":{"items":45},"thr_turns":{"items":5,"itemsUnsupported":true},
                             "thr_empty":{"itemsUnsupported":true,"notMaterialized":true}})")},
        {"methods",
         JSONValue::object({
             {"thread/list",
              JSONValue::object({{"result", json(R"({"data":[{"id":"thr_45"},{"id":"thr_turns"},
                {"id":"thr_idle","model":"gpt-5-codex","reasoningEffort":"high"},{"id":"thr_empty"}]})")}})},
             {"thread/start",
              JSONValue::object(
                  {{"result", json(R"({"thread":{"id":"thr_new","model":"gpt-5-codex"}})")}})},
             {"turn/start", JSONValue::object({{"result", json(R"({"turn":{"id":"turn-1"}})")}})},
         })},
        {"cues",
         JSONValue::array({
             cue("Fix the build",
                 {notice("turn/started", R"({"threadId":"thr_new","turn":{"id":"turn-1"}})"),
                  notice("item/completed",
                         R"({"threadId":"thr_new","item":{"type":"userMessage","id":"u-1",
                                      "content":[{"type":"text","text":"Fix the build"}]}})")}),
             cue("Run the tests",
                 {notice("turn/started", R"({"threadId":"thr_idle","turn":{"id":"turn-7"}})")}),
             cue("Stop soon",
                 {notice("turn/started", R"({"threadId":"thr_45","turn":{"id":"turn-9"}})")}),
         })},
    });
}

} // namespace

TEST(ConversationThroughTheEngine, SessionsAreCreatedPagedAndDrivenFromTheDesktop)
{
    BridgeUnderTest bridge(conversationScenario());
    CodexWorkspace& workspace = bridge.workspace();
    auto sent = [&](const char* method) {
        std::vector<JSONValue> params;
        for (const JSONValue& message : bridge.engine.received())
            if (message["method"] == JSONValue(method))
                params.push_back(message["params"].value_or(JSONValue()));
        return params;
    };
    auto transcript = [&](const char* id) { return workspace.sessionState(id).transcript; };
    auto earlier = [&](const char* id) {
        std::optional<int> added;
        workspace.loadEarlierTranscript(id, [&](int count) { added = count; });
        EXPECT_TRUE(waitFor([&] { return added.has_value(); }));
        return added.value_or(-1);
    };

    // The newest listed session opens with its newest 20 items; the rest come page by page.
    ASSERT_TRUE(waitFor([&] { return transcript("thr_45").size() == 20; }));
    EXPECT_EQ(transcript("thr_45").front().id, "item-26");
    EXPECT_EQ(earlier("thr_45"), 20);
    EXPECT_EQ(earlier("thr_45"), 5);
    EXPECT_EQ(transcript("thr_45").front().id, "item-1");
    EXPECT_EQ(transcript("thr_45").size(), 45u);
    EXPECT_FALSE(workspace.sessionState("thr_45").canLoadEarlierTranscript);

    // Without item paging: one fallback, then turns all the way.
    workspace.openThread("thr_turns");
    ASSERT_TRUE(waitFor([&] { return transcript("thr_turns").size() == 1; }));
    EXPECT_EQ(earlier("thr_turns"), 2);
    EXPECT_EQ(earlier("thr_turns"), 2);
    EXPECT_EQ(transcript("thr_turns").front().id, "item-1");
    EXPECT_EQ(sent("thread/items/list").size(), 4u); // thr_45 three times, thr_turns once
    EXPECT_EQ(sent("thread/turns/list").back()["cursor"], JSONValue("1"));

    // A session without a user message yet.
    workspace.openThread("thr_empty");
    ASSERT_TRUE(waitFor([&] { return workspace.sessionState("thr_empty").hasLoadedTranscript; }));
    EXPECT_TRUE(transcript("thr_empty").empty());
    EXPECT_FALSE(workspace.sessionState("thr_empty").transcriptLoadError);

    // A new session with a first task: listed first, in a tab, its turn started without a resume.
    workspace.createSession("/work", "Fix the build");
    ASSERT_TRUE(waitFor([&] {
        return !transcript("thr_new").empty() && transcript("thr_new").back().id == "u-1";
    }));
    EXPECT_EQ(transcript("thr_new").size(), 1u); // the local echo was replaced
    EXPECT_EQ(workspace.selectedThreadID(), QStringLiteral("thr_new"));
    EXPECT_EQ(workspace.sessionState("thr_new").turnControl.turnID, QStringLiteral("turn-1"));
    EXPECT_TRUE(sent("thread/resume").empty());
    EXPECT_EQ(sent("turn/start").back()["model"], JSONValue("gpt-5-codex"));

    // An idle session is resumed, then started with its model and effort; a second message steers.
    workspace.openThread("thr_idle");
    workspace.send("Run the tests", "thr_idle");
    ASSERT_TRUE(waitFor([&] {
        return workspace.sessionState("thr_idle").turnControl.phase ==
               TurnControlState::Phase::Running;
    }));
    EXPECT_EQ(sent("thread/resume").back()["threadId"], JSONValue("thr_idle"));
    EXPECT_EQ(sent("turn/start").back()["effort"], JSONValue("high"));
    workspace.send("Only the unit tests", "thr_idle");
    ASSERT_TRUE(waitFor([&] { return sent("turn/steer").size() == 1; }));
    EXPECT_EQ(sent("turn/steer")[0]["expectedTurnId"], JSONValue("turn-7"));

    // Stop pressed while the session is being resumed: one interrupt, for the turn that started.
    workspace.send("Stop soon", "thr_45");
    workspace.stopTurn("thr_45");
    ASSERT_TRUE(waitFor([&] { return sent("turn/interrupt").size() == 1; }));
    EXPECT_EQ(sent("turn/interrupt")[0], json(R"({"threadId":"thr_45","turnId":"turn-9"})"));
    settle(100);
    EXPECT_EQ(sent("turn/interrupt").size(), 1u);
}
