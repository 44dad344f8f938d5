#include "bridge/BridgeController.h"
#include "platform/LaunchAtLogin.h"
#include "support/EventLoop.h"
#include "support/FakeEngine.h"
#include "support/PairedPeer.h"
#include "support/RawWebSocket.h"
#include "support/TemporaryHome.h"
#include "support/TestPeer.h"
#include "support/VirtualScheduler.h"

#include <QFile>

#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;
using Kind = BridgeMessageKind;

namespace {

const QString notPaired = QStringLiteral("Pair this device first.");
const QString notAllowed = QStringLiteral("That method is not available through Nimbrel.");

// The engine answers thread/read with null, turn/interrupt with an error, and
// account/rateLimits/read with a delta notification
// right after its reply, so that a test can make an event whenever it needs one.
JSONValue relayScenario()
{
    const JSONValue delta = JSONValue::object(
        {{"method", "item/agentMessage/delta"},
         {"params", JSONValue::object({{"threadId", "thr_elsewhere"}, {"delta", "hi"}})}});
    return JSONValue::object(
        {{"methods",
          JSONValue::object({
              {"thread/read", JSONValue::object({{"result", nullptr}})},
              {"thread/start",
               JSONValue::object({{"result", JSONValue::decode(R"({"thread":{"id":"thr_ro"},
                    "approvalPolicy":"on-request","sandbox":{"type":"readOnly"}})")
                                                 .value()}})},
              {"turn/interrupt",
               JSONValue::object(
                   {{"error",
                     JSONValue::object({{"code", 1}, {"message", "No turn to interrupt."}})}})},
              {"account/rateLimits/read",
               JSONValue::object(
                   {{"result", JSONValue::object({})},
                    {"after", JSONValue::array({JSONValue::object({{"send", delta}})})}})},
          })}});
}

class BridgePairingRelayTest : public ::testing::Test {
protected:
    BridgePairingRelayTest()
        : engine(relayScenario())
        , defaults(home.filePath("defaults.ini"))
    {
        home.makeLink("bin/codex", FakeEngine::executablePath());
        home.setPath(home.filePath("bin"));
    }

    void startBridge()
    {
        controller = std::make_unique<BridgeController>(
            scheduler, defaults, PeerLinkSettings{QHostAddress::LocalHost, 0},
            SecretStore(home.filePath("secrets")));
        controller->startOnce();
        ASSERT_TRUE(waitFor([&] { return controller->appServerReady(); }));
        port = controller->link().listeningPort();
    }

    // A peer that has connected and greeted, and whose hello the bridge has taken in.
    std::unique_ptr<TestPeer> greetedPeer(const QString& transportName,
                                          const QString& helloName = "Test Phone")
    {
        auto peer = std::make_unique<TestPeer>(port, transportName, helloName);
        EXPECT_TRUE(peer->waitFor(Kind::Hello));
        peer->sendHello();
        return peer;
    }

    std::unique_ptr<TestPeer> pairedPeer(const QString& transportName,
                                         const QString& helloName = "Test Phone")
    {
        return test::pairedPeer(*controller, port, transportName, helloName);
    }

    bool logged(const QString& line) const { return controller->logs().contains(line); }

    int engineCalls(const char* method) const
    {
        const auto methods = engine.receivedMethods();
        return static_cast<int>(std::count(methods.begin(), methods.end(), method));
    }

    TemporaryHome home;
    FakeEngine engine;
    SettingsUserDefaults defaults;
    VirtualScheduler scheduler;
    std::unique_ptr<BridgeController> controller;
    quint16 port = 0;
};

