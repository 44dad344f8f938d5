#include "support/ScriptedWorkspace.h"

#include <QCoreApplication>
#include <QFile>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

JSONValue json(const char* text)
{
    return JSONValue::decode(text).value();
}

JSONValue dataFile(const char* name)
{
    QFile file(QStringLiteral(TEST_DATA_DIR "/") + name);
    file.open(QIODevice::ReadOnly);
    return JSONValue::decode(file.readAll().toStdString()).value();
}

const QString usageFailed =
    "Couldn't refresh usage. Check this computer's Codex sign-in and update "
    "Codex and Nimbrel Bridge, then try again.";

class ModelsAndUsageTest : public ScriptedWorkspace {
protected:
    int reads() const { return engine.count("account/rateLimits/read"); }
    void answerRead(const AppServerClient::RequestResult& outcome)
    {
        engine.last("account/rateLimits/read").completion(outcome);
    }
};

} // namespace

TEST_F(ModelsAndUsageTest, TheCatalogueAnswersForKnownAndUnknownModels)
{
    EXPECT_EQ(workspace.modelDisplayName(""), "Codex Default");
    EXPECT_EQ(workspace.effectiveModelID("s"), "");
    workspace.loadModels(); // one is out already, since the engine rose
    EXPECT_EQ(engine.count("model/list"), 1);
    engine.last("model/list").completion(dataFile("model-list-page.json"));
    ASSERT_FALSE(workspace.availableModels().empty());
    EXPECT_EQ(workspace.defaultModel()->id, "gpt-5-codex");
    EXPECT_EQ(workspace.effectiveModelID("s"), "gpt-5-codex");
    EXPECT_EQ(workspace.effortDescription("low", "gpt-5-codex"), QStringLiteral("Fast answers"));
    EXPECT_EQ(workspace.modelDisplayName("someone-else"), "someone-else");
    EXPECT_TRUE(workspace.supportedEfforts("someone-else").empty());

    // A failed reload keeps the catalogue, which also outlives the engine; an empty one says so.
    workspace.loadModels();
    engine.last("model/list").completion(AppServerError::server("boom"));
    EXPECT_EQ(workspace.modelLoadError(), QStringLiteral("Models could not be loaded: boom"));
    workspace.setEngineReady(false, {});
    EXPECT_FALSE(workspace.availableModels().empty());
    workspace.setEngineReady(true, {});
    engine.last("model/list")
        .completion(
            json(R"({"data":[{"id":"first","model":"first"},{"id":"second","model":"second"}]})"));
    EXPECT_EQ(workspace.defaultModel()->id, "first");
    workspace.loadModels();
    engine.last("model/list").completion(json(R"({"data":"none"})"));
    EXPECT_TRUE(workspace.availableModels().empty());
    EXPECT_EQ(
        workspace.modelLoadError(),
        QStringLiteral("Codex did not return any models. Update the Codex CLI on this computer, "
                       "then reload the catalog."));
}

TEST_F(ModelsAndUsageTest, AChosenModelAndEffortGoOutWithTheSessionsNextTurnOnly)
{
    engine.last("model/list").completion(dataFile("model-list-page.json"));
    workspace.changeSession("s", [](CodexSessionState& s) { s.reasoningEffort = "low"; });
    workspace.setModel("gpt-5-codex", "s"); // offers low: kept
    EXPECT_EQ(workspace.session("s")->reasoningEffort, QStringLiteral("low"));
    workspace.setReasoningEffort("xhigh", "s");
    workspace.setModel("unknown-model", "s"); // an unknown model keeps a present effort
    EXPECT_EQ(workspace.session("s")->reasoningEffort, QStringLiteral("xhigh"));
    workspace.setModel("gpt-5-codex", "s"); // does not offer xhigh: its default
    EXPECT_EQ(workspace.session("s")->reasoningEffort, QStringLiteral("medium"));
    workspace.setModel("", "s"); // Codex Default keeps the effort
    EXPECT_FALSE(workspace.session("s")->model);
    workspace.setModel("gpt-5-codex", "s");
    workspace.changeSession("busy", [](CodexSessionState& s) {
        s.turnControl.phase = TurnControlState::Phase::Starting;
    });
    workspace.setModel("gpt-5-codex", "busy");
    workspace.setReasoningEffort("high", "busy");
    EXPECT_FALSE(workspace.session("busy")->model);
    EXPECT_FALSE(workspace.session("busy")->reasoningEffort);

    workspace.startTurn("go", "s");
    workspace.startTurn("go", "other");
    EXPECT_EQ(engine.calls[engine.calls.size() - 2].params["model"], JSONValue("gpt-5-codex"));
    EXPECT_EQ(engine.calls[engine.calls.size() - 2].params["effort"], JSONValue("medium"));
    EXPECT_FALSE(engine.calls.back().params.contains("model"));
    EXPECT_FALSE(engine.calls.back().params.contains("effort"));
}

