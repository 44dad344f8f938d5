#include "support/ScriptedWorkspace.h"

#include <QCoreApplication>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;
using ::testing::ElementsAre;

namespace {

// Session "t" is open in a tab, its history empty, so that it keeps what its events bring.
class LiveEventsTest : public ScriptedWorkspace {
protected:
    LiveEventsTest()
    {
        workspace.rememberThread({"t", "T", "", "", "cli", "idle", 0, {}, {}});
        workspace.openThread("t");
        engine.last("thread/items/list")
            .completion(JSONValue::decode(R"({"data":[],"nextCursor":null})").value());
    }
    const CodexSessionState& session() { return *workspace.session("t"); }
    const TranscriptEntry& entry(const char* id)
    {
        for (const TranscriptEntry& e : session().transcript)
            if (e.id == id)
                return e;
        static const TranscriptEntry none;
        return none;
    }
    QString activity() { return session().activityText.value_or(QString()); }
};

} // namespace

TEST_F(LiveEventsTest, EventsMakeSessionsNotTabsAndOnlyThreadEventsRefreshTheList)
{
    const int lists = engine.count("thread/list");
    notify("thread/tokenUsage/updated", R"({"threadId":"u","tokenUsage":{}})");
    notify("serverRequest/resolved", R"({"threadId":"u","requestId":0})");
    EXPECT_TRUE(workspace.session("u"));
    EXPECT_EQ(workspace.openThreadIDs(), QStringList{"t"});
    EXPECT_EQ(engine.count("thread/list"), lists);
    notify("thread/status/changed", R"({"threadId":"u","status":{"type":"idle"}})");
    notify("thread/archived", R"({})");
    EXPECT_EQ(engine.count("thread/list"), lists + 1); // one list at a time
}

TEST_F(LiveEventsTest, DeltasReachTheTranscriptAtMostEveryHundredAndFiftyMilliseconds)
{
    int stores = 0;
    QObject::connect(&workspace, &CodexWorkspace::sessionChanged, [&] { ++stores; });
    notify("item/started", R"({"threadId":"t","item":{"type":"agentMessage","id":"a","text":""}})");
    EXPECT_EQ(entry("a").status, QStringLiteral("running"));
    EXPECT_EQ(activity(), "Writing the response…");
    const int before = stores;
    for (int i = 0; i < 100; ++i)
        notify("item/agentMessage/delta", R"({"threadId":"t","itemId":"a","delta":"x"})");
    notify("item/agentMessage/delta",
           R"({"threadId":"t","itemId":"b","delta":"early"})"); // before its start
    EXPECT_EQ(entry("a").text, "");
    EXPECT_EQ(entry("b").kind, TranscriptKind::Assistant); // a placeholder holds its place
    advance(0.149);
    EXPECT_EQ(entry("a").text, "");
    advance(0.001);
    EXPECT_EQ(entry("a").text, QString(100, 'x'));
    EXPECT_EQ(entry("b").text, "early");
    EXPECT_EQ(stores - before, 2); // the placeholder and one flush

    // A completed item with text replaces what the deltas built; one without keeps it.
    notify("item/agentMessage/delta", R"({"threadId":"t","itemId":"a","delta":"buffered"})");
    notify("item/completed",
           R"({"threadId":"t","item":{"type":"agentMessage","id":"a","text":"final"}})");
    notify("item/agentMessage/delta", R"({"threadId":"t","itemId":"b","delta":" more"})");
    notify("item/completed",
           R"({"threadId":"t","item":{"type":"agentMessage","id":"b","text":""}})");
    EXPECT_EQ(entry("a").text, "final");
    EXPECT_EQ(entry("b").text, "early more");
    EXPECT_FALSE(entry("a").status);
    notify("item/completed",
           R"({"threadId":"t","item":{"type":"commandExecution","id":"c","command":"ls"}})");
    EXPECT_EQ(entry("c").status, QStringLiteral("completed"));

    // The engine's fall flushes what waits; closing a tab drops it, with the entries it held.
    notify("item/commandExecution/outputDelta", R"({"threadId":"t","itemId":"c","delta":"out"})");
    workspace.setEngineReady(false, {});
    EXPECT_EQ(entry("c").text, "out");
    EXPECT_EQ(scheduler.pendingCount(), 0u);
    workspace.setEngineReady(true, {});
    workspace.openThread("t");
    notify("item/commandExecution/outputDelta", R"({"threadId":"t","itemId":"c","delta":"lost"})");
    workspace.closeTab("t");
    advance(1);
    EXPECT_TRUE(session().transcript.empty());
}

