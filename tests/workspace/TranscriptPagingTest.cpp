#include "workspace/TranscriptPaging.h"
#include "support/ScriptedWorkspace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;
using ::testing::ElementsAre;

namespace {

TranscriptEntry entry(const char* id, const char* text = "",
                      std::optional<QString> status = std::nullopt, QStringList progress = {})
{
    return TranscriptEntry{id,           TranscriptKind::Command, "$ make", text, std::move(status),
                           std::nullopt, std::move(progress)};
}

std::vector<QString> ids(const std::vector<TranscriptEntry>& entries)
{
    std::vector<QString> found;
    for (const TranscriptEntry& e : entries)
        found.push_back(e.id);
    return found;
}

} // namespace

TEST(TranscriptPaging, MergingKeepsOlderEntriesInFrontAndWhatTheEngineDoesNotKnowBehind)
{
    // No overlap: the page, then everything held.
    EXPECT_THAT(ids(mergeTranscript(std::vector{entry("a"), entry("b"), entry("c")},
                                    std::vector{entry("local-1")})),
                ElementsAre("a", "b", "c", "local-1"));
    // Overlap in the middle: what precedes the first shared id stays in front.
    EXPECT_THAT(ids(mergeTranscript(std::vector{entry("b"), entry("c")},
                                    std::vector{entry("old"), entry("b"), entry("live")})),
                ElementsAre("old", "b", "c", "live"));

    // A finished copy wins, keeping the live progress lines; an unfinished one loses to the live
    // entry.
    const auto finished =
        mergeTranscript(std::vector{entry("x", "final", "completed")},
                        std::vector{entry("x", "partial", "running", {"step 1"})});
    EXPECT_EQ(finished[0], entry("x", "final", "completed", {"step 1"}));
    const auto live = mergeTranscript(
        std::vector{entry("x", "short", "inProgress"), entry("y", "engine text", "inProgress")},
        std::vector{entry("x", "longer live text", "running"), entry("y", "", "running")});
    EXPECT_EQ(live[0], entry("x", "longer live text", "running"));
    EXPECT_EQ(live[1], entry("y", "engine text", "running"));
}

TEST(TranscriptPaging, OnlyAnEngineWithoutItemPagingFallsBackToTurns)
{
    EXPECT_TRUE(shouldFallBackToTurns("thread/items/list is not supported yet"));
    EXPECT_TRUE(shouldFallBackToTurns("Method not found"));
    EXPECT_TRUE(shouldFallBackToTurns("Invalid request: unknown variant `thread/items/list`"));
    EXPECT_FALSE(shouldFallBackToTurns("Connection lost: not available"));
    EXPECT_FALSE(
        shouldFallBackToTurns("Codex did not respond to thread/items/list within 30 seconds."));
    EXPECT_TRUE(
        isUnmaterializedThreadError("thread 019a is not materialized yet; thread/turns/list is "
                                    "unavailable before first user message"));
    EXPECT_FALSE(isUnmaterializedThreadError("thread 019a not found"));
}

TEST(TranscriptPaging, TurnPagesArriveNewestFirstAndComeOutOldestFirst)
{
    const JSONValue page = JSONValue::decode(R"({"data":[
        {"id":"t2","items":[{"type":"agentMessage","id":"a2","text":"two"}]},
        {"id":"t1","items":[{"type":"agentMessage","id":"a1","text":"one"}]}]})")
                               .value();
    EXPECT_THAT(ids(entriesFromPage(page, TranscriptPageSource::Turns)), ElementsAre("a1", "a2"));
    EXPECT_TRUE(
        entriesFromPage(JSONValue::decode(R"({"data":{}})").value(), TranscriptPageSource::Turns)
            .empty());
}

// ---- what a session keeps in memory

namespace {

class TranscriptBoundTest : public ScriptedWorkspace {
protected:
    TranscriptBoundTest()
    {
        workspace.rememberThread({"shown", "Shown", "", "", "cli", "idle", 0, {}, {}});
        workspace.openThread("shown");
        engine.last("thread/items/list")
            .completion(JSONValue::decode(R"({"data":[],"nextCursor":null})").value());
    }

    void event(const char* method, const QString& threadID,
               std::vector<std::pair<std::string, JSONValue>> more = {})
    {
        more.insert(more.begin(), {"threadId", threadID});
        workspace.handleNotification(method, JSONValue::object(std::move(more)));
    }
    void turnStarted(const QString& threadID, const char* turnID)
    {
        event("turn/started", threadID, {{"turn", JSONValue::object({{"id", turnID}})}});
    }
    void turnCompleted(const QString& threadID, const char* turnID)
    {
        event("turn/completed", threadID,
              {{"turn", JSONValue::object({{"id", turnID}, {"status", "completed"}})}});
    }
    void itemCompleted(const QString& threadID, const QString& itemID, const QString& text)
    {
        event("item/completed", threadID,
              {{"item",
                JSONValue::object({{"type", "agentMessage"}, {"id", itemID}, {"text", text}})}});
    }
    const CodexSessionState& held(const char* threadID) { return *workspace.session(threadID); }
    static std::size_t bytes(const CodexSessionState& session)
    {
        std::size_t total = 0;
        for (const TranscriptEntry& e : session.transcript)
            total += transcriptEntryBytes(e);
        return total;
    }
};

} // namespace