TEST_F(BridgePairingRelayTest, NewDevicePairsWhenTheUserApprovesItsCode)
{
    startBridge();
    TestPeer peer(port, "Phone-1A2B", "Ada's | Phone");
    ASSERT_TRUE(peer.waitFor(Kind::Hello));
    ASSERT_TRUE(peer.bridgeHello);
    EXPECT_TRUE(verify(*peer.bridgeHello));

    // Before any hello: a ping is answered, a pairing request is not.
    peer.send({1, Kind::Ping, QStringLiteral("p1"), {}, {}});
    const auto pong = peer.waitFor(Kind::Response);
    ASSERT_TRUE(pong);
    EXPECT_EQ(pong->id, QStringLiteral("p1"));
    EXPECT_EQ(pong->body, JSONValue("pong"));
    peer.send({1, Kind::PairingRequest, {}, {}, {}});
    settle(150);
    EXPECT_TRUE(controller->pairingRequests().empty());

    peer.sendHello();
    peer.send({1, Kind::PairingRequest, {}, {}, {}});
    peer.send({1, Kind::PairingRequest, {}, {}, {}});
    ASSERT_TRUE(waitFor([&] {
        return logged(QStringLiteral("Pairing requested by Ada's | Phone. Compare code %1.")
                          .arg(pairingCode(*peer.localHello, *peer.bridgeHello)));
    }));
    settle(100);
    ASSERT_EQ(controller->pairingRequests().size(), 1u);
    const PairingRequest request = controller->pairingRequests().front();
    EXPECT_EQ(request.code, pairingCode(*peer.localHello, *peer.bridgeHello));
    EXPECT_EQ(request.peer, "Phone-1A2B");
    EXPECT_TRUE(controller->authorizedPeerNames().isEmpty());

    // Its verified hello lets it wait past the hello limit; a connection without one is closed.
    TestPeer silent(port, "Silent");
    ASSERT_TRUE(silent.waitFor(Kind::Hello));
    scheduler.advance(PeerLink::helloLimitSeconds);
    ASSERT_TRUE(waitFor([&] { return !controller->link().connectedPeers().contains("Silent"); }));
    EXPECT_EQ(controller->pairingRequests().size(), 1u);

    // Rejected, asked again: the connection is refused, and nothing reaches the window.
    controller->rejectPairing(request);
    ASSERT_TRUE(peer.waitFor(Kind::PairingRejected));
    EXPECT_TRUE(logged("Rejected pairing from Ada's | Phone."));
    EXPECT_TRUE(controller->pairingRequests().empty());
    const std::size_t before = peer.received.size();
    peer.send({1, Kind::PairingRequest, {}, {}, {}});
    ASSERT_TRUE(peer.waitFor(Kind::PairingRejected, {}, before));
    EXPECT_TRUE(controller->pairingRequests().empty());
    peer.close();

    // A new connection of the device, half a minute later, asks anew.
    scheduler.advance(30);
    TestPeer retry(port, "Phone-1A2B", peer);
    ASSERT_TRUE(retry.waitFor(Kind::Hello));
    retry.sendHello();
    retry.send({1, Kind::PairingRequest, {}, {}, {}});
    ASSERT_TRUE(waitFor([&] { return controller->pairingRequests().size() == 1; }));
    const QString code = pairingCode(*retry.localHello, *retry.bridgeHello);
    ASSERT_TRUE(controller->pairingRequestWithCode(code));
    controller->approvePairing(*controller->pairingRequestWithCode(code));
    const auto accepted = retry.waitFor(Kind::PairingAccepted);
    ASSERT_TRUE(accepted);
    EXPECT_EQ(accepted->body, retry.bridgeHello->toBody());
    const auto status = retry.waitFor(Kind::Event, QStringLiteral("sarvane/engineStatus"));
    ASSERT_TRUE(status);
    EXPECT_EQ(status->body,
              JSONValue::object({{"ready", true}, {"status", "Codex app-server ready"}}));
    EXPECT_TRUE(logged("Paired Ada's | Phone from 127.0.0.1."));
    EXPECT_TRUE(controller->pairingRequests().empty());
    EXPECT_EQ(controller->authorizedPeerNames(), QStringList{"Phone-1A2B"});
    ASSERT_EQ(controller->trustedPeers().size(), 1u);
    EXPECT_EQ(controller->trustedPeers()[0].deviceID, peer.identity->deviceID());
    EXPECT_EQ(controller->trustedPeers()[0].publicKey, peer.identity->publicKeyBase64());

    // Disconnecting forgets the connection, not the trust.
    retry.close();
    ASSERT_TRUE(waitFor([&] { return controller->authorizedPeerNames().isEmpty(); }));
    EXPECT_EQ(controller->trustedPeers().size(), 1u);
}

