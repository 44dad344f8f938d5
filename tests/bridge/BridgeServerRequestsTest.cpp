#include "bridge/BridgeController.h"
#include "support/BridgeUnderTest.h"
#include "support/EventLoop.h"
#include "support/PairedPeer.h"

#include <QRegularExpression>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;
using Kind = BridgeMessageKind;
using ::testing::ElementsAre;

namespace {

JSONValue serverRequest(JSONValue id, const char* method, const char* params)
{
    return sendAction(
        JSONValue::object({{"id", std::move(id)}, {"method", method}, {"params", json(params)}}));
}

JSONValue notification(const char* method, const char* params)
{
    return sendAction(JSONValue::object({{"method", method}, {"params", json(params)}}));
}

const char* commandParams =
    R"({"threadId":"thr_1","turnId":"turn_1","itemId":"call_1","command":"make test","cwd":"/work"})";
const char* questionParams =
    R"({"threadId":"thr_1","turnId":"turn_1","itemId":"call_2","isBlocking":true,
    "questions":[{"id":"name","header":"","question":"Name?","isOther":true,"isSecret":false}]})";
const char* permissionsParams =
    R"({"threadId":"thr_1","turnId":"turn_1","itemId":"call_4","cwd":"/work","reason":"Needs the cache",
    "permissions":{"fileSystem":{"write":["/var/cache/app"]},"network":{"enabled":true}}})";
const char* formParams =
    R"({"threadId":"thr_1","turnId":"turn_1","serverName":"tickets","mode":"form","message":"New ticket",
    "requestedSchema":{"type":"object","required":["title"],"properties":{
      "title":{"type":"string","title":"Title"},
      "priority":{"type":"string","enum":["low","high"],"default":"low"},
      "urgent":{"type":"boolean"}}}})";
const char* urlParams =
    R"({"threadId":"thr_1","turnId":null,"serverName":"calendar","mode":"url","message":"Authorise access",
    "elicitationId":"e-1","url":"https://calendar.example/consent"})";
const char* closedText =
    "This question has already closed, is being answered, or has an incomplete answer.";

// The engine sends its server requests when a turn/start text holds a cue word.
JSONValue serverRequestScenario()
{
    return JSONValue::object({
        {"cues",
         JSONValue::array({
             cue("two-approvals",
                 {serverRequest(0, "item/commandExecution/requestApproval", commandParams),
                  serverRequest(
                      "file-1", "item/fileChange/requestApproval",
                      R"({"threadId":"thr_1","turnId":"turn_1","itemId":"call_3","reason":null})")}),
             cue("ask", {serverRequest(7, "item/tool/requestUserInput", questionParams)}),
             cue("other-request",
                 {serverRequest(9, "item/tool/call", R"({"tool":"x"})"),
                  serverRequest(10, "item/tool/requestUserInput", R"({"threadId":"thr_1"})")}),
             cue("complete",
                 {notification(
                     "turn/completed",
                     R"({"threadId":"thr_1","turn":{"id":"turn_1","status":"completed"}})")}),
             cue("interrupt",
                 {notification("serverRequest/resolved", R"({"threadId":"thr_1","requestId":0})")}),
             cue("more-access",
                 {serverRequest(20, "item/permissions/requestApproval", permissionsParams)}),
             cue("fill-form", {serverRequest(21, "mcpServer/elicitation/request", formParams)}),
             cue("visit-url", {serverRequest(22, "mcpServer/elicitation/request", urlParams)}),
             cue("bad-forms",
                 {serverRequest(23, "mcpServer/elicitation/request",
                                R"({"threadId":"thr_1","serverName":"x","mode":"form","message":"m",
                      "requestedSchema":{"type":"object","properties":{"a":{"type":"date"}}}})"),
                  serverRequest(
                      24, "mcpServer/elicitation/request",
                      R"({"threadId":"thr_1","mode":"url","message":"m","url":"file:///etc/passwd"})"),
                  serverRequest(25, "mcpServer/elicitation/request", R"([1,2])")}),
             cue("resolve-form", {notification("serverRequest/resolved",
                                               R"({"threadId":"thr_1","requestId":21})")}),
             cue("crash", {JSONValue::object({{"exit", 3}})}),
             cue("deaf", {JSONValue::object({{"closeStdin", true}})}),
         })},
        // Deaf, the engine stays until it is stopped, so a write to it fails however late it comes.
        {"onEof", JSONValue::array({JSONValue::object({{"sleepMs", 600000}})})},
    });
}