TEST_F(ModelsAndUsageTest, ReadingsAreRationedAndStaleRepliesChangeNothing)
{
    ASSERT_EQ(reads(), 1); // the engine's rise
    answerRead(dataFile("rate-limits.json"));
    ASSERT_TRUE(workspace.accountUsage());

    // A burst gives one reading, two seconds after its first notification.
    for (int i = 0; i < 10; ++i) {
        notify("account/rateLimits/updated", "{}");
        advance(0.1);
    }
    EXPECT_EQ(reads(), 1);
    advance(1.0);
    EXPECT_EQ(reads(), 2);
    // A refresh during a reading waits for it, then comes two seconds later.
    workspace.refreshUsage();
    EXPECT_EQ(reads(), 2);
    answerRead(AppServerError::server("codex account authentication required to read rate limits"));
    EXPECT_EQ(workspace.usageError(), usageFailed);
    EXPECT_TRUE(workspace.accountUsage()); // the last good reading stays
    advance(2);
    EXPECT_EQ(reads(), 3);

    // A time-out drops a waiting refresh; its late reply changes nothing.
    workspace.refreshUsage();
    advance(20);
    EXPECT_EQ(
        workspace.usageError(),
        QStringLiteral(
            "Usage refresh timed out. Check that Codex runs on this computer and try again."));
    EXPECT_FALSE(workspace.isLoadingUsage());
    answerRead(json("{}"));
    EXPECT_EQ(
        workspace.usageError(),
        QStringLiteral(
            "Usage refresh timed out. Check that Codex runs on this computer and try again."));
    advance(3);
    EXPECT_EQ(reads(), 3);

    // account/updated during a reading: its reply is dropped, token usage goes, a reading starts at
    // once.
    notify("thread/tokenUsage/updated",
           R"({"threadId":"t","tokenUsage":{"total":{"totalTokens":5},"last":{}}})");
    ASSERT_TRUE(workspace.session("t")->tokenUsage);
    workspace.refreshUsage();
    RequesterDouble::Call& dropped = engine.last("account/rateLimits/read");
    notify("account/updated", "{}");
    EXPECT_EQ(reads(), 5);
    EXPECT_FALSE(workspace.session("t")->tokenUsage);
    EXPECT_FALSE(workspace.accountUsage());
    dropped.completion(dataFile("rate-limits.json"));
    EXPECT_FALSE(workspace.accountUsage());
    EXPECT_TRUE(workspace.isLoadingUsage());

    // Without a way to the engine the attempt fails before the call returns.
    answerRead(json(R"({"rateLimits":null})"));
    EXPECT_EQ(workspace.usageError(),
              QStringLiteral("Codex didn't return an account allowance. Update Codex on this "
                             "computer and try again."));
    workspace.requester = nullptr;
    workspace.refreshUsage();
    EXPECT_EQ(workspace.usageError(), usageFailed);
    EXPECT_FALSE(workspace.isLoadingUsage());
}

TEST_F(ModelsAndUsageTest, TheTickReadsOnceAMinuteEvenAfterFailures)
{
    answerRead(AppServerError::server("codex account authentication required to read rate limits"));
    advance(56);
    EXPECT_EQ(reads(), 1);
    advance(4);
    EXPECT_EQ(reads(), 2);
    answerRead(AppServerError::server("still not signed in"));
    advance(56);
    EXPECT_EQ(reads(), 2);
    advance(4);
    EXPECT_EQ(reads(), 3);
}

TEST_F(ModelsAndUsageTest, TokenUsageTakesTheStampWhenItIsANumber)
{
    notify(
        "thread/tokenUsage/updated",
        R"({"threadId":"new","tokenUsage":{"total":{"totalTokens":5},"last":{}},"sarvaneUpdatedAt":0})");
    ASSERT_TRUE(workspace.session("new")->tokenUsage);
    EXPECT_EQ(workspace.session("new")->tokenUsage->updatedAt, 0);
    notify(
        "thread/tokenUsage/updated",
        R"({"threadId":"new","tokenUsage":{"total":{"totalTokens":6},"last":{}},"sarvaneUpdatedAt":"0"})");
    EXPECT_GT(workspace.session("new")->tokenUsage->updatedAt, 1.7e9);
    notify("thread/tokenUsage/updated", R"({"threadId":"new","tokenUsage":"broken"})");
    EXPECT_TRUE(workspace.session("new")->tokenUsage);
    workspace.setEngineReady(false, {});
    notify("thread/tokenUsage/updated",
           R"({"threadId":"new","tokenUsage":{"total":{"totalTokens":7},"last":{}}})");
    EXPECT_FALSE(workspace.session("new")->tokenUsage);
}