TEST_F(BridgePairingRelayTest, AnUndecidedPairingExpiresAndAStrangerThatDoesNotAskLeaves)
{
    startBridge();
    auto asking = greetedPeer("Asking", "Asking Phone");
    asking->send({1, Kind::PairingRequest, {}, {}, {}});
    auto greeted = greetedPeer("Greeted", "Greeted Phone");
    ASSERT_TRUE(waitFor([&] { return controller->pairingRequests().size() == 1; }));
    // Time passes in steps that stop at each of the link's pings (every interval since it started
    // at time zero) until every connected peer's answer has come back, however long that takes.
    const auto pass = [&](double seconds) {
        const double end = scheduler.now() + seconds;
        while (scheduler.now() < end) {
            const double interval = PeerLink::pingIntervalSeconds;
            const double ping = (std::floor(scheduler.now() / interval) + 1) * interval;
            scheduler.advance(std::min(end, ping) - scheduler.now());
            if (scheduler.now() < ping)
                continue;
            ASSERT_TRUE(waitFor([&] {
                const PeerLink& link = controller->link();
                const QStringList peers = link.connectedPeers();
                return std::all_of(peers.begin(), peers.end(), [&](const QString& peer) {
                    const std::optional<double> heard = link.lastHeard(peer);
                    return !heard || *heard >= ping;
                });
            })) << "answers to the ping at "
                << ping;
        }
    };

    // A verified hello alone does not let a connection stay.
    pass(PeerLink::helloLimitSeconds);
    ASSERT_TRUE(
        waitFor([&] { return controller->link().connectedPeers() == QStringList{"Asking"}; }));
    pass(BridgeController::pairingRequestLimitSeconds - PeerLink::helloLimitSeconds - 1);
    EXPECT_EQ(controller->pairingRequests().size(), 1u);
    EXPECT_EQ(asking->count(Kind::PairingRejected), 0u);

    // Two minutes without a decision: the request goes, the peer hears no, and then it goes too.
    pass(1);
    ASSERT_TRUE(asking->waitFor(Kind::PairingRejected));
    EXPECT_TRUE(controller->pairingRequests().empty());
    EXPECT_TRUE(logged(
        "Pairing request from Asking Phone expired: nobody compared its code within two minutes."));
    pass(PeerLink::helloLimitSeconds);
    ASSERT_TRUE(waitFor([&] { return controller->link().connectedPeers().isEmpty(); }));
}

TEST_F(BridgePairingRelayTest, RepliesFollowTheConnectionNotItsName)
{
    engine.setScenario(JSONValue::object(
        {{"methods",
          JSONValue::object({{"thread/read", JSONValue::object({{"replyOn", "thread/list"},
                                                                {"result", nullptr}})}})}}));
    startBridge();
    auto first = pairedPeer("Phone", "Ada's Phone");
    first->request("slow", "thread/read");
    ASSERT_TRUE(waitFor([&] { return engineCalls("thread/read") == 1; }));
    first->close();
    ASSERT_TRUE(waitFor([&] { return controller->link().connectedPeers().isEmpty(); }));

    // The same device comes back under the same name before the engine answers; the engine
    // answers the old call just ahead of the new one.
    TestPeer second(port, "Phone", *first);
    ASSERT_TRUE(second.waitFor(Kind::Hello));
    second.sendHello();
    ASSERT_TRUE(second.waitFor(Kind::PairingAccepted));
    second.request("fresh", "thread/list");
    const auto answer = second.waitFor(Kind::Response);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->id, QStringLiteral("fresh"));
    EXPECT_TRUE(logged("Could not reply to Phone: Phone is not connected."));
    EXPECT_EQ(second.count(Kind::Response), 1u);
}

