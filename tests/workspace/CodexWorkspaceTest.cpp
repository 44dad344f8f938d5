#include "workspace/CodexWorkspace.h"
#include "bridge/BridgeController.h"
#include "support/EventLoop.h"
#include "support/FakeEngine.h"
#include "support/RequesterDouble.h"
#include "support/TemporaryHome.h"
#include "support/VirtualScheduler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;
using ::testing::ElementsAre;

namespace {

const QString tabsKey = QStringLiteral("SarvaneBridgeOpenSessionTabs");

JSONValue threadJSON(const char* id, const char* extra = "")
{
    return JSONValue::decode(
               QStringLiteral(
                   R"({"id":"%1","name":"Thread %1","preview":"preview of %1","cwd":"/work/%1"%2})")
                   .arg(QLatin1String(id), QLatin1String(extra))
                   .toStdString())
        .value();
}

JSONValue listResult(std::vector<JSONValue> threads)
{
    return JSONValue::object(
        {{"data", JSONValue::array(std::move(threads))}, {"nextCursor", nullptr}});
}

class CodexWorkspaceTest : public ::testing::Test {
protected:
    CodexWorkspaceTest()
        : defaults(home.filePath("defaults.ini"))
    {
    }

    std::unique_ptr<CodexWorkspace> makeWorkspace()
    {
        auto made = std::make_unique<CodexWorkspace>(defaults, scheduler, tabsKey, 4.0, 20.0);
        made->requester = engine.requester();
        return made;
    }
    void storeTabs(const QStringList& tabs, const QString& selected)
    {
        defaults.setValue(tabsKey, tabs);
        defaults.setValue(tabsKey + ".selected", selected);
    }
    void setRunning(CodexWorkspace& workspace, const QString& id)
    {
        workspace.changeSession(id, [](CodexSessionState& state) {
            state.turnControl = {TurnControlState::Phase::Running, QStringLiteral("turn-1")};
        });
    }