class BridgeServerRequestsTest : public ::testing::Test {
protected:
    BridgeServerRequestsTest()
        : bridge(serverRequestScenario())
        , engine(bridge.engine)
        , controller(&bridge.controller())
    {
        EXPECT_TRUE(waitFor([&] { return controller->appServerReady(); }));
        port = bridge.port();
        first = pairedPeer(*controller, port, "First", "First Phone");
        second = pairedPeer(*controller, port, "Second", "Second Phone");
    }

    void say(const char* word) { bridge.say(word); }

    // What the engine read that was no request of the bridge's own: answers and refusals.
    std::vector<JSONValue> answers() const
    {
        std::vector<JSONValue> found;
        for (const JSONValue& message : engine.received())
            if (!message.contains("method"))
                found.push_back(message);
        return found;
    }

    static void answer(TestPeer& peer, const QString& id, std::optional<JSONValue> body,
                       std::optional<QString> method = {})
    {
        peer.send({1, Kind::ServerResponse, id, std::move(method), std::move(body)});
    }

    BridgeUnderTest bridge;
    FakeEngine& engine;
    BridgeController* controller;
    quint16 port = 0;
    std::unique_ptr<TestPeer> first, second;
};

TEST_F(BridgeServerRequestsTest, ApprovalsReachEveryPeerAndTheFirstAnswerWins)
{
    say("two-approvals");
    ASSERT_TRUE(waitFor([&] {
        return first->count(Kind::ServerRequest) == 2 && second->count(Kind::ServerRequest) == 2;
    }));
    const BridgeMessage command = *first->waitFor(Kind::ServerRequest);
    const BridgeMessage files =
        *first->waitFor(Kind::ServerRequest, {},
                        1 + std::find(first->received.begin(), first->received.end(), command) -
                            first->received.begin());
    EXPECT_EQ(command.method, QStringLiteral("item/commandExecution/requestApproval"));
    EXPECT_EQ(command.body, json(commandParams));
    EXPECT_TRUE(QRegularExpression("^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$")
                    .match(*command.id)
                    .hasMatch())
        << command.id->toStdString();
    EXPECT_NE(command.id, files.id);
    EXPECT_EQ(second->waitFor(Kind::ServerRequest)->id, command.id);

    // This computer shows the first and queues the second.
    ASSERT_TRUE(controller->approval());
    EXPECT_EQ(controller->approval()->id, *command.id);
    EXPECT_EQ(controller->approval()->command, QStringLiteral("make test"));
    ASSERT_EQ(controller->queuedApprovals().size(), 1u);
    EXPECT_EQ(controller->queuedApprovals()[0].id, *files.id);

    // A peer answers the queued one; an answer on the question path gets the failure text and
    // changes nothing; a late second answer finds nothing to answer.
    answer(*second, *files.id, json(R"({"decision":"accept"})"));
    answer(*first, *command.id, json(R"({"answers":{}})"), BridgeController::questionMethod);
    const auto refused = first->waitFor(Kind::Error);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->body, JSONValue(closedText));
    answer(*first, *files.id, json(R"({"decision":"decline"})"));
    ASSERT_TRUE(waitFor([&] { return controller->queuedApprovals().empty(); }));
    EXPECT_EQ(controller->approval()->id, *command.id);

    // The user answers the shown one here; the peer that answers later changes nothing.
    controller->respondToApproval("acceptForSession");
    EXPECT_FALSE(controller->approval());
    answer(*second, *command.id, json(R"({"decision":"decline"})"));
    ASSERT_TRUE(waitFor([&] { return answers().size() >= 2; }));
    settle(150);
    EXPECT_THAT(answers(),
                ElementsAre(json(R"({"id":"file-1","result":{"decision":"accept"}})"),
                            json(R"({"id":0,"result":{"decision":"acceptForSession"}})")));

    // An answer without a body declines; a peer that is not paired is not heard.
    say("two-approvals");
    ASSERT_TRUE(waitFor([&] { return controller->queuedApprovals().size() == 1; }));
    TestPeer stranger(port, "Stranger");
    ASSERT_TRUE(stranger.waitFor(Kind::Hello));
    answer(stranger, controller->approval()->id, json(R"({"decision":"accept"})"));
    answer(*first, controller->queuedApprovals()[0].id, std::nullopt);
    ASSERT_TRUE(waitFor([&] { return answers().size() == 3; }));
    EXPECT_EQ(answers()[2], json(R"({"id":"file-1","result":{"decision":"decline"}})"));
    settle(100);
    EXPECT_EQ(answers().size(), 3u);
    EXPECT_TRUE(controller->approval());
}