TEST_F(LiveEventsTest, TheEnginesUserItemEndsTheLocalEchoOfTheSameText)
{
    workspace.startTurn("Fix it", "t");
    notify(
        "item/completed",
        R"({"threadId":"t","item":{"type":"userMessage","id":"u1","content":[{"type":"text","text":"Fix it"}]}})");
    ASSERT_EQ(session().transcript.size(), 1u);
    EXPECT_EQ(session().transcript[0].id, "u1");
    workspace.startTurn("Fix it", "t");
    notify(
        "item/completed",
        R"({"threadId":"t","item":{"type":"userMessage","id":"u2","content":[{"type":"text","text":"Other"}]}})");
    ASSERT_EQ(session().transcript.size(), 3u);
    EXPECT_TRUE(session().transcript[1].id.startsWith("local-"));
}

TEST_F(LiveEventsTest, TurnsEndWithAnEntryOnlyWhenTheyFail)
{
    notify("turn/started", R"({"threadId":"t","turn":{"id":"T1"}})");
    EXPECT_EQ(session().turnControl.phase, TurnControlState::Phase::Running);
    EXPECT_EQ(activity(), "Codex is thinking…");
    notify("turn/completed", R"({"threadId":"t","turn":{"id":"T1","status":"interrupted"}})");
    notify("turn/completed", R"({"threadId":"t","turn":{"id":"T2","status":"failed"}})");
    notify(
        "turn/completed",
        R"({"threadId":"t","turn":{"id":"T3","status":"failed","error":{"message":"Rate limit reached"}}})");
    ASSERT_EQ(session().transcript.size(), 2u);
    EXPECT_EQ(session().transcript[0].text, "Codex could not complete this turn.");
    EXPECT_EQ(session().transcript[1].text, "Rate limit reached");
    EXPECT_EQ(session().transcript[1].title, "Turn failed");
    EXPECT_EQ(session().transcript[1].status, QStringLiteral("failed"));
    EXPECT_FALSE(session().activityText);
    notify("turn/started", R"({"threadId":"t","turn":{}})");
    EXPECT_EQ(session().transcriptLoadError,
              QStringLiteral("Codex started a turn without returning its identifier."));
}