    TemporaryHome home;
    SettingsUserDefaults defaults;
    VirtualScheduler scheduler;
    RequesterDouble engine;
};

TEST_F(CodexWorkspaceTest, FirstLaunchOpensTheNewestThread)
{
    auto workspace = makeWorkspace();
    EXPECT_TRUE(workspace->openThreadIDs().isEmpty());
    EXPECT_FALSE(workspace->selectedThreadID());
    EXPECT_TRUE(engine.calls.empty());

    workspace->setEngineReady(true, QStringLiteral("Codex app-server ready"));
    // The engine's rise: the catalogue, the list, the allowance, in that order.
    ASSERT_EQ(engine.calls.size(), 3u);
    EXPECT_EQ(engine.calls[0].method, "model/list");
    EXPECT_EQ(engine.calls[0].params.textForm(), R"({"limit":100,"includeHidden":false})");
    EXPECT_EQ(engine.calls[2].method, "account/rateLimits/read");
    EXPECT_EQ(
        engine.calls[1].params.textForm(),
        R"({"limit":100,"sortKey":"recency_at","sortDirection":"desc","sourceKinds":["cli","appServer","vscode"]})");
    EXPECT_TRUE(workspace->isRefreshingThreads());
    EXPECT_TRUE(workspace->hasAutomaticRefresh());

    engine.answerList(listResult({threadJSON("new", R"(,"model":"gpt-5","reasoningEffort":"high")"),
                                  threadJSON("old"), JSONValue(3)}));
    EXPECT_FALSE(workspace->isRefreshingThreads());
    ASSERT_EQ(workspace->threads().size(), 2u);
    EXPECT_THAT(workspace->openThreadIDs(), ElementsAre("new"));
    EXPECT_EQ(workspace->selectedThreadID(), QStringLiteral("new"));
    EXPECT_EQ(workspace->sessionState("new").model, QStringLiteral("gpt-5"));
    EXPECT_EQ(workspace->sessionState("new").reasoningEffort, QStringLiteral("high"));
    EXPECT_EQ(defaults.stringList(tabsKey), QStringList{"new"});
    EXPECT_EQ(defaults.string(tabsKey + ".selected"), QStringLiteral("new"));
    EXPECT_EQ(workspace->openThreads().front().title, "Thread new");
}

TEST_F(CodexWorkspaceTest, StoredTabsAreRestoredAndReconciled)
{
    storeTabs({"a", "gone", "b"}, "z");
    auto workspace = makeWorkspace();
    EXPECT_THAT(workspace->openThreadIDs(), ElementsAre("a", "gone", "b"));
    EXPECT_EQ(workspace->selectedThreadID(), QStringLiteral("a")); // the stored selection is no tab

    workspace->setEngineReady(true, {});
    // A list that arrives after the engine fell is still applied.
    workspace->setEngineReady(false, QStringLiteral("Codex app-server exited with code 1."));
    engine.answerList(listResult({threadJSON("b"), threadJSON("a"), threadJSON("c")}));
    EXPECT_THAT(workspace->openThreadIDs(), ElementsAre("a", "b"));
    EXPECT_EQ(defaults.stringList(tabsKey), (QStringList{"a", "b"}));

    // A second workspace over the same defaults finds the same tabs and selection.
    workspace->selectThread("b");
    workspace->selectThread("not-a-tab");
    auto restarted = makeWorkspace();
    EXPECT_THAT(restarted->openThreadIDs(), ElementsAre("a", "b"));
    EXPECT_EQ(restarted->selectedThreadID(), QStringLiteral("b"));
}

TEST_F(CodexWorkspaceTest, ClosingTabsMovesTheSelection)
{
    auto workspace = makeWorkspace();
    workspace->setEngineReady(true, {});
    engine.answerList(listResult({threadJSON("a"), threadJSON("b"), threadJSON("c")}));
    workspace->openThread("b");
    workspace->openThread("c");
    workspace->selectThread("b");
    ASSERT_THAT(workspace->openThreadIDs(), ElementsAre("a", "b", "c"));

    workspace->setDraft("half a thought", "b");
    workspace->closeTab("b"); // the middle one, selected: its right neighbour follows
    EXPECT_THAT(workspace->openThreadIDs(), ElementsAre("a", "c"));
    EXPECT_EQ(workspace->selectedThreadID(), QStringLiteral("c"));
    // The session outlives its tab, but not what the tab held.
    EXPECT_TRUE(workspace->sessions().count("b"));
    EXPECT_EQ(workspace->sessionState("b").draft, "");

    workspace->openThread("b");
    workspace->closeTab("b"); // the last one, selected: the new last
    EXPECT_EQ(workspace->selectedThreadID(), QStringLiteral("c"));

    setRunning(*workspace, "c");
    workspace->closeTab("c");
    EXPECT_EQ(workspace->errorMessage(),
              QStringLiteral("Stop this Codex session before closing its tab."));
    EXPECT_THAT(workspace->openThreadIDs(), ElementsAre("a", "c"));

    workspace->closeTab("a");
    workspace->changeSession(
        "c", [](CodexSessionState& state) { state.turnControl = TurnControlState{}; });
    workspace->closeTab("c"); // the only one
    EXPECT_TRUE(workspace->openThreadIDs().isEmpty());
    EXPECT_FALSE(workspace->selectedThreadID());
    EXPECT_FALSE(defaults.string(tabsKey + ".selected"));

    // The next list opens the newest again.
    workspace->refreshThreads();
    engine.answerList(listResult({threadJSON("c"), threadJSON("a")}));
    EXPECT_THAT(workspace->openThreadIDs(), ElementsAre("c"));
}

TEST_F(CodexWorkspaceTest, SearchSettingsAndFailures)
{
    auto workspace = makeWorkspace();
    workspace->setEngineReady(true, {});
    engine.answerList(
        listResult({threadJSON("x", R"(,"cwd":"/home/ada/project")"),
                    threadJSON("y", R"(,"preview":"project plans")"),
                    threadJSON("z", R"(,"model":"listed","reasoningEffort":"low")")}));
    workspace->setSearchText("PROJECT");
    const auto found = workspace->filteredThreads();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].id, "x");
    workspace->setSearchText("");
    EXPECT_EQ(workspace->filteredThreads().size(), 3u);

    // A listed model fills only what a session has not chosen.
    workspace->changeSession("z", [](CodexSessionState& state) { state.model = "chosen"; });
    for (int i = 0; i < 3; ++i) {
        workspace->refreshThreads();
        engine.answerList(listResult(
            {threadJSON("x"), threadJSON("z", R"(,"model":"listed","reasoningEffort":"low")")}));
    }
    EXPECT_EQ(workspace->sessionState("z").model, QStringLiteral("chosen"));
    EXPECT_EQ(workspace->sessionState("z").reasoningEffort, QStringLiteral("low"));
    EXPECT_FALSE(workspace->sessions().count("y"));

    // A failed list keeps the old one and says why.
    workspace->refreshThreads();
    engine.answerList(AppServerError::requestTimedOut("thread/list"));
    EXPECT_EQ(workspace->errorMessage(),
              QStringLiteral("Codex did not respond to thread/list within 30 seconds."));
    EXPECT_EQ(workspace->threads().size(), 2u);
    EXPECT_FALSE(workspace->isRefreshingThreads());
}