TEST_F(BridgePairingRelayTest, RequestsPassTheChecksInOrder)
{
    startBridge();
    auto stranger = greetedPeer("Stranger");
    stranger->request("s1", "config/read");
    const auto refused = stranger->waitFor(Kind::Error);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->id, QStringLiteral("s1"));
    EXPECT_EQ(refused->body, JSONValue(notPaired));

    auto phone = pairedPeer("Phone");
    const std::size_t start = phone->received.size();
    phone->request("r1", "config/read");
    phone->send({1, Kind::Request, std::nullopt, QStringLiteral("thread/list"), {}});
    phone->send({1, Kind::Request, QStringLiteral("r2"), std::nullopt, {}});
    ASSERT_TRUE(waitFor([&] { return phone->count(Kind::Error) == 3; }));
    std::vector<std::optional<QString>> ids;
    for (std::size_t i = start; i < phone->received.size(); ++i)
        if (phone->received[i].kind == Kind::Error) {
            EXPECT_EQ(phone->received[i].body, JSONValue(notAllowed));
            ids.push_back(phone->received[i].id);
        }
    EXPECT_THAT(ids,
                ::testing::ElementsAre(QStringLiteral("r1"), std::nullopt, QStringLiteral("r2")));
    settle(100);
    EXPECT_EQ(engineCalls("config/read"), 0);

    // No body reaches the engine as {}; a null result goes back as a null body.
    phone->request("r3", "model/list", std::nullopt);
    phone->request("r4", "thread/read", JSONValue::object({{"threadId", "t"}}));
    ASSERT_TRUE(waitFor([&] { return phone->count(Kind::Response) >= 2; }));
    const auto received = engine.received();
    // The peer's, after the window's own.
    const auto modelList = std::find_if(received.rbegin(), received.rend(), [](const JSONValue& m) {
        return m["method"] == JSONValue("model/list");
    });
    ASSERT_NE(modelList, received.rend());
    EXPECT_EQ((*modelList)["params"], JSONValue::object({}));
    const auto nullAnswer =
        std::find_if(phone->received.begin(), phone->received.end(),
                     [](const BridgeMessage& m) { return m.id == QStringLiteral("r4"); });
    ASSERT_NE(nullAnswer, phone->received.end());
    EXPECT_EQ(nullAnswer->kind, Kind::Response);
    EXPECT_TRUE(
        phone->receivedText.contains(R"({"version":1,"kind":"response","id":"r4","body":null})"));

    // Engine errors keep their text.
    phone->request("r5", "turn/interrupt", JSONValue::object({}));
    ASSERT_TRUE(waitFor([&] { return phone->count(Kind::Error) == 4; }));
    EXPECT_EQ(phone->received.back().id, QStringLiteral("r5"));
    EXPECT_EQ(phone->received.back().body, JSONValue("No turn to interrupt."));
}