TEST(TranscriptPaging, TheOldestEntriesBeyondTheBoundGoButNeverTheNewestOrWhatIsShown)
{
    const TranscriptBound bound{3, 10000};
    std::vector<TranscriptEntry> five{entry("1"), entry("2"), entry("3"), entry("4"), entry("5")};
    EXPECT_EQ(entriesBeyondBound(five, bound, 0), 2u);
    EXPECT_EQ(entriesBeyondBound(five, bound, 4), 1u);
    EXPECT_EQ(entriesBeyondBound(std::span(five).first(3), bound, 0), 0u);
    five.back().text = QString(20000, 'x');
    EXPECT_EQ(entriesBeyondBound(five, bound, 0), 4u);
}

TEST_F(TranscriptBoundTest, ASessionFedTenThousandLiveEntriesHoldsNoMoreThanItsBound)
{
    struct Case {
        const char* name;
        TranscriptBound bound;
        int textLength;
    };
    const Case cases[] = {
        {"bound by entries", {200, 1 << 20}, 10},
        {"bound by bytes", {10000, 64 * 1024}, 400},
        {"an entry larger than the bound stays alone", {100, 4096}, 3000},
    };
    int caseNumber = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        workspace.setTranscriptBound(c.bound);
        const QString prefix = QStringLiteral("c%1-").arg(++caseNumber);
        turnStarted("shown", "turn-1");
        for (int number = 1; number <= 10000; ++number) {
            itemCompleted("shown", prefix + QString::number(number), QString(c.textLength, 'x'));
            const CodexSessionState& session = held("shown");
            ASSERT_LE(session.transcript.size(), c.bound.entries) << number;
            if (number % 97 == 0) {
                ASSERT_TRUE(bytes(session) <= c.bound.bytes || session.transcript.size() == 1)
                    << number;
            }
        }
        // What stays is the newest, in order, and the rest is offered from the engine.
        const CodexSessionState& session = held("shown");
        const auto count = static_cast<int>(session.transcript.size());
        for (int index = 0; index < count; ++index)
            ASSERT_EQ(session.transcript[static_cast<std::size_t>(index)].id,
                      prefix + QString::number(10000 - count + 1 + index));
        EXPECT_TRUE(session.canLoadEarlierTranscript);
        turnCompleted("shown", "turn-1");
        EXPECT_EQ(held("shown").transcript.size(), static_cast<std::size_t>(count));
    }
}

// Away from every tab a session keeps what a catch-up needs: its running turn, bounded; Stop and
// Steer reach the running turn; once the turn ends the rest goes. (A question opens a tab.)
TEST_F(TranscriptBoundTest, ASessionNoTabShowsLetsGoOnceItsTurnEnds)
{
    workspace.setTranscriptBound({50, 1 << 20});
    turnStarted("away", "turn-7");
    event("turn/diff/updated", "away", {{"turnId", "turn-7"}, {"diff", "+x\n"}});
    for (int number = 1; number <= 1000; ++number)
        itemCompleted("away", QStringLiteral("item-%1").arg(number), "text");
    EXPECT_EQ(held("away").transcript.size(), 50u);
    EXPECT_EQ(held("away").transcript.back().id, "item-1000");

    workspace.send("Also the docs", "away");
    EXPECT_EQ(engine.last("turn/steer").params["expectedTurnId"]->stringView(), "turn-7");
    workspace.stopTurn("away");
    EXPECT_EQ(engine.last("turn/interrupt").params["turnId"]->stringView(), "turn-7");

    event("thread/tokenUsage/updated", "away",
          {{"tokenUsage", JSONValue::object({{"total", JSONValue::object({})}})}});
    turnCompleted("away", "turn-7");
    const CodexSessionState& after = held("away");
    EXPECT_TRUE(after.transcript.empty());
    EXPECT_TRUE(after.turnDiffs.empty());
    EXPECT_FALSE(after.hasLoadedTranscript);
    EXPECT_EQ(after.turnControl.phase, TurnControlState::Phase::Idle);

    // Opened later, its history is read from the engine.
    const int pages = engine.count("thread/items/list");
    workspace.rememberThread({"away", "Away", "", "", "cli", "idle", 0, {}, {}});
    workspace.openThread("away");
    EXPECT_EQ(engine.count("thread/items/list"), pages + 1);
}

// A closed tab lets go of its history, its draft and its images; a shown one keeps them.
TEST_F(TranscriptBoundTest, ClosingATabLetsGoOfWhatItHeld)
{
    itemCompleted("shown", "item-1", "text");
    workspace.setDraft("half a thought", "shown");
    workspace.addDraftImage({"img-1", "a.png", "data:image/png;base64,AAAA", 1, 1}, "shown");
    EXPECT_EQ(held("shown").transcript.size(), 1u);
    workspace.closeTab("shown");
    EXPECT_TRUE(held("shown").transcript.empty());
    EXPECT_TRUE(held("shown").draft.isEmpty());
    EXPECT_TRUE(held("shown").draftImages.empty());
}