TEST_F(CodexWorkspaceTest, EngineLossStopsTurnsAndSaysSo)
{
    auto workspace = makeWorkspace();
    workspace->setEngineReady(true, {});
    engine.answerList(listResult({threadJSON("a"), threadJSON("b")}));
    setRunning(*workspace, "a");
    setRunning(*workspace, "b");
    workspace->changeSession("b", [](CodexSessionState& state) {
        state.userInputPrompts.push_back(UserInputPrompt{});
        state.activityText = "Running tests";
    });

    workspace->setEngineReady(false, QStringLiteral("Codex app-server exited with code 9."));
    EXPECT_FALSE(workspace->engineReady());
    EXPECT_FALSE(workspace->hasAutomaticRefresh());
    for (const char* id : {"a", "b"}) {
        const CodexSessionState state = workspace->sessionState(id);
        EXPECT_EQ(state.turnControl, TurnControlState{});
        EXPECT_FALSE(state.activityText);
        EXPECT_TRUE(state.userInputPrompts.empty());
        // What no tab shows goes once its turn has ended.
        if (id == std::string_view("b")) {
            EXPECT_TRUE(state.transcript.empty());
            continue;
        }
        ASSERT_EQ(state.transcript.size(), 1u);
        const TranscriptEntry& entry = state.transcript[0];
        EXPECT_TRUE(entry.id.startsWith("engine-"));
        EXPECT_EQ(entry.id.size(), 7 + 36);
        EXPECT_EQ(entry.kind, TranscriptKind::System);
        EXPECT_EQ(entry.title, "Codex engine disconnected");
        EXPECT_EQ(entry.text, "Codex app-server exited with code 9.");
        EXPECT_EQ(entry.status, QStringLiteral("interrupted"));
    }
    // With no status text, a running session just goes idle.
    workspace->setEngineReady(true, {});
    setRunning(*workspace, "a");
    workspace->setEngineReady(false, QString());
    EXPECT_EQ(workspace->sessionState("a").turnControl, TurnControlState{});
    EXPECT_EQ(workspace->sessionState("a").transcript.size(), 1u);
    EXPECT_EQ(workspace->threads().size(), 2u); // the list stays
}

TEST_F(CodexWorkspaceTest, RefreshesEveryFourSecondsWhileReadyAndNeverTwice)
{
    auto workspace = makeWorkspace();
    workspace->setEngineReady(true, {});
    EXPECT_EQ(engine.count("thread/list"), 1);
    scheduler.advance(4);
    settle(20);
    EXPECT_EQ(engine.count("thread/list"), 1); // the first is still out
    engine.answerList(listResult({threadJSON("a")}));
    for (int tick = 2; tick <= 5; ++tick) {
        scheduler.advance(3.9);
        settle(10);
        EXPECT_EQ(engine.count("thread/list"), tick - 1);
        scheduler.advance(0.1);
        ASSERT_TRUE(waitFor([&] { return engine.count("thread/list") == tick; }));
        engine.answerList(listResult({threadJSON("a")}));
    }
    // A second rise does not start a second timer.
    workspace->setEngineReady(true, {});
    engine.answerList(listResult({threadJSON("a")}));
    const int before = engine.count("thread/list");
    scheduler.advance(4);
    ASSERT_TRUE(waitFor([&] { return engine.count("thread/list") == before + 1; }));
    engine.answerList(listResult({threadJSON("a")}));
    settle(20);
    EXPECT_EQ(engine.count("thread/list"), before + 1);

    workspace->setEngineReady(false, QStringLiteral("gone"));
    scheduler.advance(40);
    settle(50);
    EXPECT_EQ(engine.count("thread/list"), before + 1);
    workspace->refreshThreads(); // not while the engine is down
    EXPECT_EQ(engine.count("thread/list"), before + 1);
}