// The approvals a newly authorised peer is offered in its catch-up: a ping answered after it marks
// its end.
std::vector<BridgeMessage> offeredOnArrival(TestPeer& peer)
{
    peer.send({1, Kind::Ping, QStringLiteral("caught-up"), {}, {}});
    EXPECT_TRUE(peer.waitFor(Kind::Response));
    std::vector<BridgeMessage> offered;
    for (const BridgeMessage& message : peer.received)
        if (message.kind == Kind::ServerRequest)
            offered.push_back(message);
    return offered;
}

TEST_F(BridgeServerRequestsTest, APeerAuthorisedLaterIsOfferedOnlyWhatStillWaits)
{
    say("two-approvals");
    ASSERT_TRUE(waitFor([&] { return first->count(Kind::ServerRequest) == 2; }));
    std::vector<BridgeMessage> asked;
    for (const BridgeMessage& message : first->received)
        if (message.kind == Kind::ServerRequest)
            asked.push_back(message);

    // The same device back on a new connection, by its hello alone: both, as they came, after the
    // engine's status.
    first->close();
    TestPeer back(port, "First again", *first);
    ASSERT_TRUE(back.waitFor(Kind::Hello));
    back.sendHello();
    EXPECT_EQ(offeredOnArrival(back), asked);
    EXPECT_LT(std::find(back.received.begin(), back.received.end(),
                        *back.waitFor(Kind::Event, "sarvane/engineStatus")),
              std::find(back.received.begin(), back.received.end(), asked[0]));

    // Answered here, then by a peer: a device paired afterwards is offered what is left.
    controller->respondToApproval("accept");
    auto third = pairedPeer(*controller, port, "Third", "Third Phone");
    EXPECT_THAT(offeredOnArrival(*third), ElementsAre(asked[1]));
    answer(back, *asked[1].id, json(R"({"decision":"decline"})"));
    ASSERT_TRUE(waitFor([&] { return answers().size() == 2; }));
    EXPECT_TRUE(offeredOnArrival(*pairedPeer(*controller, port, "Fourth", "Fourth Phone")).empty());

    // Approvals the engine took with it when it fell are not offered once it is back.
    say("two-approvals");
    ASSERT_TRUE(waitFor([&] { return controller->queuedApprovals().size() == 1; }));
    say("crash");
    ASSERT_TRUE(waitFor([&] { return !controller->appServerReady(); }));
    controller->restartCodex();
    ASSERT_TRUE(waitFor([&] { return controller->appServerReady(); }));
    EXPECT_TRUE(offeredOnArrival(*pairedPeer(*controller, port, "Fifth", "Fifth Phone")).empty());
    EXPECT_EQ(answers().size(), 2u);
}

