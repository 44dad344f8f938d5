#include "engine/AppServerClient.h"
#include "engine/ChildEnvironment.h"
#include "engine/TerminalText.h"
#include "support/EventLoop.h"
#include "support/FakeEngine.h"
#include "support/VirtualScheduler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

using namespace nimbrel;
using namespace nimbrel::test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

const QString readyText = QStringLiteral("Codex app-server ready");
const QString startingText = QStringLiteral("Starting Codex app-server…");
const QString interruptedText = QStringLiteral("Codex connection interrupted; reconnecting automatically…");

JSONValue handlers(std::initializer_list<std::pair<std::string_view, JSONValue>> methods)
{
    return JSONValue::object({{"methods", JSONValue::object(methods)}});
}

JSONValue actions(std::initializer_list<JSONValue> list) { return JSONValue::array(list); }

// One client over the fake engine, on virtual time, with everything it reports kept in order.
class AppServerClientTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        client = std::make_unique<AppServerClient>(scheduler);
        client->onStatus = [this](const QString& message, bool ready) {
            statuses.emplace_back(message, ready);
            events.push_back(QStringLiteral("status: ") + message);
        };
        client->onLog = [this](const QString& line) { logs.push_back(line); };
        client->onNotification = [this](const QString& method, const JSONValue& params) {
            notifications.emplace_back(method, params);
        };
        client->onServerRequest = [this](const JSONValue& id, const QString& method, const JSONValue& params) {
            serverRequests.push_back(JSONValue::object({{"id", id}, {"method", method}, {"params", params}}));
        };
    }

    void startAndWaitUntilReady()
    {
        client->start(FakeEngine::executablePath());
        ASSERT_TRUE(waitFor([&] { return isReady(); })) << lastStatus().toStdString();
    }

    bool isReady() const { return !statuses.empty() && statuses.back().second; }
    QString lastStatus() const { return statuses.empty() ? QString() : statuses.back().first; }
    bool hasStatus(const QString& text) const
    {
        return std::any_of(statuses.begin(), statuses.end(), [&](const auto& s) { return s.first == text; });
    }
    bool logged(const QString& text) const { return std::find(logs.begin(), logs.end(), text) != logs.end(); }
    int logsEndingWith(const QString& suffix) const
    {
        return static_cast<int>(std::count_if(logs.begin(), logs.end(), [&](const QString& l) { return l.endsWith(suffix); }));
    }

    // Sends a request and runs the loop until it completes.
    AppServerClient::RequestResult call(const QString& method, const JSONValue& params = JSONValue::object({}))
    {
        std::optional<AppServerClient::RequestResult> outcome;
        client->request(method, params, [&](const AppServerClient::RequestResult& result) { outcome = result; });
        EXPECT_TRUE(waitFor([&] { return outcome.has_value(); })) << method.toStdString();
        return outcome.value_or(AppServerClient::RequestResult(AppServerError::invalidResponse()));
    }

    VirtualScheduler scheduler;
    FakeEngine engine;
    std::unique_ptr<AppServerClient> client;
    std::vector<std::pair<QString, bool>> statuses;
    std::vector<QString> events;
    std::vector<QString> logs;
    std::vector<std::pair<QString, JSONValue>> notifications;
    std::vector<JSONValue> serverRequests;
};

TEST_F(AppServerClientTest, InitialisesInOrderThenServesRequests)
{
    startAndWaitUntilReady();
    ASSERT_EQ(statuses.size(), 2u);
    EXPECT_EQ(statuses[0], std::make_pair(startingText, false));
    EXPECT_EQ(statuses[1], std::make_pair(readyText, true));

    const auto result = call(QStringLiteral("thread/list"), JSONValue::object({{"limit", 100}}));
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(result.value(), JSONValue::object({}));

    ASSERT_TRUE(waitFor([&] { return engine.received().size() == 3; }));
    const auto received = engine.received();
    EXPECT_THAT(engine.receivedMethods(), ElementsAre("initialize", "initialized", "thread/list"));
    EXPECT_EQ(received[0].textForm().toStdString(),
              R"({"id":1,"method":"initialize","params":{"clientInfo":{"name":"sar_vane_bridge","title":"Nimbrel Bridge","version":"0.1.0"},"capabilities":{"experimentalApi":true}}})");
    EXPECT_EQ(received[1], JSONValue::object({{"method", "initialized"}, {"params", JSONValue::object({})}}));
    EXPECT_EQ(received[2].textForm().toStdString(), R"({"id":2,"method":"thread/list","params":{"limit":100}})");
    const JSONValue start = engine.records().front();
    EXPECT_EQ(start["args"]->textForm().toStdString(),
              R"(["app-server","-c","features.default_mode_request_user_input=true"])");
}