UserInputRequest questionRequest(const char* threadID, bool blocking = true)
{
    const auto params = JSONValue::decode(
        QStringLiteral(R"({"threadId":"%1","turnId":"turn-1","isBlocking":%2,"questions":[
        {"id":"db","header":"","question":"Which database?","options":[{"label":"Postgres","description":""}]},
        {"id":"token","header":"","question":"Your token?","isSecret":true}]})")
            .arg(QLatin1String(threadID), QLatin1String(blocking ? "true" : "false"))
            .toStdString());
    return *parseUserInputRequest(QStringLiteral("Q-") + QLatin1String(threadID), params.value());
}

TEST_F(CodexWorkspaceTest, AQuestionOpensItsSessionOnceAndLeavesWithItsActivityLine)
{
    auto workspace = makeWorkspace();
    workspace->setEngineReady(true, {});
    engine.answerList(listResult({threadJSON("a")}));
    ASSERT_EQ(workspace->selectedThreadID(), QStringLiteral("a"));

    // A question of a session the list does not show: a tab, a placeholder and a fresh list.
    workspace->addUserInputPrompt(questionRequest("new"));
    workspace->addUserInputPrompt(questionRequest("new"));
    EXPECT_EQ(workspace->sessionState("new").userInputPrompts.size(), 1u);
    EXPECT_EQ(workspace->sessionState("new").activityText,
              QStringLiteral("Waiting for your answer…"));
    EXPECT_THAT(workspace->openThreadIDs(), ElementsAre("a", "new"));
    EXPECT_EQ(workspace->selectedThreadID(), QStringLiteral("a"));
    const auto placeholder = workspace->threadForID("new");
    ASSERT_TRUE(placeholder);
    EXPECT_EQ(placeholder->title, "Question from Codex");
    EXPECT_EQ(placeholder->preview, "Which database?");
    EXPECT_EQ(placeholder->status, "active");
    EXPECT_EQ(engine.count("thread/list"), 2);

    // Leaving: "Codex is thinking…" while a turn runs, nothing once idle.
    setRunning(*workspace, "new");
    workspace->handleNotification("sarvane/userInputResolved",
                                  JSONValue::object({{"threadId", "new"}, {"requestId", "Q-new"}}));
    EXPECT_TRUE(workspace->sessionState("new").userInputPrompts.empty());
    EXPECT_EQ(workspace->sessionState("new").activityText, QStringLiteral("Codex is thinking…"));
    workspace->addUserInputPrompt(questionRequest("a"));
    workspace->removeUserInputPrompt("Q-a", "a");
    EXPECT_FALSE(workspace->sessionState("a").activityText);
    // A question that does not block leaves the activity line alone.
    workspace->addUserInputPrompt(questionRequest("b", false));
    EXPECT_FALSE(workspace->sessionState("b").activityText);
}

