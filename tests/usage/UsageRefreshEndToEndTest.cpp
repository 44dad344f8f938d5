#include "bridge/BridgeController.h"
#include "support/BridgeUnderTest.h"
#include "support/EventLoop.h"
#include "support/PairedPeer.h"

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

JSONValue reading(const char* plan)
{
    return JSONValue::object(
        {{"rateLimits",
          JSONValue::object(
              {{"limitId", "codex"},
               {"planType", plan},
               {"primary", json(R"({"usedPercent":10,"windowDurationMins":300})")}})}});
}

JSONValue cue(const char* word, JSONValue action)
{
    return JSONValue::object({{"when", word}, {"actions", JSONValue::array({std::move(action)})}});
}

// The allowance: two readings, a third that Codex answers only after saying the account changed,
// a fourth, then the error the real engine gives without sign-in.
JSONValue usageScenario()
{
    return JSONValue::object({
        {"methods",
         JSONValue::object(
             {{"account/rateLimits/read",
               JSONValue::array({
                   JSONValue::object({{"result", reading("first")}}),
                   JSONValue::object({{"result", reading("burst")}}),
                   JSONValue::object(
                       {{"before", JSONValue::array({json(
                                       R"({"send":{"method":"account/updated","params":{}}})")})},
                        {"result", reading("stale")}}),
                   JSONValue::object({{"result", reading("fresh")}}),
                   json(
                       R"({"error":{"code":-32600,"message":"codex account authentication required to read rate limits"}})"),
               })}})},
        {"cues",
         JSONValue::array({
             cue("burst",
                 {json(R"({"flood":{"count":10,"message":{"method":"account/rateLimits/updated",
                                                                     "params":{"rateLimits":{"limitId":"codex"}}}}})")}),
             cue("work", {json(R"({"streamTurn":{"threadId":"thr_1","turnId":"turn-1"}})")}),
         })},
    });
}

class UsageRefreshEndToEndTest : public ::testing::Test {
protected:
    UsageRefreshEndToEndTest()
        : bridge(usageScenario())
        , controller(&bridge.controller())
    {
        EXPECT_TRUE(waitFor([&] { return workspace().accountUsage().has_value(); }));
    }

    CodexWorkspace& workspace() { return bridge.workspace(); }
    long reads() const { return bridge.received("account/rateLimits/read"); }
    void say(const char* word) { bridge.say(word); }
    void advance(double seconds)
    {
        bridge.scheduler.advance(seconds);
        settle(50);
    }

    BridgeUnderTest bridge;
    BridgeController* controller;
};

} // namespace

TEST_F(UsageRefreshEndToEndTest, ReadingsFollowTheEngineAndBelongToIt)
{
    EXPECT_EQ(workspace().accountUsage()->primaryBucket()->plan, QStringLiteral("First"));

    // Ten notifications in a burst give one reading, two seconds later. The wait starts with the
    // first, so the clock moves only once the client has handed on all ten.
    const auto updates = std::make_shared<int>(0); // the client outlives this test's body
    AppServerClient& engine = controller->appServer();
    engine.onNotification = [updates, handle = engine.onNotification](const QString& method,
                                                                      const JSONValue& params) {
        *updates += method == QLatin1String("account/rateLimits/updated");
        handle(method, params);
    };
    say("burst");
    ASSERT_TRUE(waitFor([&] { return *updates == 10; }));
    advance(1.5);
    EXPECT_EQ(reads(), 1);
    advance(0.5);
    ASSERT_TRUE(waitFor([&] {
        return workspace().accountUsage()->primaryBucket()->plan == QStringLiteral("Burst");
    }));
    EXPECT_EQ(reads(), 2);

    // The account changes during a reading: its reply is dropped, token usage goes, and the next
    // reading starts at once.
    say("work");
    ASSERT_TRUE(waitFor([&] { return workspace().sessionState("thr_1").tokenUsage.has_value(); }));
    workspace().refreshUsage();
    ASSERT_TRUE(waitFor([&] { return reads() == 4 && !workspace().isLoadingUsage(); }));
    EXPECT_EQ(workspace().accountUsage()->primaryBucket()->plan, QStringLiteral("Fresh"));
    EXPECT_FALSE(workspace().sessionState("thr_1").tokenUsage);

    // A peer that comes later hears the stored token reading, stamped.
    say("work");
    ASSERT_TRUE(waitFor([&] { return workspace().sessionState("thr_1").tokenUsage.has_value(); }));
    auto peer = pairedPeer(*controller, controller->link().listeningPort(), "Phone");
    const auto replayed =
        peer->waitFor(BridgeMessageKind::Event, QStringLiteral("thread/tokenUsage/updated"));
    ASSERT_TRUE(replayed);
    EXPECT_TRUE((*replayed->body)["sarvaneUpdatedAt"]->isNumber());
    EXPECT_EQ((*replayed->body)["tokenUsage"],
              workspace().sessionState("thr_1").tokenUsage->payload);

    // Without sign-in: the error's own text is not shown, and the tick tries again after a minute.
    workspace().refreshUsage();
    ASSERT_TRUE(waitFor([&] { return workspace().usageError().has_value(); }));
    EXPECT_EQ(workspace().usageError(),
              QStringLiteral(
                  "Couldn't refresh usage. Check this computer's Codex sign-in and update Codex "
                  "and Nimbrel Bridge, then try again."));
    for (int tick = 0; tick < 14; ++tick)
        advance(4); // 56 seconds
    EXPECT_EQ(reads(), 5);
    advance(4);
    ASSERT_TRUE(waitFor([&] { return reads() == 6; }));

    // After a restart of the engine, nothing read before it reaches a new peer.
    controller->restartCodex();
    ASSERT_TRUE(waitFor([&] { return !controller->appServerReady(); }));
    EXPECT_FALSE(workspace().sessionState("thr_1").tokenUsage);
    ASSERT_TRUE(waitFor([&] { return controller->appServerReady(); }));
    auto later = pairedPeer(*controller, controller->link().listeningPort(), "Later");
    settle(150);
    EXPECT_EQ(later->count(BridgeMessageKind::Event, QStringLiteral("thread/tokenUsage/updated")),
              0u);
}