TEST_F(AppServerClientTest, RequestBeforeReadyFailsAtOnceAndUsesNoId)
{
    engine.setScenario(handlers({{"initialize", JSONValue::object({{"noReply", true}})}}));
    auto early = call(QStringLiteral("thread/list"));
    ASSERT_FALSE(early.ok());
    EXPECT_EQ(early.error().text(), "Codex app-server is still starting.");

    client->start(FakeEngine::executablePath());
    ASSERT_TRUE(waitFor([&] { return engine.received().size() == 1; }));
    early = call(QStringLiteral("thread/list"));
    EXPECT_EQ(early.error(), AppServerError::notReady());

    // Ready on the second launch: its initialize is the second id ever used, and the next request
    // the third; the refused requests took none.
    engine.setScenario(JSONValue::object({}));
    client->start(FakeEngine::executablePath());
    ASSERT_TRUE(waitFor([&] { return isReady(); }));
    ASSERT_TRUE(call(QStringLiteral("model/list")).ok());
    std::vector<double> ids;
    for (const JSONValue& message : engine.received())
        if (auto id = message["id"])
            ids.push_back(*id->numberValue());
    EXPECT_THAT(ids, ElementsAre(1, 2, 3));
}

TEST_F(AppServerClientTest, RepliesAreMatchedByIdAndEveryErrorShapeHasItsText)
{
    auto reply = [](JSONValue body) { return JSONValue::object({{"reply", std::move(body)}}); };
    engine.setScenario(handlers({
        {"m/message", reply(JSONValue::object({{"error", JSONValue::object({{"code", 1}, {"message", "Boom"}})}}))},
        {"m/numberMessage", reply(JSONValue::object({{"error", JSONValue::object({{"message", 5}})}}))},
        {"m/textError", reply(JSONValue::object({{"error", "plain"}}))},
        {"m/nullError", reply(JSONValue::object({{"error", nullptr}}))},
        {"m/emptyError", reply(JSONValue::object({{"error", JSONValue::object({})}}))},
        {"m/both", reply(JSONValue::object({{"error", JSONValue::object({{"message", "wins"}})}, {"result", 1}}))},
        {"m/neither", reply(JSONValue::object({{"other", 1}}))},
        {"m/nullResult", reply(JSONValue::object({{"result", nullptr}}))},
        // The tenth request is answered as 10.7, which still means 10.
        {"m/fraction", reply(JSONValue::object({{"id", 10.7}, {"result", "matched"}}))},
    }));
    startAndWaitUntilReady();
    auto errorOf = [&](const char* method) {
        const auto result = call(QString::fromLatin1(method));
        return result.ok() ? QStringLiteral("<ok>") : result.error().text();
    };
    EXPECT_EQ(errorOf("m/message"), "Boom");
    EXPECT_EQ(errorOf("m/numberMessage"), R"({"message":5})");
    EXPECT_EQ(errorOf("m/textError"), "plain");
    EXPECT_EQ(errorOf("m/nullError"), "null");
    EXPECT_EQ(errorOf("m/emptyError"), "{}");
    EXPECT_EQ(errorOf("m/both"), "wins");
    EXPECT_EQ(errorOf("m/neither"), "Codex returned an invalid response.");
    const auto nullResult = call(QStringLiteral("m/nullResult"));
    ASSERT_TRUE(nullResult.ok());
    EXPECT_TRUE(nullResult.value().isNull());
    const auto fraction = call(QStringLiteral("m/fraction"));
    ASSERT_TRUE(fraction.ok());
    EXPECT_EQ(fraction.value(), JSONValue("matched"));
}