TEST_F(CodexWorkspaceTest, AnAnswerIsSentOnceRecordedWithoutSecretsAndKeptWhenItFails)
{
    auto workspace = makeWorkspace();
    std::vector<std::pair<JSONValue, CodexWorkspace::AnswerCompletion>> sent;
    workspace->userInputResponder = [&](const QString& id, const JSONValue& response,
                                        CodexWorkspace::AnswerCompletion done) {
        EXPECT_EQ(id, "Q-a");
        sent.emplace_back(response, std::move(done));
    };
    workspace->setEngineReady(true, {});
    workspace->addUserInputPrompt(questionRequest("a"));
    auto prompt = [&] { return *workspace->userInputPrompt("Q-a", "a"); };
    std::vector<std::optional<QString>> outcomes;
    auto submit = [&] {
        workspace->submitUserInput(
            "Q-a", "a", [&](const std::optional<QString>& error) { outcomes.push_back(error); });
    };

    workspace->setUserInputDraft("Q-a", "a", "db", {0, false, {}});
    submit(); // the secret question has no answer yet
    EXPECT_TRUE(sent.empty());
    workspace->setUserInputDraft("Q-a", "a", "token", {std::nullopt, false, "hunter2"});
    submit();
    submit();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].first,
              JSONValue::decode(
                  R"({"answers":{"db":{"answers":["Postgres"]},"token":{"answers":["hunter2"]}}})")
                  .value());
    EXPECT_TRUE(prompt().isSubmitting);
    workspace->setUserInputDraft("Q-a", "a", "token",
                                 {std::nullopt, false, "changed"}); // ignored while sending
    EXPECT_EQ(prompt().drafts.at("token").text, "hunter2");

    sent[0].second(AppServerError::server("Write failed: Broken pipe"));
    EXPECT_FALSE(prompt().isSubmitting);
    EXPECT_EQ(prompt().errorMessage, QStringLiteral("Write failed: Broken pipe"));
    EXPECT_EQ(prompt().drafts.at("token").text, "hunter2");
    workspace->setUserInputDraft("Q-a", "a", "db", {0, false, {}}); // editing clears the error
    EXPECT_FALSE(prompt().errorMessage);

    submit();
    ASSERT_EQ(sent.size(), 2u);
    sent[1].second(std::nullopt);
    EXPECT_FALSE(workspace->userInputPrompt("Q-a", "a"));
    const CodexSessionState session = workspace->sessionState("a");
    ASSERT_EQ(session.transcript.size(), 1u);
    EXPECT_EQ(session.transcript[0].text,
              "Which database?\nPostgres\n\nYour token?\n[Private response sent]");
    EXPECT_THAT(outcomes, ElementsAre(QStringLiteral("Write failed: Broken pipe"), std::nullopt));

    // With no way to the engine the failure is the workspace's own; with the engine down, nothing
    // happens.
    workspace->userInputResponder = nullptr;
    workspace->addUserInputPrompt(questionRequest("b"));
    workspace->setUserInputDraft("Q-b", "b", "db", {0, false, {}});
    workspace->setUserInputDraft("Q-b", "b", "token", {std::nullopt, false, "x"});
    workspace->submitUserInput("Q-b", "b");
    EXPECT_EQ(workspace->userInputPrompt("Q-b", "b")->errorMessage,
              QStringLiteral("The Codex connection is unavailable."));
    workspace->setEngineReady(false, {});
    EXPECT_FALSE(workspace->userInputPrompt("Q-b", "b"));
}

TEST(CodexWorkspaceEndToEnd, TheControllerFeedsTheWorkspaceFromTheEngine)
{
    TemporaryHome home;
    FakeEngine engine(JSONValue::object(
        {{"methods",
          JSONValue::object(
              {{"thread/list",
                JSONValue::object(
                    {{"result", listResult({threadJSON("thr_new", R"(,"model":"gpt-5-codex")"),
                                            threadJSON("thr_old")})}})}})}}));
    home.makeLink("bin/codex", FakeEngine::executablePath());
    home.setPath(home.filePath("bin"));
    SettingsUserDefaults defaults(home.filePath("defaults.ini"));
    VirtualScheduler scheduler;
    BridgeController controller(scheduler, defaults, PeerLinkSettings{QHostAddress::LocalHost, 0});
    controller.startOnce();
    ASSERT_TRUE(waitFor([&] { return controller.workspace().threads().size() == 2; }));
    EXPECT_THAT(controller.workspace().openThreadIDs(), ElementsAre("thr_new"));
    EXPECT_EQ(controller.workspace().sessionState("thr_new").model, QStringLiteral("gpt-5-codex"));
    EXPECT_EQ(defaults.stringList("SarvaneBridgeOpenSessionTabs"), QStringList{"thr_new"});

    // Every four seconds of virtual time another list is asked for.
    auto lists = [&] {
        const auto methods = engine.receivedMethods();
        return std::count(methods.begin(), methods.end(), "thread/list");
    };
    EXPECT_EQ(lists(), 1);
    scheduler.advance(4);
    ASSERT_TRUE(waitFor([&] { return lists() == 2; }));
}

} // namespace