TEST_F(BridgeServerRequestsTest, MoreAccessAndToolServersRequestsAreHeldLikeApprovals)
{
    say("more-access");
    say("fill-form");
    say("visit-url");
    ASSERT_TRUE(waitFor([&] {
        return first->count(Kind::ServerRequest) == 3 && second->count(Kind::ServerRequest) == 3;
    }));
    std::vector<BridgeMessage> offered;
    for (const BridgeMessage& message : first->received)
        if (message.kind == Kind::ServerRequest)
            offered.push_back(message);
    EXPECT_EQ(offered[0].method, QStringLiteral("item/permissions/requestApproval"));
    EXPECT_EQ(offered[0].body, json(permissionsParams));
    EXPECT_EQ(offered[1].body, json(formParams));
    EXPECT_EQ(offered[2].body, json(urlParams));

    // This computer shows what is asked.
    ASSERT_TRUE(controller->approval());
    EXPECT_EQ(controller->approval()->id, *offered[0].id);
    EXPECT_EQ(controller->approval()->detail, QStringLiteral("Needs the cache"));
    EXPECT_EQ(controller->approval()->access,
              QStringList({"Network access", "Write: /var/cache/app"}));

    // A peer grants more access for the session; the other peer's later refusal changes nothing.
    answer(*second, *offered[0].id,
           json(R"({"permissions":{"network":{"enabled":true}},"scope":"session"})"));
    ASSERT_TRUE(waitFor([&] { return answers().size() == 1; }));
    answer(*first, *offered[0].id, json(R"({"permissions":{}})"));
    EXPECT_EQ(
        answers()[0],
        json(
            R"({"id":20,"result":{"permissions":{"network":{"enabled":true}},"scope":"session"}})"))
        << answers()[0].textFormUtf8();
    const auto resolved = first->waitFor(Kind::Event, "sarvane/serverRequestResolved");
    ASSERT_TRUE(resolved);
    EXPECT_EQ(resolved->body,
              JSONValue::object({{"threadId", "thr_1"}, {"requestId", *offered[0].id}}));

    // The form is shown here with its fields; what is wrong with the values sends nothing.
    ASSERT_TRUE(controller->approval() && controller->approval()->elicitation);
    EXPECT_EQ(controller->approval()->id, *offered[1].id);
    EXPECT_EQ(controller->approval()->elicitation->fields.size(), 3u);
    EXPECT_EQ(controller->answerElicitation("accept", {{"title", ""}}), "Title is required.");
    EXPECT_EQ(controller->answerElicitation("accept", {{"title", "Printer"}, {"urgent", "maybe"}}),
              "urgent needs yes or no.");
    EXPECT_EQ(controller->answerElicitation(
                  "accept", {{"title", "Printer jams"}, {"urgent", "true"}, {"priority", ""}}),
              QString());
    ASSERT_TRUE(waitFor([&] { return answers().size() == 2; }));
    EXPECT_EQ(
        answers()[1],
        json(
            R"({"id":21,"result":{"action":"accept","content":{"title":"Printer jams","priority":"low","urgent":true}}})"));
    answer(*first, *offered[1].id, json(R"({"action":"decline"})"));

    // The address is answered once the user says done; a peer's cancel comes too late.
    ASSERT_TRUE(controller->approval() && controller->approval()->elicitation);
    EXPECT_EQ(controller->approval()->elicitation->url, "https://calendar.example/consent");
    controller->respondToApproval("accept");
    answer(*second, *offered[2].id, json(R"({"action":"cancel"})"));
    ASSERT_TRUE(waitFor([&] { return answers().size() == 3; }));
    settle(150);
    EXPECT_EQ(answers().size(), 3u);
    EXPECT_EQ(answers()[2], json(R"({"id":22,"result":{"action":"accept"}})"));
    EXPECT_FALSE(controller->approval());
}

TEST_F(BridgeServerRequestsTest, AFormTheEngineResolvesIsWithdrawnEverywhere)
{
    say("fill-form");
    ASSERT_TRUE(waitFor([&] { return controller->approval().has_value(); }));
    const QString id = controller->approval()->id;
    // A device authorised while it waits is offered it, as it came.
    const std::vector<BridgeMessage> offered =
        offeredOnArrival(*pairedPeer(*controller, port, "Late", "Late Phone"));
    ASSERT_EQ(offered.size(), 1u);
    EXPECT_EQ(offered[0].id, id);
    EXPECT_EQ(offered[0].body, json(formParams));
    say("resolve-form");
    ASSERT_TRUE(waitFor([&] { return !controller->approval(); }));
    for (TestPeer* peer : {first.get(), second.get()}) {
        const auto withdrawn = peer->waitFor(Kind::Event, "sarvane/serverRequestResolved");
        ASSERT_TRUE(withdrawn);
        EXPECT_EQ(withdrawn->body, JSONValue::object({{"threadId", "thr_1"}, {"requestId", id}}));
    }
    EXPECT_TRUE(offeredOnArrival(*pairedPeer(*controller, port, "Third", "Third Phone")).empty());
    answer(*first, id, json(R"({"action":"decline"})"));
    settle(100);
    EXPECT_TRUE(answers().empty());
}