TEST_F(BridgePairingRelayTest, ASessionRunsInOneModeWhoeverContinuesItAndAChangeIsAnnounced)
{
    startBridge();
    auto tablet = pairedPeer("Tablet");
    auto phone = pairedPeer("Phone");
    const auto json = [](const char* text) { return JSONValue::decode(text).value(); };
    const auto heard = [](TestPeer& peer, const char* mode) {
        return waitFor([&] {
            return peer.receivedText.contains(
                QStringLiteral(
                    R"({"version":1,"kind":"event","method":"sarvane/sessionMode","body":{"threadId":"thr_ro","mode":"%1"}})")
                    .arg(mode));
        });
    };
    const auto lastParams = [&](const char* method) {
        const auto received = engine.received();
        const auto found =
            std::find_if(received.rbegin(), received.rend(),
                         [&](const JSONValue& m) { return m["method"] == JSONValue(method); });
        return found == received.rend() ? JSONValue() : (*found)["params"].value_or(JSONValue());
    };
    tablet->request("t1", "thread/start",
                    json(R"({"approvalPolicy":"on-request","sandbox":"read-only"})"));
    ASSERT_TRUE(heard(*phone, "read-only"));

    // Continued by another peer that names no mode, and by the window: read only.
    phone->request("p1", "thread/resume", json(R"({"threadId":"thr_ro"})"));
    phone->request("p2", "turn/start", json(R"({"threadId":"thr_ro","input":[]})"));
    ASSERT_TRUE(waitFor([&] { return phone->count(Kind::Response) >= 2; }));
    EXPECT_EQ(lastParams("thread/resume")["sandbox"], JSONValue("read-only"));
    EXPECT_EQ(lastParams("turn/start")["approvalPolicy"], JSONValue("on-request"));
    EXPECT_EQ(lastParams("turn/start")["sandboxPolicy"], json(R"({"type":"readOnly"})"));
    controller->workspace().send("look around", "thr_ro");
    ASSERT_TRUE(waitFor([&] { return engineCalls("turn/start") == 2; }));
    EXPECT_EQ(lastParams("turn/start")["sandboxPolicy"], json(R"({"type":"readOnly"})"));
    EXPECT_EQ(controller->workspace().sessionMode("thr_ro"), PermissionMode::ReadOnly);

    // A peer's own policy changes the session's mode: recorded, logged and announced.
    phone->request(
        "p3", "turn/start",
        json(
            R"({"threadId":"thr_ro","approvalPolicy":"never","sandboxPolicy":{"type":"dangerFullAccess"}})"));
    ASSERT_TRUE(heard(*tablet, "full-access"));
    EXPECT_TRUE(logged("Session thr_ro now runs in Full access from its next turn."));
    // So does the header's choice, made by a peer or in the window.
    tablet->request("t2", "sarvane/setSessionMode",
                    json(R"({"threadId":"thr_ro","mode":"read-only"})"));
    ASSERT_TRUE(heard(*phone, "read-only"));
    tablet->request("t3", "sarvane/setSessionMode",
                    json(R"({"threadId":"thr_ro","mode":"custom"})"));
    ASSERT_TRUE(waitFor([&] { return tablet->count(Kind::Error) == 1; }));
    controller->workspace().setPermissionMode("ask", "thr_ro");
    ASSERT_TRUE(heard(*phone, "ask"));
    controller->workspace().setPermissionMode("read-only", "thr_ro");
    ASSERT_TRUE(heard(*tablet, "read-only"));

    // After a restart the mode is still the session's, and a newcomer hears of it on arrival.
    tablet.reset();
    phone.reset();
    controller.reset();
    startBridge();
    EXPECT_EQ(controller->workspace().sessionMode("thr_ro"), PermissionMode::ReadOnly);
    auto laptop = pairedPeer("Laptop");
    EXPECT_TRUE(waitFor([&] {
        return laptop->receivedText.contains(
            R"({"version":1,"kind":"event","method":"sarvane/sessionModes","body":{"modes":{"thr_ro":"read-only"}}})");
    }));
}

TEST_F(BridgePairingRelayTest, EventsReachAuthorisedPeersOnly)
{
    startBridge();
    auto first = pairedPeer("First", "First Phone");
    auto second = pairedPeer("Second", "Second Phone");
    auto stranger = greetedPeer("Stranger");
    first->request("e1", "account/rateLimits/read");
    ASSERT_TRUE(first->waitFor(Kind::Event, QStringLiteral("item/agentMessage/delta")));
    const auto event = second->waitFor(Kind::Event, QStringLiteral("item/agentMessage/delta"));
    ASSERT_TRUE(event);
    EXPECT_FALSE(event->id);
    EXPECT_EQ(event->body, JSONValue::object({{"threadId", "thr_elsewhere"}, {"delta", "hi"}}));
    settle(100);
    EXPECT_EQ(stranger->count(Kind::Event), 0u);
    EXPECT_EQ(first->count(Kind::Event, QStringLiteral("item/agentMessage/delta")), 1u);

    // Forgetting a connected device stops its events at once; its requests need pairing again.
    ASSERT_TRUE(controller->trustedPeerWithID(first->identity->deviceID()));
    controller->forgetPeer(*controller->trustedPeerWithID(first->identity->deviceID()));
    EXPECT_TRUE(logged("Forgot First Phone."));
    second->request("e2", "account/rateLimits/read");
    ASSERT_TRUE(waitFor([&] {
        return second->count(Kind::Event, QStringLiteral("item/agentMessage/delta")) == 2;
    }));
    settle(100);
    EXPECT_EQ(first->count(Kind::Event, QStringLiteral("item/agentMessage/delta")), 1u);
    first->request("e3", "thread/list");
    ASSERT_TRUE(waitFor([&] { return first->count(Kind::Error) == 1; }));
    EXPECT_EQ(first->waitFor(Kind::Error)->body, JSONValue(notPaired));
    // ...and it may pair again on the same connection.
    first->send({1, Kind::PairingRequest, {}, {}, {}});
    ASSERT_TRUE(waitFor([&] { return controller->pairingRequests().size() == 1; }));
}