TEST_F(AppServerClientTest, DeliversNotificationsAndServerRequestsAndIgnoresTheRest)
{
    const JSONValue question = JSONValue::object(
        {{"id", "q-1"}, {"method", "item/tool/requestUserInput"}, {"params", JSONValue::object({{"x", 1}})}});
    engine.setScenario(JSONValue::object({{"notifications", JSONValue::object({{"initialized", actions({
        JSONValue::object({{"raw", "{}\n[]\n5\n{\"id\":\"text\"}\n{\"id\":99,\"result\":1}\n\r\n"}}),
        JSONValue::object({{"raw", "{\"method\":\"turn/sta"}}),
        JSONValue::object({{"raw", "rted\",\"params\":{\"turn\":{\"id\":\"t1\"}}}\n"}}),
        JSONValue::object({{"send", question}}),
        JSONValue::object({{"send", JSONValue::object({{"id", 7}, {"method", "item/other"}})}}),
        JSONValue::object({{"send", JSONValue::object({{"method", "thread/started"}})}}),
    })}})}}));
    startAndWaitUntilReady();
    ASSERT_TRUE(waitFor([&] { return notifications.size() == 2 && serverRequests.size() == 2; }));

    EXPECT_EQ(notifications[0].first, "turn/started");
    EXPECT_EQ(notifications[0].second.textForm(), R"({"turn":{"id":"t1"}})");
    EXPECT_EQ(notifications[1].first, "thread/started");
    EXPECT_EQ(notifications[1].second, JSONValue::object({}));
    EXPECT_EQ(serverRequests[0], question);
    EXPECT_EQ(serverRequests[1].textForm(), R"({"id":7,"method":"item/other","params":{}})");
    // Only the carriage-return line is worth a log line.
    std::vector<QString> decodeFailures;
    for (const QString& line : logs)
        if (line.startsWith("Could not decode"))
            decodeFailures.push_back(line);
    ASSERT_EQ(decodeFailures.size(), 1u);
    EXPECT_THAT(decodeFailures[0].toStdString(), HasSubstr("Could not decode a Codex response (1 bytes): "));

    // Answers go back with the id exactly as it came.
    client->respond(JSONValue("q-1"), JSONValue::object({{"answers", JSONValue::object({})}}));
    client->respondError(JSONValue(7), QStringLiteral("Unsupported request"));
    ASSERT_TRUE(waitFor([&] { return engine.received().size() == 4; }));
    const auto received = engine.received();
    EXPECT_EQ(received[2].textForm().toStdString(), R"({"id":"q-1","result":{"answers":{}}})");
    EXPECT_EQ(received[3].textForm().toStdString(), R"({"id":7,"error":{"code":-32601,"message":"Unsupported request"}})");
}

TEST_F(AppServerClientTest, StandardErrorReachesTheLogTrimmed)
{
    engine.setScenario(JSONValue::object({{"onStart", actions({
        JSONValue::object({{"stderr", "  warming up\n\n"}}),
        JSONValue::object({{"sleepMs", 50}}),
        JSONValue::object({{"stderrHex", "fffe206e6f742074657874"}}), // "\xFF\xFE not text"
    })}}));
    startAndWaitUntilReady();
    ASSERT_TRUE(waitFor([&] { return logged("warming up"); }));
    settle(100);
    EXPECT_EQ(std::count_if(logs.begin(), logs.end(), [](const QString& l) { return l.contains("not text"); }), 0);
}