TEST_F(BridgeServerRequestsTest, RequestsOfOtherMethodsAndMalformedQuestionsAreRefusedAtOnce)
{
    say("other-request");
    ASSERT_TRUE(waitFor([&] { return answers().size() == 2; }));
    EXPECT_EQ(
        answers()[0],
        json(
            R"({"id":9,"error":{"code":-32601,"message":"Nimbrel Bridge does not implement item/tool/call."}})"));
    EXPECT_EQ(
        answers()[1],
        json(
            R"({"id":10,"error":{"code":-32601,"message":"The question request is malformed."}})"));
    EXPECT_EQ(first->count(Kind::ServerRequest), 0u);
    EXPECT_EQ(first->count(Kind::Event, "sarvane/userInputRequest"), 0u);
    EXPECT_FALSE(controller->approval());
    EXPECT_TRUE(controller->logs().contains(
        "Codex asked for item/tool/call, which this bridge does not handle; it was refused."));

    // Forms and addresses that cannot be shown are refused, never offered.
    say("bad-forms");
    ASSERT_TRUE(waitFor([&] { return answers().size() == 5; }));
    EXPECT_EQ(
        answers()[2],
        json(
            R"({"id":23,"error":{"code":-32601,"message":"The elicitation request is malformed: field a has no known type."}})"));
    EXPECT_EQ(
        answers()[3],
        json(
            R"({"id":24,"error":{"code":-32601,"message":"The elicitation request is malformed: its address is not a web address."}})"));
    EXPECT_EQ(*answers()[4].find("id"), JSONValue(25));
    settle(100);
    EXPECT_EQ(first->count(Kind::ServerRequest), 0u);
    EXPECT_FALSE(controller->approval());
}

TEST_F(BridgeServerRequestsTest, AQuestionIsAnsweredOnceByWhoeverAnswersFirst)
{
    say("ask");
    say("ask"); // the same engine id again: one question, offered twice under one local id
    ASSERT_TRUE(
        waitFor([&] { return second->count(Kind::Event, "sarvane/userInputRequest") == 2; }));
    ASSERT_EQ(controller->pendingUserInput().requests.size(), 1u);
    const QString id = controller->pendingUserInput().requests[0].request.id;
    EXPECT_EQ(first->waitFor(Kind::Event, "sarvane/userInputRequest")->id, id);
    EXPECT_EQ(first->waitFor(Kind::Event, "sarvane/userInputRequest")->body, json(questionParams));
    ASSERT_TRUE(controller->workspace().userInputPrompt(id, "thr_1"));

    const JSONValue reply = json(R"({"answers":{"name":{"answers":["Ada"]}}})");
    answer(*first, id, json(R"({"answers":{"name":{"answers":[" "]}}})"),
           BridgeController::questionMethod);
    ASSERT_TRUE(first->waitFor(Kind::Error));
    EXPECT_EQ(first->waitFor(Kind::Error)->body, JSONValue(closedText));
    const std::size_t before = first->received.size();
    answer(*first, id, reply, BridgeController::questionMethod);
    answer(*second, id, reply, BridgeController::questionMethod);

    // The answerer hears the closing event, then its own reply; the other hears the event and the
    // refusal.
    const auto done = first->waitFor(Kind::Response, {}, before);
    ASSERT_TRUE(done);
    EXPECT_EQ(done->id, id);
    EXPECT_EQ(done->body, JSONValue::object({}));
    const auto resolved = first->waitFor(Kind::Event, "sarvane/userInputResolved", before);
    ASSERT_TRUE(resolved);
    EXPECT_LT(std::find(first->received.begin(), first->received.end(), *resolved),
              std::find(first->received.begin(), first->received.end(), *done));
    EXPECT_EQ(resolved->body, JSONValue::object({{"threadId", "thr_1"}, {"requestId", id}}));
    EXPECT_TRUE(second->waitFor(Kind::Event, "sarvane/userInputResolved"));
    const auto late = second->waitFor(Kind::Error);
    ASSERT_TRUE(late);
    EXPECT_EQ(late->body, JSONValue(closedText));
    EXPECT_FALSE(controller->workspace().userInputPrompt(id, "thr_1"));
    EXPECT_TRUE(controller->pendingUserInput().requests.empty());
    EXPECT_THAT(answers(), ElementsAre(JSONValue::object({{"id", 7}, {"result", reply}})));

    // A peer that comes while a question is open is offered it; the engine then closes it itself.
    say("ask");
    ASSERT_TRUE(waitFor([&] { return controller->pendingUserInput().requests.size() == 1; }));
    auto late_comer = pairedPeer(*controller, port, "Third", "Third Phone");
    const auto offered = late_comer->waitFor(Kind::Event, "sarvane/userInputRequest");
    ASSERT_TRUE(offered);
    say("complete");
    const auto closed = late_comer->waitFor(Kind::Event, "sarvane/userInputResolved");
    ASSERT_TRUE(closed);
    EXPECT_EQ(closed->body,
              JSONValue::object({{"threadId", "thr_1"}, {"requestId", *offered->id}}));
    // The event that closes it goes out before the engine's own notification.
    EXPECT_LT(std::find(late_comer->received.begin(), late_comer->received.end(), *closed),
              std::find(late_comer->received.begin(), late_comer->received.end(),
                        *late_comer->waitFor(Kind::Event, "turn/completed")));
    EXPECT_TRUE(controller->pendingUserInput().requests.empty());
    settle(100);
    EXPECT_EQ(answers().size(), 1u);
}