TEST_F(BridgePairingRelayTest, TrustedDevicesAreAuthorisedByTheirHelloAlone)
{
    startBridge();
    auto phone = pairedPeer("Phone-1", "Ada's Phone");
    phone->close();

    // A new connection of the same device: no code, no request.
    TestPeer again(port, "Phone-2", *phone);
    ASSERT_TRUE(again.waitFor(Kind::Hello));
    again.sendHello();
    ASSERT_TRUE(again.waitFor(Kind::PairingAccepted));
    ASSERT_TRUE(again.waitFor(Kind::Event, QStringLiteral("sarvane/engineStatus")));
    EXPECT_TRUE(logged("Authenticated Ada's Phone from 127.0.0.1."));
    EXPECT_TRUE(controller->pairingRequests().empty());
    again.send({1, Kind::PairingRequest, {}, {}, {}});
    settle(100);
    EXPECT_TRUE(controller->pairingRequests().empty());

    // A device claiming a trusted id with another key stays unpaired and cannot pair.
    TestPeer impostor(port, "Impostor");
    ASSERT_TRUE(impostor.waitFor(Kind::Hello));
    HelloPayload forged = impostor.identity->makeHello("Ada's Phone").value();
    forged.deviceID = phone->identity->deviceID();
    const QByteArray signature =
        *signDER(impostor.identity->key(), helloSigningInput(forged.deviceID, forged.displayName,
                                                             forged.publicKey, forged.nonce));
    forged.signature = QString::fromLatin1(signature.toBase64());
    impostor.send({1, Kind::Hello, {}, {}, forged.toBody()});
    impostor.send({1, Kind::PairingRequest, {}, {}, {}});
    impostor.request("i1", "thread/list");
    ASSERT_TRUE(impostor.waitFor(Kind::Error));
    EXPECT_EQ(impostor.waitFor(Kind::Error)->body, JSONValue(notPaired));
    EXPECT_TRUE(controller->pairingRequests().empty());
    EXPECT_EQ(impostor.count(Kind::PairingAccepted), 0u);
    EXPECT_FALSE(controller->authorizedPeerNames().contains("Impostor"));

    // Once the user forgets the old entry, the new key may pair on the same connection.
    controller->forgetPeer(*controller->trustedPeerWithID(phone->identity->deviceID()));
    impostor.send({1, Kind::PairingRequest, {}, {}, {}});
    ASSERT_TRUE(waitFor([&] { return controller->pairingRequests().size() == 1; }));
    controller->approvePairing(controller->pairingRequests().front());
    ASSERT_TRUE(impostor.waitFor(Kind::PairingAccepted));
    EXPECT_EQ(controller->trustedPeers().front().publicKey, impostor.identity->publicKeyBase64());
}