TEST(TerminalText, ColourAndCursorSequencesAreRemovedAndOtherControlsStay)
{
    struct Case {
        const char* text;
        const char* kept;
    };
    const Case cases[] = {
        {"\x1b[2m2026-05-01T10:00:00Z\x1b[0m \x1b[32m INFO\x1b[0m codex_core: ready",
         "2026-05-01T10:00:00Z  INFO codex_core: ready"},
        {"\x1b[38;5;208morange\x1b[39m", "orange"},
        {"\x1b]8;;https://example.com\x07link\x1b]8;;\x1b\\ end", "link end"},
        {"\x1b(Bplain\x1b=", "plain"},
        {"\xc2\x9b"
         "1mcsi\xc2\x9b"
         "0m",
         "csi"},
        {"cut \x1b[", "cut "},
        {"tab\tstays\x07", "tab\tstays\x07"},
        {"no sequences", "no sequences"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(withoutTerminalSequences(QString::fromUtf8(c.text)), QString::fromUtf8(c.kept))
            << c.text;
}

TEST_F(AppServerClientTest, TheEnginesColouredLogReachesTheLogAsWords)
{
    engine.setScenario(JSONValue::object(
        {{"onStart",
          actions({
              JSONValue::object(
                  {{"stderr", "\x1b[2m2026-05-01T10:00:00Z\x1b[0m \x1b[33m WARN\x1b[0m slow\n"}}),
          })}}));
    startAndWaitUntilReady();
    ASSERT_TRUE(waitFor([&] { return logged("2026-05-01T10:00:00Z  WARN slow"); }));
    EXPECT_EQ(std::count_if(logs.begin(), logs.end(),
                            [](const QString& l) { return l.contains(QChar(0x1B)); }),
              0);
}

TEST_F(AppServerClientTest, RequestsTimeOutAfterThirtySecondsOfVirtualTime)
{
    engine.setScenario(handlers({{"thread/read", JSONValue::object({{"noReply", true}})}}));
    startAndWaitUntilReady();
    std::optional<AppServerClient::RequestResult> outcome;
    client->request(QStringLiteral("thread/read"), JSONValue::object({}), [&](const auto& r) { outcome = r; });
    ASSERT_TRUE(waitFor([&] { return engine.received().size() == 3; }));
    scheduler.advance(29.9);
    settle(50);
    EXPECT_FALSE(outcome.has_value());
    scheduler.advance(0.1);
    ASSERT_TRUE(waitFor([&] { return outcome.has_value(); }));
    EXPECT_EQ(outcome->error().text(), "Codex did not respond to thread/read within 30 seconds.");
    EXPECT_TRUE(isReady());
}

TEST_F(AppServerClientTest, ChildExitFailsRequestsInFlightBeforeTheRecoveryStatus)
{
    engine.setScenario(JSONValue::object({{"launches", JSONValue::array({
        handlers({{"turn/start", JSONValue::object({{"noReply", true}, {"after", actions({JSONValue::object({{"exit", 3}})})}})}}),
        JSONValue::object({}),
    })}}));
    startAndWaitUntilReady();
    events.clear();
    client->request(QStringLiteral("turn/start"), JSONValue::object({}), [&](const AppServerClient::RequestResult& r) {
        events.push_back(QStringLiteral("completion: ") + r.error().text());
    });
    ASSERT_TRUE(waitFor([&] { return events.size() >= 2; }));
    EXPECT_EQ(events[0], "completion: Codex app-server exited with code 3.");
    EXPECT_EQ(events[1], QStringLiteral("status: ") + interruptedText);
    ASSERT_TRUE(waitFor([&] { return logged("Codex app-server exited with code 3. Retry 1 of 2."); }));

    scheduler.advance(0.5);
    ASSERT_TRUE(waitFor([&] { return isReady(); }));
    EXPECT_EQ(engine.launches(), 2);
    // A child that reached ready again has two fresh retries.
    EXPECT_TRUE(call(QStringLiteral("thread/list")).ok());
}

TEST_F(AppServerClientTest, TwoRetriesThenGivesUpWithTheReasonAsStatus)
{
    engine.setScenario(JSONValue::object({{"onStart", actions({JSONValue::object({{"exit", 1}})})}}));
    client->start(FakeEngine::executablePath());
    ASSERT_TRUE(waitFor([&] { return logsEndingWith("Retry 1 of 2.") == 1; }));
    EXPECT_TRUE(logged("Codex app-server exited with code 1. Retry 1 of 2."));
    scheduler.advance(0.49);
    settle(50);
    EXPECT_EQ(engine.launches(), 1);
    scheduler.advance(0.01);
    ASSERT_TRUE(waitFor([&] { return logsEndingWith("Retry 2 of 2.") == 1; }));
    // The second retry waits one second.
    scheduler.advance(0.99);
    settle(50);
    EXPECT_EQ(engine.launches(), 2);
    scheduler.advance(0.01);
    ASSERT_TRUE(waitFor([&] { return lastStatus() == "Codex app-server exited with code 1."; }));
    EXPECT_EQ(engine.launches(), 3);
    scheduler.advance(10);
    settle(100);
    EXPECT_EQ(engine.launches(), 3);
    EXPECT_EQ(logsEndingWith("of 2."), 2);
    EXPECT_EQ(call(QStringLiteral("thread/list")).error(), AppServerError::notReady());
}

TEST_F(AppServerClientTest, TheEnginesOwnErrorTextReachesTheLogAsItIs)
{
    engine.setScenario(handlers({{"initialize", JSONValue::object({{"error", JSONValue::object({{"code", 1}, {"message", "disk 50%1 full %2"}})}})}}));
    client->start(FakeEngine::executablePath());
    ASSERT_TRUE(waitFor([&] { return logsEndingWith("Retry 1 of 2.") == 1; }));
    EXPECT_TRUE(logged("Initialization failed: disk 50%1 full %2 Retry 1 of 2."));
}

TEST_F(AppServerClientTest, AFailedInitializeAndTheChildsExitUseUpBothAttempts)
{
    // Every launch: initialize fails, then the child says something and exits a moment later.
    const JSONValue late = JSONValue::object({{"method", "item/agentMessage/delta"}, {"params", JSONValue::object({})}});
    engine.setScenario(handlers({{"initialize", JSONValue::object({
        {"error", JSONValue::object({{"code", 1}, {"message", "no"}})},
        {"after", actions({JSONValue::object({{"sleepMs", 100}}), JSONValue::object({{"send", late}}),
                           JSONValue::object({{"exit", 1}})})}})}}));
    client->start(FakeEngine::executablePath());
    ASSERT_TRUE(waitFor([&] { return logsEndingWith("Retry 2 of 2.") == 1; }));
    EXPECT_TRUE(logged("Initialization failed: no Retry 1 of 2."));
    EXPECT_TRUE(logged("Codex app-server exited with code 1. Retry 2 of 2."));
    EXPECT_EQ(engine.launches(), 1);

    // The last launch fails too: the client gives up with that child still running and read. The
    // first child's output was all read before its exit was reported.
    const std::size_t heard = notifications.size();
    scheduler.advance(1.0);
    ASSERT_TRUE(waitFor([&] { return lastStatus() == "Initialization failed: no"; }));
    EXPECT_EQ(engine.launches(), 2);
    EXPECT_FALSE(isReady());
    ASSERT_TRUE(waitFor([&] { return notifications.size() == heard + 1; }));
}

TEST_F(AppServerClientTest, EveryCompletionRunsOnceThroughLateRepliesAndRestarts)
{
    // thread/read (the client's second request, after initialize) is answered only when thread/list
    // comes, ahead of thread/list's own answer: after its limit, whatever the machine's load.
    const JSONValue lateReply = JSONValue::object({{"id", 2}, {"result", JSONValue::object({})}});
    engine.setScenario(handlers({{"thread/read", JSONValue::object({{"noReply", true}})},
                                 {"thread/list", JSONValue::object({{"result", JSONValue::object({})},
                                                                    {"before", actions({JSONValue::object({{"send", lateReply}})})}})},
                                 {"turn/start", JSONValue::object({{"noReply", true}})}}));
    startAndWaitUntilReady();
    int completions = 0;
    std::optional<AppServerClient::RequestResult> late;
    client->request(QStringLiteral("thread/read"), JSONValue::object({}), [&](const auto& r) { late = r; ++completions; });
    ASSERT_TRUE(waitFor([&] { return engine.receivedMethods().size() == 3; }));
    ASSERT_EQ(engine.received()[2]["id"], JSONValue(2));
    scheduler.advance(AppServerClient::requestTimeoutSeconds);
    ASSERT_TRUE(waitFor([&] { return late.has_value(); }));
    EXPECT_TRUE(call(QStringLiteral("thread/list")).ok()); // the late reply came first, and ran nothing
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(late->error(), AppServerError::requestTimedOut("thread/read"));

    std::optional<AppServerClient::RequestResult> inFlight;
    client->request(QStringLiteral("turn/start"), JSONValue::object({}), [&](const auto& r) { inFlight = r; });
    ASSERT_TRUE(waitFor([&] { return engine.receivedMethods().size() == 5; }));
    client->start(FakeEngine::executablePath());
    ASSERT_TRUE(waitFor([&] { return inFlight.has_value(); }));
    EXPECT_EQ(inFlight->error().text(), "Codex app-server is still starting.");
}

TEST(ChildEnvironment, SearchPathStartsAtTheExecutableAndEndsWithTheSystemFolders)
{
    QProcessEnvironment environment;
    environment.insert("PATH", "/home/u/bin::/usr/bin:/home/u/bin:/opt/codex/bin");
    environment.insert("HOME", "/home/u");
    EXPECT_EQ(childSearchPath("/opt/codex/bin/codex", environment),
              "/opt/codex/bin:/home/u/bin:/usr/bin:/opt/homebrew/bin:/usr/local/bin:/bin:/usr/sbin:/sbin");
    environment.remove("PATH");
    EXPECT_EQ(childSearchPath("/opt/codex/bin/codex", environment),
              "/opt/codex/bin:/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin");
    EXPECT_EQ(childEnvironment("/x/codex", environment).value("HOME"), "/home/u");
}

TEST_F(AppServerClientTest, StartDuringAWaitCancelsTheArmedRetry)
{
    engine.setScenario(JSONValue::object({{"onStart", actions({JSONValue::object({{"exit", 1}})})}}));
    client->start(FakeEngine::executablePath());
    ASSERT_TRUE(waitFor([&] { return logged("Codex app-server exited with code 1. Retry 1 of 2."); }));
    EXPECT_EQ(call(QStringLiteral("thread/list")).error(), AppServerError::notReady());

    engine.setScenario(JSONValue::object({}));
    client->start(FakeEngine::executablePath());
    ASSERT_TRUE(waitFor([&] { return isReady(); }));
    scheduler.advance(5);
    settle(100);
    EXPECT_EQ(engine.launches(), 2);
    EXPECT_TRUE(isReady());
}

TEST_F(AppServerClientTest, SilentInitializeTimesOutIntoARetry)
{
    engine.setScenario(JSONValue::object({{"launches", JSONValue::array({
        handlers({{"initialize", JSONValue::object({{"noReply", true}})}}),
        JSONValue::object({}),
    })}}));
    client->start(FakeEngine::executablePath());
    ASSERT_TRUE(waitFor([&] { return engine.received().size() == 1; }));
    scheduler.advance(30);
    ASSERT_TRUE(waitFor([&] {
        return logged("Initialization failed: Codex did not respond to initialize within 30 seconds. Retry 1 of 2.");
    }));
    EXPECT_EQ(lastStatus(), interruptedText);
    scheduler.advance(0.5);
    ASSERT_TRUE(waitFor([&] { return isReady(); }));
    EXPECT_EQ(engine.launches(), 2);
}

TEST_F(AppServerClientTest, ChildDyingDuringInitialiseReportsTheExitOnce)
{
    engine.setScenario(handlers({{"initialize", JSONValue::object({{"noReply", true}, {"before", actions({JSONValue::object({{"exit", 1}})})}})}}));
    client->start(FakeEngine::executablePath());
    ASSERT_TRUE(waitFor([&] { return logsEndingWith("Retry 1 of 2.") == 1; }));
    settle(100);
    EXPECT_TRUE(logged("Codex app-server exited with code 1. Retry 1 of 2."));
    EXPECT_EQ(std::count_if(logs.begin(), logs.end(), [](const QString& l) { return l.startsWith("Initialization failed"); }), 0);
}

TEST_F(AppServerClientTest, MissingOrUnlaunchableExecutable)
{
    client->start(std::nullopt);
    ASSERT_TRUE(waitFor([&] { return !statuses.empty(); }));
    EXPECT_EQ(statuses.back(), std::make_pair(AppServerError::codexNotFound().text(), false));
    EXPECT_EQ(statuses.back().first, "Codex CLI was not found. Install Codex or choose its executable in Settings.");

    statuses.clear();
    client->start(QStringLiteral("/nonexistent/codex"));
    ASSERT_TRUE(waitFor([&] { return logsEndingWith("Retry 1 of 2.") == 1; }));
    scheduler.advance(0.5);
    ASSERT_TRUE(waitFor([&] { return logsEndingWith("Retry 2 of 2.") == 1; }));
    scheduler.advance(1.0);
    ASSERT_TRUE(waitFor([&] { return statuses.size() == 3; }));
    EXPECT_FALSE(statuses.back().second);
    EXPECT_NE(statuses.back().first, interruptedText);
    EXPECT_FALSE(statuses.back().first.isEmpty());
}

TEST_F(AppServerClientTest, AnAnswerToAChildThatClosedItsInputFailsForItsCaller)
{
    engine.setScenario(JSONValue::object({
        {"notifications", JSONValue::object({{"initialized", actions({JSONValue::object({{"closeStdin", true}})})}})},
        {"onEof", actions({JSONValue::object({{"sleepMs", 60000}})})},
    }));
    startAndWaitUntilReady();
    ASSERT_TRUE(waitFor([&] {
        const auto records = engine.records();
        return std::any_of(records.begin(), records.end(), [](const JSONValue& r) { return r["event"] == JSONValue("eof"); });
    }));
    std::vector<std::optional<AppServerError>> outcomes;
    client->respond(JSONValue("q1"), JSONValue::object({}), [&](const auto& outcome) { outcomes.push_back(outcome); });
    ASSERT_TRUE(waitFor([&] { return outcomes.size() == 1; }));
    ASSERT_TRUE(outcomes[0].has_value());
    EXPECT_THAT(outcomes[0]->text().toStdString(), ::testing::StartsWith("Write failed: "));
    EXPECT_TRUE(logged(outcomes[0]->text()));
    // Every later write fails and says so; the client stays, and a request fails at once rather
    // than by its limit.
    client->respond(JSONValue("q2"), JSONValue::object({}), [&](const auto& outcome) { outcomes.push_back(outcome); });
    ASSERT_TRUE(waitFor([&] { return outcomes.size() == 2; }));
    EXPECT_TRUE(outcomes[1].has_value());
    EXPECT_GE(std::count_if(logs.begin(), logs.end(), [](const QString& l) { return l.startsWith("Write failed: "); }), 2);
    std::optional<AppServerClient::RequestResult> outcome;
    client->request(QStringLiteral("thread/list"), JSONValue::object({}), [&](const auto& r) { outcome = r; });
    ASSERT_TRUE(waitFor([&] { return outcome.has_value(); }));
    EXPECT_THAT(outcome->error().text().toStdString(), ::testing::StartsWith("Write failed: "));
}

TEST_F(AppServerClientTest, ARequestLargerThanCodexReadsFailsAtOnceSayingWhatToDo)
{
    startAndWaitUntilReady();
    const JSONValue params = JSONValue::object({{"text", QString(20 * 1024 * 1024, QLatin1Char('x'))}});
    std::optional<AppServerClient::RequestResult> outcome;
    client->request(QStringLiteral("turn/start"), params, [&](const auto& r) { outcome = r; });
    ASSERT_TRUE(waitFor([&] { return outcome.has_value(); }));
    EXPECT_EQ(outcome->error().text(), "This message is too large to send (20.0 MB; Codex takes at most 16 MB). "
                                       "Remove an image or shorten the text, then send it again.");
    // Nothing of it reached the engine, which goes on serving.
    EXPECT_TRUE(call(QStringLiteral("model/list")).ok());
    for (const JSONValue& record : engine.records())
        EXPECT_NE(record["received"].value_or(JSONValue())["method"], JSONValue("turn/start"));
}

TEST_F(AppServerClientTest, AChildThatNeverReadsIsGivenAtMostSixteenMebibytes)
{
    engine.setScenario(JSONValue::object(
        {{"notifications", JSONValue::object({{"initialized", actions({JSONValue::object({{"sleepMs", 60000}})})}})}}));
    startAndWaitUntilReady();
    // Two mebibytes a request: the pipe takes a little, the rest waits, until the bound refuses.
    const JSONValue params = JSONValue::object({{"text", QString(2 * 1024 * 1024, QLatin1Char('x'))}});
    std::vector<AppServerClient::RequestResult> outcomes;
    for (int i = 0; i < 12; ++i)
        client->request(QStringLiteral("turn/start"), params, [&](const auto& r) { outcomes.push_back(r); });
    std::optional<AppServerError> answered;
    client->respond(JSONValue(7), params, [&](const auto& outcome) { answered = outcome; });
    ASSERT_TRUE(waitFor([&] { return answered.has_value(); }));
    EXPECT_EQ(answered->text(), "Write failed: Codex is not reading its input.");
    EXPECT_GE(logsEndingWith("Write failed: Codex is not reading its input."), 5); // refused requests and the answer
    // The refused requests failed at once; those the pipe holds end by their limit.
    ASSERT_GE(outcomes.size(), 4u);
    for (const auto& outcome : outcomes)
        EXPECT_EQ(outcome.error().text(), "Write failed: Codex is not reading its input.");
    const std::size_t refused = outcomes.size();
    scheduler.advance(AppServerClient::requestTimeoutSeconds);
    ASSERT_TRUE(waitFor([&] { return outcomes.size() == 12; }));
    for (std::size_t i = refused; i < outcomes.size(); ++i)
        EXPECT_EQ(outcomes[i].error(), AppServerError::requestTimedOut("turn/start"));
}

} // namespace
