#include "workspace/TranscriptPaging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace nimbrel;
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