TEST_F(BridgePairingRelayTest, BadMessagesAreLoggedNotAnswered)
{
    startBridge();
    TestPeer peer(port, "Noisy");
    ASSERT_TRUE(peer.waitFor(Kind::Hello));
    HelloPayload tampered = peer.identity->makeHello("Noisy Phone").value();
    tampered.displayName = "Someone Else";
    peer.send({1, Kind::Hello, {}, {}, tampered.toBody()});
    peer.send({1, Kind::Hello, {}, {}, {}});
    peer.send({1, Kind::Hello, {}, {}, JSONValue::object({{"deviceID", 5}})});
    peer.sendRaw("not json");
    peer.sendRaw(R"({"version":1,"kind":"pong"})");
    peer.send({0, Kind::Ping, QStringLiteral("old"), {}, {}});
    const auto versionError = peer.waitFor(Kind::Error);
    ASSERT_TRUE(versionError);
    EXPECT_FALSE(versionError->id);
    EXPECT_EQ(versionError->body, JSONValue("Incompatible protocol version."));
    // A stranger's first malformed message is logged, and how many more followed when it goes;
    // the version error came after the others were read.
    EXPECT_EQ(controller->logs().filter("Rejected malformed message from Noisy: "),
              QStringList{"Rejected malformed message from Noisy: Handshake signature did not "
                          "verify."});
    EXPECT_EQ(peer.count(Kind::Response), 0u); // the old-version ping got the error, not "pong"
    // A pairing request after a failed hello goes nowhere.
    peer.send({1, Kind::PairingRequest, {}, {}, {}});
    settle(100);
    EXPECT_TRUE(controller->pairingRequests().empty());
    // Answers and kinds only the bridge sends are dropped quietly.
    const int lines = static_cast<int>(controller->logs().size());
    peer.send({1, Kind::Response, QStringLiteral("x"), {}, JSONValue(1)});
    peer.send({1, Kind::ServerResponse, QStringLiteral("y"), {}, {}});
    settle(100);
    EXPECT_EQ(controller->logs().size(), lines);
    peer.close();
    ASSERT_TRUE(waitFor([&] { return logged("…and 4 more from Noisy"); }));
}

TEST_F(BridgePairingRelayTest, ATransportNameBelongsToTheConnectionThatHasIt)
{
    startBridge();
    auto victim = pairedPeer("Phone-A", "Victim");
    // A second connection under the same name, and a bare GET under it, are refused outright.
    RawWebSocket twin(port), forged(port);
    EXPECT_EQ(twin.upgrade("Phone-A"), 409);
    EXPECT_EQ(forged.upgrade("Phone-A", false), 409);
    ASSERT_TRUE(waitFor([&] { return twin.isClosed() && forged.isClosed(); }));
    const std::size_t before = victim->count(Kind::Response);
    victim->request("r1", "thread/list");
    ASSERT_TRUE(waitFor([&] { return victim->count(Kind::Response) == before + 1; }));
    EXPECT_EQ(controller->authorizedPeerNames(), QStringList{"Phone-A"});
    EXPECT_EQ(controller->link().connectedPeers(), QStringList{"Phone-A"});

    // The trusted list sorts by plain text: capitals before small letters.
    auto lower = pairedPeer("Lower", "alpha");
    auto upper = pairedPeer("Upper", "Zulu");
    std::vector<QString> names;
    for (const TrustedPeer& peer : controller->trustedPeers())
        names.push_back(peer.displayName);
    EXPECT_THAT(names, ::testing::ElementsAre("Victim", "Zulu", "alpha"));
}

TEST_F(BridgePairingRelayTest, RightsFollowTheDeviceThatProvedThem)
{
    startBridge();
    auto phone = pairedPeer("Phone", "Phone A");
    const TrustedPeer first = controller->trustedPeers().front();
    // Another valid hello on the same connection, from another device.
    TestPeer other(port, "Other", "Phone B");
    ASSERT_TRUE(other.waitUntilConnected());
    const HelloPayload foreign = other.identity->makeHello("Phone B").value();
    phone->send({1, Kind::Hello, {}, {}, foreign.toBody()});
    ASSERT_TRUE(waitFor([&] {
        return logged("Rejected malformed message from Phone: Handshake identity changed.");
    }));
    EXPECT_TRUE(controller->authorizedPeerNames().isEmpty());
    phone->request("r1", "thread/list");
    const auto refused = phone->waitFor(Kind::Error);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->body, JSONValue(notPaired));

    // Its own hello authorises it again; forgetting the device then ends every right it gave.
    phone->sendHello();
    ASSERT_TRUE(waitFor([&] { return controller->authorizedPeerNames() == QStringList{"Phone"}; }));
    controller->forgetPeer(first);
    EXPECT_TRUE(controller->authorizedPeerNames().isEmpty());
}