TEST_F(LiveEventsTest, ReasoningToolsAndPlansKeepTheirOwnEntriesAndActivityLines)
{
    for (const auto& [index, delta] :
         std::vector<std::pair<int, const char*>>{{0, "Reading"}, {0, " files"}, {1, "Planning"}})
        notify("item/reasoning/summaryTextDelta",
               R"({"threadId":"t","itemId":"r","summaryIndex":)" + std::to_string(index) +
                   R"(,"delta":")" + delta + R"("})");
    advance(0.15);
    EXPECT_EQ(entry("r").text, "Reading files\n\nPlanning");
    EXPECT_EQ(entry("r").title, "Codex thinking");
    EXPECT_EQ(activity(), "Planning");
    notify("item/reasoning/summaryTextDelta",
           R"({"threadId":"t","itemId":"r","summaryIndex":1,"delta":")" + std::string(200, 'w') +
               R"("})");
    EXPECT_EQ(activity(), QString(140, 'w') + QChar(0x2026));
    notify("item/reasoning/summaryTextDelta",
           R"({"threadId":"t","itemId":"r","summaryIndex":1,"delta":" \n "})");
    EXPECT_EQ(activity(), QString(140, 'w') + QChar(0x2026));

    notify("item/mcpToolCall/progress", R"({"threadId":"t","itemId":"m","message":"Searching"})");
    notify("item/mcpToolCall/progress", R"({"threadId":"t","itemId":"m","message":"Searching"})");
    notify("item/mcpToolCall/progress", R"({"threadId":"t","itemId":"m","message":""})");
    EXPECT_THAT(entry("m").progressMessages, ElementsAre("Searching"));
    EXPECT_EQ(entry("m").title, "Tool progress");
    EXPECT_EQ(activity(), "Searching");

    notify(
        "turn/plan/updated",
        R"({"threadId":"t","turnId":"T","explanation":"Why","plan":[{"step":"Read","status":"completed"},
        {"step":"Fix","status":"inProgress"},{"step":"Test"},{"status":"inProgress"}]})");
    EXPECT_EQ(entry("turn-plan-T").text, "Why\n✓ Read\n→ Fix\n• Test");
    EXPECT_EQ(entry("turn-plan-T").status, QStringLiteral("in progress"));
    EXPECT_EQ(activity(), "Plan: Fix");
    notify("turn/plan/updated",
           R"({"threadId":"t","turnId":"T","plan":[{"step":"Read","status":"completed"}]})");
    EXPECT_EQ(entry("turn-plan-T").status, QStringLiteral("updated"));
    EXPECT_EQ(activity(), "Plan updated");
    const std::size_t entries = session().transcript.size();
    notify("turn/plan/updated", R"({"threadId":"t","plan":[]})");
    notify("turn/plan/updated", R"({"threadId":"t","plan":[]})");
    EXPECT_EQ(session().transcript.size(), entries + 2);

    notify("item/started",
           R"({"threadId":"t","item":{"type":"mcpToolCall","id":"m2","tool":"lookup"}})");
    EXPECT_EQ(activity(), "Using lookup…");
    notify("item/started", R"({"threadId":"t","item":{"type":"somethingNew","id":"n"}})");
    EXPECT_EQ(activity(), "Codex is working…");
}

TEST_F(LiveEventsTest, EachTurnKeepsItsNewestDiffWhichStaysAfterItsLastEntryOnceItEnds)
{
    notify("turn/started", R"({"threadId":"t","turn":{"id":"T1"}})");
    notify("item/completed",
           R"({"threadId":"t","turnId":"T1","item":{"type":"agentMessage","id":"a1","text":"x"}})");
    notify("turn/diff/updated", R"({"threadId":"t","turnId":"T1","diff":"first"})");
    notify("turn/diff/updated", R"({"threadId":"t","turnId":"T1","diff":"second"})");
    notify("turn/diff/updated", R"({"threadId":"t","turnId":"T1"})");
    notify("turn/diff/updated", R"({"threadId":"t","diff":"no turn"})");
    ASSERT_EQ(session().turnDiffs, (std::vector<TurnDiff>{{"T1", "second", std::nullopt}}));

    notify("item/completed",
           R"({"threadId":"t","turnId":"T1","item":{"type":"agentMessage","id":"a2","text":"y"}})");
    notify("turn/completed", R"({"threadId":"t","turn":{"id":"T1","status":"completed"}})");
    notify("turn/started", R"({"threadId":"t","turn":{"id":"T2"}})");
    notify("item/completed",
           R"({"threadId":"t","turnId":"T2","item":{"type":"agentMessage","id":"a3","text":"z"}})");
    notify("turn/diff/updated", R"({"threadId":"t","turnId":"T2","diff":"third"})");
    EXPECT_EQ(session().turnDiffs, (std::vector<TurnDiff>{{"T1", "second", QString("a2")},
                                                          {"T2", "third", std::nullopt}}));
}

TEST_F(LiveEventsTest, AUserMessageCarriesItsImagesBack)
{
    notify("item/completed",
           R"({"threadId":"t","turnId":"T1","item":{"type":"userMessage","id":"u1",
        "content":[{"type":"text","text":"look"},{"type":"image","url":"data:image/png;base64,iVBO"},
                   {"type":"localImage","path":"/home/ada/shot.png"},{"type":"image"},{"type":"skill"}]}})");
    EXPECT_EQ(entry("u1").text, "look");
    EXPECT_EQ(entry("u1").images,
              QStringList({"data:image/png;base64,iVBO", "/home/ada/shot.png"}));
}