TEST_F(BridgeServerRequestsTest, TheEnginesFallEmptiesEverythingItAsked)
{
    say("two-approvals");
    say("ask");
    ASSERT_TRUE(waitFor([&] {
        return controller->pendingUserInput().requests.size() == 1 &&
               controller->queuedApprovals().size() == 1;
    }));
    const QString question = controller->pendingUserInput().requests[0].request.id;
    say("crash");
    ASSERT_TRUE(waitFor([&] { return !controller->appServerReady(); }));
    EXPECT_FALSE(controller->approval());
    EXPECT_TRUE(controller->queuedApprovals().empty());
    EXPECT_TRUE(controller->pendingUserInput().requests.empty());
    EXPECT_FALSE(controller->workspace().userInputPrompt(question, "thr_1"));

    const std::size_t before = first->received.size();
    answer(*first, question, json(R"({"answers":{"name":{"answers":["Ada"]}}})"),
           BridgeController::questionMethod);
    const auto refused = first->waitFor(Kind::Error, {}, before);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->body, JSONValue(closedText));
}

TEST_F(BridgeServerRequestsTest, AnApprovalTheEngineResolvesItselfIsWithdrawn)
{
    say("two-approvals");
    ASSERT_TRUE(waitFor([&] { return controller->queuedApprovals().size() == 1; }));
    const QString command = controller->approval()->id;
    say("interrupt");
    ASSERT_TRUE(waitFor([&] { return controller->queuedApprovals().empty(); }));
    ASSERT_TRUE(controller->approval());
    EXPECT_NE(controller->approval()->id, command);

    // A device authorised now is offered only the approval still waiting.
    TestPeer later(port, "Later", *first);
    ASSERT_TRUE(later.waitFor(Kind::Hello));
    later.sendHello();
    const auto offered = later.waitFor(Kind::ServerRequest);
    ASSERT_TRUE(offered);
    EXPECT_EQ(offered->id, controller->approval()->id);
    later.send({1, Kind::Ping, QStringLiteral("end"), {}, {}});
    ASSERT_TRUE(later.waitFor(Kind::Response));
    EXPECT_EQ(later.count(Kind::ServerRequest), 1u);
}

TEST_F(BridgeServerRequestsTest, AnAnswerThatCannotBeWrittenLeavesTheQuestionOpen)
{
    say("ask");
    ASSERT_TRUE(waitFor([&] { return controller->pendingUserInput().requests.size() == 1; }));
    const QString id = controller->pendingUserInput().requests[0].request.id;
    say("deaf");
    ASSERT_TRUE(waitFor([&] {
        const auto records = engine.records();
        return std::any_of(records.begin(), records.end(), [](const JSONValue& entry) {
            return entry.find("event") && *entry.find("event") == JSONValue("eof");
        });
    }));
    answer(*first, id, json(R"({"answers":{"name":{"answers":["Ada"]}}})"),
           BridgeController::questionMethod);
    const auto failed = first->waitFor(Kind::Error);
    ASSERT_TRUE(failed);
    EXPECT_TRUE(failed->body->stringValue()->startsWith("Write failed:"))
        << failed->body->textFormUtf8();
    ASSERT_EQ(controller->pendingUserInput().requests.size(), 1u);
    EXPECT_FALSE(controller->pendingUserInput().requests[0].isSubmitting);
    EXPECT_EQ(second->count(Kind::Event, "sarvane/userInputResolved"), 0u);
}

} // namespace