TEST_F(BridgePairingRelayTest, PeerTextEntersTheLogCutAndOnOneLine)
{
    startBridge();
    const QString longName = QStringLiteral("Evil\nLine ") + QString(10000, QLatin1Char('x'));
    auto peer = greetedPeer("Peer", longName);
    peer->send({1, Kind::PairingRequest, {}, {}, {}});
    ASSERT_TRUE(
        waitFor([&] { return !controller->logs().filter("Pairing requested by").isEmpty(); }));
    peer->sendRaw(QByteArray(R"({"version":1,"kind":")") + QByteArray(5000, 'k') + "\\r\\n" +
                  QByteArray(5000, 'k') + "\"}");
    ASSERT_TRUE(waitFor(
        [&] { return !controller->logs().filter("Rejected malformed message").isEmpty(); }));
    const QString requested = controller->logs().filter("Pairing requested by").first();
    EXPECT_TRUE(requested.startsWith(QStringLiteral("Pairing requested by Evil\\nLine xxx")));
    EXPECT_TRUE(requested.contains(QStringLiteral("x…. Compare code")));
    for (const QString& line : controller->logs()) {
        EXPECT_FALSE(line.contains(QLatin1Char('\n')) || line.contains(QLatin1Char('\r')));
        EXPECT_LT(line.size(), 400) << line.left(200).toStdString();
    }
}

TEST_F(BridgePairingRelayTest, WithoutAnIdentityTheEngineWorksAndNoPairingHappens)
{
    // A file stands where the secret store's folder should be.
    home.makeFile("blocked", "x", false);
    controller = std::make_unique<BridgeController>(scheduler, defaults,
                                                    PeerLinkSettings{QHostAddress::LocalHost, 0},
                                                    SecretStore(home.filePath("blocked/secrets")));
    EXPECT_FALSE(controller->hasIdentity());
    EXPECT_TRUE(controller->appServerStatus().startsWith("Secure identity unavailable: "))
        << controller->appServerStatus().toStdString();
    EXPECT_EQ(controller->logs(),
              QStringList{"Keychain identity creation failed. Pairing is disabled until the app "
                          "has valid signing entitlements."});
    controller->startOnce();
    ASSERT_TRUE(waitFor([&] { return controller->appServerReady(); }));
    TestPeer peer(controller->link().listeningPort(), "Phone");
    ASSERT_TRUE(
        waitFor([&] { return logged("Cannot pair: secure Keychain identity is unavailable."); }));
    settle(100);
    EXPECT_TRUE(peer.received.empty());
}

TEST_F(BridgePairingRelayTest, LaunchAtLoginFollowsTheAutostartEntry)
{
    qputenv("XDG_CONFIG_HOME", home.filePath("config").toUtf8());
    startBridge();
    EXPECT_FALSE(controller->launchAtLogin());
    controller->setLaunchAtLogin(true);
    EXPECT_TRUE(controller->launchAtLogin());
    EXPECT_EQ(LaunchAtLogin::entryPath(), home.filePath("config/autostart/nimbrel-bridge.desktop"));
    QFile entry(LaunchAtLogin::entryPath());
    ASSERT_TRUE(entry.open(QIODevice::ReadOnly));
    EXPECT_TRUE(entry.readAll().contains("Exec="));
    entry.close();

    // An entry that says Hidden=true is off.
    ASSERT_TRUE(entry.open(QIODevice::Append));
    entry.write("Hidden=true\n");
    entry.close();
    EXPECT_FALSE(LaunchAtLogin::isEnabled());

    controller->setLaunchAtLogin(false);
    EXPECT_FALSE(controller->launchAtLogin());
    EXPECT_FALSE(QFile::exists(LaunchAtLogin::entryPath()));

    // A change that fails falls back to the real state and says why.
    QFile::remove(home.filePath("config/autostart"));
    QDir(home.filePath("config/autostart")).removeRecursively();
    home.makeFile("config/autostart", "not a folder", false);
    controller->setLaunchAtLogin(true);
    EXPECT_FALSE(controller->launchAtLogin());
    EXPECT_TRUE(controller->logs().first().startsWith("Launch at login could not be changed: "));
}

} // namespace
