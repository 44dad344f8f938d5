#include "peer/PeerLink.h"
#include "support/EventLoop.h"
#include "support/FakeEngine.h"
#include "support/RawWebSocket.h"
#include "support/RunningProgram.h"
#include "support/TemporaryHome.h"
#include "support/TestPeer.h"
#include "support/VirtualScheduler.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

class BridgeEndToEndTest : public ::testing::Test {
protected:
    BridgeEndToEndTest()
        : engine(JSONValue::object(
              {{"methods",
                JSONValue::object({
                    {"thread/list",
                     JSONValue::object(
                         {{"result", JSONValue::object({{"data", JSONValue::array({})}})}})},
                    {"account/rateLimits/read",
                     JSONValue::object(
                         {{"result", JSONValue::object({})},
                          {"after",
                           JSONValue::array({JSONValue::object(
                               {{"send", JSONValue::object(
                                             {{"method", "turn/started"},
                                              {"params",
                                               JSONValue::object(
                                                   {{"threadId", "thr_1"},
                                                    {"turn", JSONValue::object(
                                                                 {{"id", "turn_1"}})}})}})}})})}})},
                })}}))
    {
        home.makeLink("bin/codex", FakeEngine::executablePath());
        environment = QProcessEnvironment::systemEnvironment();
        environment.insert("HOME", home.path());
        // The console, not the window: the tests read standard error and type commands.
        environment.remove("DISPLAY");
        environment.remove("WAYLAND_DISPLAY");
        environment.insert("PATH", home.filePath("bin") + ":/usr/bin:/bin");
        environment.insert("XDG_CONFIG_HOME", home.filePath("config"));
        environment.insert("XDG_DATA_HOME", home.filePath("data"));
        environment.insert("NIMBREL_LINK_ADDRESS", "127.0.0.1");
        environment.insert("NIMBREL_LINK_PORT", "0");
    }

    std::unique_ptr<RunningProgram> startBridge(QString* port)
    {
        auto bridge =
            std::make_unique<RunningProgram>(NIMBREL_BRIDGE_PATH, QStringList{}, environment);
        *port = bridge->captured("Listening on wss://127\\.0\\.0\\.1:(\\d+)/sarvane");
        EXPECT_FALSE(port->isEmpty()) << bridge->err.toStdString();
        EXPECT_TRUE(bridge->saysOnError("Codex app-server ready")) << bridge->err.toStdString();
        return bridge;
    }

    // A test peer paired with the running bridge through its console.
    std::unique_ptr<TestPeer> pairedPeer(RunningProgram& bridge, quint16 port,
                                         const QString& transportName, const QString& name)
    {
        auto peer = std::make_unique<TestPeer>(port, transportName, name);
        EXPECT_TRUE(peer->waitFor(BridgeMessageKind::Hello));
        peer->sendHello();
        peer->send({1, BridgeMessageKind::PairingRequest, {}, {}, {}});
        const QString code = pairingCode(*peer->localHello, *peer->bridgeHello);
        EXPECT_TRUE(bridge.saysOnError("Compare code " + code));
        bridge.type("approve " + code);
        EXPECT_TRUE(peer->waitFor(BridgeMessageKind::PairingAccepted));
        return peer;
    }

    std::unique_ptr<RunningProgram> startPeer(const QString& port, const QStringList& command = {},
                                              const QString& name = "Test Phone",
                                              const QString& state = "peer-state")
    {
        return std::make_unique<RunningProgram>(NIMBREL_PEER_PATH,
                                                QStringList{"--host", "127.0.0.1", "--port", port,
                                                            "--name", name, "--state",
                                                            home.filePath(state)} +
                                                    command,
                                                environment);
    }

    // nimbrel-peer paired with the running bridge: it asks, the bridge's console approves the code.
    std::unique_ptr<RunningProgram> pairedTool(RunningProgram& bridge, const QString& port,
                                               const QString& name)
    {
        auto peer = startPeer(port, {}, name, name);
        peer->type("pair");
        const QString code = peer->captured("Pairing code: (\\d{6})");
        EXPECT_EQ(code.size(), 6) << peer->err.toStdString();
        EXPECT_TRUE(
            bridge.saysOnError("Pairing requested by " + name + ". Compare code " + code + "."));
        bridge.type("approve " + code);
        EXPECT_TRUE(peer->saysOnOutput(R"("kind":"pairingAccepted")")) << peer->err.toStdString();
        return peer;
    }

    // The answers to its own requests that the engine read.
    std::vector<JSONValue> engineAnswers() const
    {
        std::vector<JSONValue> answers;
        for (const JSONValue& message : engine.received())
            if (message.contains("result") && !message.contains("method"))
                answers.push_back(message);
        return answers;
    }

    TemporaryHome home;
    FakeEngine engine;
    QProcessEnvironment environment;
};

TEST_F(BridgeEndToEndTest, PeerPairsCallsWatchesAndIsRecognisedAfterARestart)
{
    QString port;
    {
        auto bridge = startBridge(&port);
        auto peer = pairedTool(*bridge, port, "Test Phone");
        ASSERT_TRUE(peer->saysOnOutput(
            R"({"version":1,"kind":"event","method":"sarvane/engineStatus","body":{"ready":true,"status":"Codex app-server ready"}})"));
        EXPECT_TRUE(bridge->saysOnError("Paired Test Phone from 127.0.0.1."));

        peer->type(R"(call thread/list {"limit": 10})");
        ASSERT_TRUE(peer->saysOnOutput(
            R"({"version":1,"kind":"response","id":"nimbrel-peer-1","body":{"data":[]}})"))
            << peer->out.toStdString();
        peer->type("call config/read");
        ASSERT_TRUE(peer->saysOnOutput(
            R"({"version":1,"kind":"error","id":"nimbrel-peer-2","body":"That method is not available through Nimbrel."})"));
        peer->type("call account/rateLimits/read");
        ASSERT_TRUE(peer->saysOnOutput(
            R"({"version":1,"kind":"event","method":"turn/started","body":{"threadId":"thr_1","turn":{"id":"turn_1"}}})"));
        const auto methods = engine.receivedMethods();
        EXPECT_EQ(std::count(methods.begin(), methods.end(), "config/read"), 0);
        EXPECT_EQ(std::count(methods.begin(), methods.end(), "thread/list"),
                  2); // the window's own, then the peer's
    }

    // Both programs again: the trusted device is authorised by its hello alone.
    auto bridge = startBridge(&port);
    auto peer = startPeer(port, {}, "Test Phone", "Test Phone");
    ASSERT_TRUE(peer->saysOnOutput(R"("kind":"pairingAccepted")")) << peer->err.toStdString();
    ASSERT_TRUE(bridge->saysOnError("Authenticated Test Phone from 127.0.0.1."));
    EXPECT_FALSE(bridge->err.contains("Pairing requested"));
}

TEST_F(BridgeEndToEndTest, WithoutASecretStoreTheEngineStillWorks)
{
    home.makeFile("blocked", "a file where the data folder should be", false);
    environment.insert("XDG_DATA_HOME", home.filePath("blocked"));
    QString port;
    auto bridge = startBridge(&port);
    auto peer = startPeer(port);
    ASSERT_TRUE(bridge->saysOnError("Cannot pair: secure Keychain identity is unavailable."));
    EXPECT_TRUE(bridge->err.contains("Keychain identity creation failed. Pairing is disabled until "
                                     "the app has valid signing entitlements."));
    settle(200);
    EXPECT_FALSE(peer->out.contains(R"("kind":"hello")"));
}

} // namespace

namespace {

// The engine answers thread/read, then sends a flood of deltas. They are of a kind the
// desktop's sessions do not keep, so that what the bridge holds is what the peers are owed.
JSONValue floodScenario(int count)
{
    const JSONValue delta = JSONValue::object(
        {{"method", "item/fileChange/outputDelta"},
         {"params", JSONValue::object({{"threadId", "thr_1"},
                                       {"turnId", "turn_1"},
                                       {"itemId", "item_1"},
                                       {"delta", "the build passes over the tests "}})}});
    return JSONValue::object(
        {{"methods",
          JSONValue::object({
              {"thread/read",
               JSONValue::object(
                   {{"result", JSONValue::object({})},
                    {"after", JSONValue::array({JSONValue::object(
                                  {{"flood", JSONValue::object(
                                                 {{"count", count}, {"message", delta}})}})})}})},
          })}});
}

} // namespace

// Memory is measured with the sanitiser's quarantine of freed blocks kept small, so that memory the
// bridge has freed counts as freed, and as growth over what the bridge held before the attack: the
// instrumented program's own size is not what these tests are about.
TEST_F(BridgeEndToEndTest, AFrameAnnouncingFourHundredMebibytesIsRefusedAtItsHeader)
{
    environment.insert("ASAN_OPTIONS",
                       qEnvironmentVariable("ASAN_OPTIONS") + ":quarantine_size_mb=1");
    QString port;
    auto bridge = startBridge(&port);
    RawWebSocket attacker(static_cast<quint16>(port.toUInt()));
    ASSERT_EQ(attacker.upgrade("Attacker"), 101);
    const double before = bridge->residentMiB();
    attacker.sendFrameHeader(400ull * 1024 * 1024);
    const QByteArray chunk(1024 * 1024, 'a');
    for (int i = 0; i < 64 && !attacker.isClosed(); ++i) {
        attacker.sendBytes(chunk);
        settle(5);
    }
    ASSERT_TRUE(waitFor([&] { return attacker.isClosed(); }));
    // Up to 64 MiB arrive before the bridge closes the connection; none of it may be kept.
    EXPECT_LT(bridge->peakMiB() - before, 32) << "growth of the bridge's resident memory";
}

namespace {

// How long each of a paired phone's calls takes to come back, the median of a few.
double medianCallMilliseconds(TestPeer& phone, const std::function<void()>& meanwhile = {})
{
    std::vector<qint64> took;
    for (int call = 0; call < 15; ++call) {
        const QString id = QStringLiteral("timed-%1").arg(call);
        QElapsedTimer clock;
        clock.start();
        phone.request(id, "thread/list");
        const bool answered = waitFor([&] {
            return std::any_of(phone.received.begin(), phone.received.end(),
                               [&](const BridgeMessage& message) { return message.id == id; });
        });
        took.push_back(answered ? clock.elapsed() : 20000);
        if (meanwhile)
            meanwhile();
    }
    std::sort(took.begin(), took.end());
    return static_cast<double>(took[took.size() / 2]);
}

} // namespace

TEST_F(BridgeEndToEndTest, PipelinedFileRequestsThatAreNeverReadCostTheBridgeLittle)
{
    environment.insert("ASAN_OPTIONS",
                       qEnvironmentVariable("ASAN_OPTIONS") + ":quarantine_size_mb=1");
    QString portText;
    auto bridge = startBridge(&portText);
    const quint16 port = static_cast<quint16>(portText.toUInt());
    auto phone = pairedPeer(*bridge, port, "Phone", "Phone");
    const double before = bridge->residentMiB();

    // Eight connections each send 1.5 MB of requests for the page's largest file, reading nothing.
    QByteArray requests;
    while (requests.size() < 1536 * 1024)
        requests += "GET /app.js HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    std::vector<std::unique_ptr<RawWebSocket>> browsers;
    for (int i = 0; i < 8; ++i) {
        browsers.push_back(std::make_unique<RawWebSocket>(port));
        browsers.back()->stopReading();
        browsers.back()->sendBytes(requests);
    }
    settle(2000);
    phone->request("during", "thread/list");
    ASSERT_TRUE(phone->waitFor(BridgeMessageKind::Response));
    EXPECT_LT(bridge->peakMiB() - before, 100) << "growth of the bridge's resident memory";
}

TEST_F(BridgeEndToEndTest, AStrangerThatReadsSlowlyDoesNotHoldAPairedPhoneBack)
{
    QString portText;
    auto bridge = startBridge(&portText);
    const quint16 port = static_cast<quint16>(portText.toUInt());
    auto phone = pairedPeer(*bridge, port, "Phone", "Phone");
    const double idle = medianCallMilliseconds(*phone);

    // Never paired: it pings with large ids and takes a little of the answers now and then.
    RawWebSocket stranger(port);
    ASSERT_EQ(stranger.upgrade("Stranger"), 101);
    stranger.stopReading();
    const QByteArray ping =
        R"({"version":1,"kind":"ping","id":")" + QByteArray(60 * 1024, 'x') + R"("})";
    const auto pester = [&] {
        for (int i = 0; i < 4; ++i)
            stranger.sendText(ping);
        stranger.resumeReading();
        settle(2);
        stranger.stopReading();
    };
    for (int i = 0; i < 4; ++i)
        pester();
    const double attacked = medianCallMilliseconds(*phone, pester);
    // Held back, a call waited more than a second; a loaded machine adds some milliseconds.
    EXPECT_LT(attacked, idle + 250) << "idle median " << idle << " ms";
}

TEST_F(BridgeEndToEndTest, StrangersPingingAndNeverReadingAreClosedAndCostLittle)
{
    environment.insert("ASAN_OPTIONS",
                       qEnvironmentVariable("ASAN_OPTIONS") + ":quarantine_size_mb=1");
    QString portText;
    auto bridge = startBridge(&portText);
    const quint16 port = static_cast<quint16>(portText.toUInt());
    auto phone = pairedPeer(*bridge, port, "Phone", "Phone");
    const double idle = medianCallMilliseconds(*phone);
    const double before = bridge->residentMiB();

    // Four connections that never pair send ping frames for up to 15 s and read nothing.
    std::vector<std::unique_ptr<RawWebSocket>> pingers;
    for (int i = 0; i < 4; ++i) {
        pingers.push_back(std::make_unique<RawWebSocket>(port));
        ASSERT_EQ(pingers.back()->upgrade(QStringLiteral("Pinger %1").arg(i)), 101);
        pingers.back()->stopReading();
    }
    const auto allClosed = [&] {
        return std::all_of(pingers.begin(), pingers.end(),
                           [](const auto& p) { return p->isClosed(); });
    };
    QElapsedTimer flooding;
    flooding.start();
    const auto flood = [&] {
        for (const auto& pinger : pingers)
            for (int i = 0; i < 200 && !pinger->isClosed(); ++i)
                pinger->sendFrame(QByteArray(125, 'p'), 0x9);
        settle(5);
    };
    const double attacked = medianCallMilliseconds(*phone, flood);
    while (!allClosed() && flooding.elapsed() < 15000)
        flood();
    EXPECT_TRUE(allClosed());
    EXPECT_LT(bridge->peakMiB() - before, 64) << "growth of the bridge's resident memory";
    EXPECT_LT(attacked, idle + 100) << "idle median " << idle << " ms";
}

TEST_F(BridgeEndToEndTest, AStalledPeerIsDroppedWhileAReadingPeerGetsEveryDelta)
{
    // Some 25 MB for each peer, several times what the stalled one may hold with the kernel's
    // buffers on both sides, however fast or slowly the machine runs.
    constexpr int deltas = 150000;
    engine.setScenario(floodScenario(deltas));
    environment.insert("ASAN_OPTIONS",
                       qEnvironmentVariable("ASAN_OPTIONS") + ":quarantine_size_mb=1");
    environment.insert("NIMBREL_PEER_BACKLOG_BYTES", QString::number(4 * 1024 * 1024));
    QString portText;
    auto bridge = startBridge(&portText);
    const quint16 port = static_cast<quint16>(portText.toUInt());
    auto reader = pairedPeer(*bridge, port, "Reader", "Reading Phone");
    auto stalledDevice = pairedPeer(*bridge, port, "Stalled", "Stalled Phone");
    stalledDevice->close();
    ASSERT_TRUE(waitFor([&] { return !bridge->err.contains("Stalled was disconnected"); }));

    // The same device again, as a client that stops reading once it is authorised.
    RawWebSocket stalled(port);
    ASSERT_EQ(stalled.upgrade("Stalled"), 101);
    stalled.sendText(
        encodeBridgeMessage({1,
                             BridgeMessageKind::Hello,
                             {},
                             {},
                             stalledDevice->identity->makeHello("Stalled Phone").value().toBody()})
            .value());
    ASSERT_TRUE(waitFor(
        [&] { return bridge->err.count("Authenticated Stalled Phone from 127.0.0.1.") == 1; }));
    stalled.stopReading();

    int received = 0;
    reader->onText = [&](const QString& text) {
        if (text.contains(QLatin1String("item/fileChange/outputDelta")))
            ++received;
    };
    const double before = bridge->residentMiB();
    reader->request("flood", "thread/read");
    ASSERT_TRUE(waitFor([&] { return received == deltas; }, 240000))
        << received << " of " << deltas;
    EXPECT_TRUE(bridge->err.contains("Stalled was disconnected: it is not keeping up."))
        << bridge->err.toStdString();
    // About 56 MiB under the sanitiser, with the stalled peer dropped.
    EXPECT_LT(bridge->peakMiB() - before, 80) << "growth of the bridge's resident memory";
}

namespace {

// A bridge of the test's own: a host link whose certificate key and hello the test chooses, and
// that accepts every pairing. After its hello it sends afterHello as it is, where there is one.
class StandInBridge {
public:
    StandInBridge(EVP_PKEY* certificateKey, std::shared_ptr<const DeviceIdentity> helloIdentity,
                  QByteArray afterHello = {})
        : m_identity(std::move(helloIdentity))
        , m_link(PeerLinkMode::Host, "Stand-in", m_scheduler, certificateKey,
                 PeerLinkSettings{QHostAddress::LocalHost, 0})
    {
        m_link.onConnected = [this, afterHello](const QString& peer) {
            send({1,
                  BridgeMessageKind::Hello,
                  {},
                  {},
                  m_identity->makeHello("Stand-in").value().toBody()},
                 peer);
            if (!afterHello.isEmpty())
                m_link.send(afterHello, peer);
        };
        m_link.onData = [this](const QByteArray& data, const QString& peer) {
            auto message = decodeBridgeMessage(
                std::string_view(data.constData(), static_cast<std::size_t>(data.size())));
            if (message.ok() && message.value().kind == BridgeMessageKind::PairingRequest)
                send({1, BridgeMessageKind::PairingAccepted, {}, {}, {}}, peer);
        };
        m_link.start();
    }
    QString port() const { return QString::number(m_link.listeningPort()); }

private:
    void send(const BridgeMessage& message, const QString& peer)
    {
        m_link.send(encodeBridgeMessage(message).value(), peer);
    }

    VirtualScheduler m_scheduler;
    std::shared_ptr<const DeviceIdentity> m_identity;
    PeerLink m_link;
};

} // namespace

TEST_F(BridgeEndToEndTest, ThePeerToolRefusesABridgeThatIsNotWhatItSays)
{
    MemoryUserDefaults bridgeDefaults;
    const auto identity =
        DeviceIdentity::create(SecretStore(home.filePath("bridge-a")), bridgeDefaults).value();
    // The same device id under a new key.
    const auto rekeyed =
        DeviceIdentity::create(SecretStore(home.filePath("bridge-b")), bridgeDefaults).value();
    ASSERT_EQ(rekeyed->deviceID(), identity->deviceID());
    const auto exitsWith = [](RunningProgram& tool, const QString& text) {
        return tool.saysOnError(text) && tool.waitForExit();
    };

    { // Its certificate carries another key than its hello.
        StandInBridge impostor(rekeyed->key(), identity);
        auto tool = startPeer(impostor.port(), {"pair"});
        EXPECT_TRUE(exitsWith(*tool, "The bridge's certificate does not match its hello."))
            << tool->err.toStdString();
        EXPECT_EQ(tool->exitCode(), 3);
    }
    { // A true bridge pairs, and is remembered.
        StandInBridge bridge(identity->key(), identity);
        auto tool = startPeer(bridge.port(), {"pair"});
        EXPECT_TRUE(exitsWith(*tool, "Paired.")) << tool->err.toStdString();
        EXPECT_EQ(tool->exitCode(), 0);
    }
    { // Later the same id shows another key, consistent with its certificate.
        StandInBridge changed(rekeyed->key(), rekeyed);
        auto tool = startPeer(changed.port(), {"pair"});
        EXPECT_TRUE(exitsWith(*tool, "This bridge's key changed since pairing."))
            << tool->err.toStdString();
        EXPECT_TRUE(tool->err.contains("nimbrel-peer forget-bridge " + identity->deviceID()));
        EXPECT_EQ(tool->exitCode(), 4);
        auto forget = startPeer(changed.port(), {"forget-bridge", identity->deviceID()});
        EXPECT_TRUE(exitsWith(*forget, "Forgot bridge"));
        auto again = startPeer(changed.port(), {"pair"});
        EXPECT_TRUE(exitsWith(*again, "Paired.")) << again->err.toStdString();
    }
}

TEST_F(BridgeEndToEndTest, ThePeerToolPrintsABridgesControlCharactersEscaped)
{
    MemoryUserDefaults bridgeDefaults;
    const auto identity =
        DeviceIdentity::create(SecretStore(home.filePath("bridge")), bridgeDefaults).value();
    StandInBridge bridge(identity->key(), identity,
                         "{\"version\":1,\"kind\":\"event\",\"method\":\"x\",\"body\":"
                         "\"\x1b]0;owned\x07\x1b[2J\r\nrm \xe2\x80\xae\xe2\x81\xa6"
                         "bd\"}");
    auto tool = startPeer(bridge.port(), {"watch"});
    ASSERT_TRUE(tool->saysOnOutput(R"("method":"x")")) << tool->err.toStdString();
    EXPECT_TRUE(
        tool->out.contains(R"("body":"\u001B]0;owned\u0007\u001B[2J\r\nrm \u202E\u2066bd"})"))
        << tool->out.toStdString();
    for (const QChar raw : {QChar(0x1b), QChar(0x07), QChar('\r'), QChar(0x202E), QChar(0x2066)})
        EXPECT_FALSE(tool->out.contains(raw)) << int(raw.unicode());
    EXPECT_EQ(tool->out.count('\n'), tool->out.count("{\"version\":1"));
}

namespace {

JSONValue sendAction(const char* message)
{
    return JSONValue::object({{"send", JSONValue::decode(message).value()}});
}

JSONValue cue(const char* word, std::vector<JSONValue> actions)
{
    return JSONValue::object({{"when", word}, {"actions", JSONValue::array(std::move(actions))}});
}

// The engine asks on cue words in a turn/start, and resolves each request it has an answer to.
JSONValue askingScenario()
{
    const char* question =
        R"({"id":%1,"method":"item/tool/requestUserInput","params":{"threadId":"thr_1","turnId":"turn_1",
        "questions":[{"id":"name","header":"","question":"Name?"}]}})";
    return JSONValue::object({
        {"cues",
         JSONValue::array({
             cue("approve-me",
                 {sendAction(
                      R"({"id":0,"method":"item/commandExecution/requestApproval","params":{"threadId":"thr_1","turnId":"turn_1","command":"make test","cwd":"/srv/\u202Eniam"}})"),
                  sendAction(
                      R"({"id":1,"method":"item/fileChange/requestApproval","params":{"threadId":"thr_1","turnId":"turn_1"}})")}),
             cue("ask-me", {sendAction(QString(question).arg(5).toUtf8().constData())}),
             cue("ask-and-close",
                 {sendAction(QString(question).arg(6).toUtf8().constData()),
                  sendAction(
                      R"({"method":"turn/completed","params":{"threadId":"thr_1","turn":{"id":"turn_1"}}})")}),
             cue("crash-me", {JSONValue::object({{"exit", 3}})}),
             cue("more-access",
                 {sendAction(
                     R"({"id":2,"method":"item/permissions/requestApproval","params":{"threadId":"thr_1","turnId":"turn_1","itemId":"c","cwd":"/srv","reason":"Needs the cache","permissions":{"fileSystem":{"write":["/var/cache/app"]},"network":{"enabled":true}}}})")}),
             cue("fill-form",
                 {sendAction(
                     R"({"id":3,"method":"mcpServer/elicitation/request","params":{"threadId":"thr_1","serverName":"tickets","mode":"form","message":"New ticket","requestedSchema":{"type":"object","required":["title"],"properties":{"title":{"type":"string","title":"Title","description":"One line"},"urgent":{"type":"boolean","default":false}}}}})")}),
             cue("visit-url",
                 {sendAction(
                     R"({"id":4,"method":"mcpServer/elicitation/request","params":{"threadId":"thr_1","serverName":"calendar","mode":"url","message":"Authorise access","elicitationId":"e-1","url":"https://calendar.example/consent"}})")}),
         })},
        {"responses",
         JSONValue::array({sendAction(
             R"({"method":"serverRequest/resolved","params":{"threadId":"thr_1","requestId":"$id"}})")})},
    });
}

const QString uuidPattern =
    QStringLiteral("([0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12})");

// The bridge over an engine that asks, with two nimbrel-peers paired.
class AskingEngineTest : public BridgeEndToEndTest {
protected:
    void SetUp() override
    {
        engine.setScenario(askingScenario());
        bridge = startBridge(&port);
        ada = pairedTool(*bridge, port, "Ada");
        bob = pairedTool(*bridge, port, "Bob");
    }

    QString port;
    std::unique_ptr<RunningProgram> bridge, ada, bob;
};

} // namespace

TEST_F(AskingEngineTest, ApprovalsAndQuestionsAreDecidedOnceByPeersOrTheConsole)
{
    ada->type(R"(call turn/start {"threadId": "thr_1", "text": "approve-me"})");

    const QString serverRequest = R"(\{"version":1,"kind":"serverRequest","id":")" + uuidPattern +
                                  R"(","method":"item/commandExecution/requestApproval")";
    const QString id = ada->captured(serverRequest, &RunningProgram::out);
    ASSERT_FALSE(id.isEmpty()) << ada->out.toStdString();
    EXPECT_EQ(bob->captured(serverRequest, &RunningProgram::out), id);
    ASSERT_TRUE(bridge->saysOnError("Approval " + id + ": Run this command?\n"))
        << bridge->err.toStdString();
    EXPECT_TRUE(bridge->err.contains("  Command: make test\n"));
    // Text that would read in another order than it runs is shown escaped, here and by the tool.
    EXPECT_TRUE(bridge->err.contains("  Folder: /srv/\\u202Eniam\n")) << bridge->err.toStdString();
    EXPECT_TRUE(ada->out.contains(R"("cwd":"/srv/\u202Eniam")")) << ada->out.toStdString();
    EXPECT_FALSE(ada->out.contains(QChar(0x202E)));

    ada->type("answer " + id + R"( {"decision": "accept"})");
    ASSERT_TRUE(waitFor([&] { return engineAnswers().size() == 1; }));
    bob->type("answer " + id + R"( {"decision": "decline"})");
    // The bridge's user now sees the file change that waited behind it. A decision typed for the
    // approval a phone answered first does not decide it; one typed after being told does.
    const QString next = bridge->captured("Approval " + uuidPattern + ": Apply file changes\\?");
    ASSERT_FALSE(next.isEmpty()) << bridge->err.toStdString();
    EXPECT_NE(next, id);
    bridge->type("accept-session");
    ASSERT_TRUE(bridge->saysOnError("Approval " + id +
                                    " is no longer waiting, so nothing was decided. The approval "
                                    "shown now is " +
                                    next + ": "))
        << bridge->err.toStdString();
    EXPECT_EQ(engineAnswers().size(), 1u);
    bridge->type("accept-session");
    ASSERT_TRUE(bridge->saysOnError("Answered " + next + " with acceptForSession."));
    ASSERT_TRUE(waitFor([&] { return engineAnswers().size() == 2; }));
    settle(150);
    const std::vector<JSONValue> answers = engineAnswers();
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(answers[0], JSONValue::decode(R"({"id":0,"result":{"decision":"accept"}})").value());
    EXPECT_EQ(answers[1],
              JSONValue::decode(R"({"id":1,"result":{"decision":"acceptForSession"}})").value());

    // A question answered on the console, by the start of its id.
    ada->type(R"(call turn/start {"threadId": "thr_1", "text": "ask-me"})");
    const QString question = bridge->captured("Question " + uuidPattern + " in session thr_1");
    ASSERT_FALSE(question.isEmpty()) << bridge->err.toStdString();
    bridge->type("answer " + question.left(6).toLower() + "  Grace Hopper ");
    ASSERT_TRUE(bridge->saysOnError("The answers to " + question + " reached Codex."))
        << bridge->err.toStdString();
    EXPECT_EQ(
        engineAnswers().back(),
        JSONValue::decode(R"({"id":5,"result":{"answers":{"name":{"answers":["Grace Hopper"]}}}})")
            .value());
    EXPECT_TRUE(bob->saysOnOutput(
        R"("method":"sarvane/userInputResolved","body":{"threadId":"thr_1","requestId":")" +
        question));
}

TEST_F(AskingEngineTest, MoreAccessFormsAndAddressesAreDecidedOnceByPeersOrTheConsole)
{
    const auto offered = [](const QString& method) {
        return R"(\{"version":1,"kind":"serverRequest","id":")" + uuidPattern + R"(","method":")" +
               method + '"';
    };
    const auto resolved = [](const QString& id) {
        return R"("kind":"event","method":"sarvane/serverRequestResolved","body":{"threadId":"thr_1","requestId":")" +
               id + '"';
    };

    // More access, granted for the session on the console; both phones hear it is decided.
    ada->type(R"(call turn/start {"threadId": "thr_1", "text": "more-access"})");
    const QString access =
        bob->captured(offered("item/permissions/requestApproval"), &RunningProgram::out);
    ASSERT_FALSE(access.isEmpty()) << bob->out.toStdString();
    ASSERT_TRUE(bridge->saysOnError(
        "Approval " + access +
        ": Grant additional access?\n  Needs the cache\n  Folder: /srv\n  Network access\n"
        "  Write: /var/cache/app\n"))
        << bridge->err.toStdString();
    bridge->type("accept-session");
    ASSERT_TRUE(waitFor([&] { return engineAnswers().size() == 1; }));
    EXPECT_EQ(
        engineAnswers()[0],
        JSONValue::decode(
            R"({"id":2,"result":{"permissions":{"fileSystem":{"write":["/var/cache/app"]},"network":{"enabled":true}},"scope":"session"}})")
            .value());
    EXPECT_TRUE(ada->saysOnOutput(resolved(access)));
    EXPECT_TRUE(bob->saysOnOutput(resolved(access)));

    // A form: its fields on the console, filled in by a phone first; the console is then told.
    ada->type(R"(call turn/start {"threadId": "thr_1", "text": "fill-form"})");
    const QString form =
        ada->captured(offered("mcpServer/elicitation/request"), &RunningProgram::out);
    ASSERT_FALSE(form.isEmpty()) << ada->out.toStdString();
    ASSERT_TRUE(bridge->saysOnError("Approval " + form +
                                    ": tickets asks for your input\n  New ticket\n  title "
                                    "(Title): text, required — One line\n  urgent: yes or no, "
                                    "default false\n"))
        << bridge->err.toStdString();
    ada->type("answer " + form + R"( {"action": "accept", "content": {"title": "From Ada"}})");
    ASSERT_TRUE(waitFor([&] { return engineAnswers().size() == 2; }));
    EXPECT_TRUE(bob->saysOnOutput(resolved(form)));
    bridge->type("fill title=Too late");
    ASSERT_TRUE(bridge->saysOnError("No form is waiting."));

    // An address: shown, and answered once the user says done.
    ada->type(R"(call turn/start {"threadId": "thr_1", "text": "visit-url"})");
    const QString url =
        bridge->captured("Approval " + uuidPattern + ": calendar asks you to open an address");
    ASSERT_TRUE(bridge->saysOnError("  Address: https://calendar.example/consent\n"))
        << bridge->err.toStdString();
    ASSERT_FALSE(url.isEmpty()) << bridge->err.toStdString();
    bridge->type("done " + url.left(8));
    ASSERT_TRUE(waitFor([&] { return engineAnswers().size() == 3; })) << bridge->err.toStdString();
    bob->type("answer " + url + R"( {"action": "cancel"})");
    settle(200);
    const std::vector<JSONValue> answers = engineAnswers();
    ASSERT_EQ(answers.size(), 3u);
    EXPECT_EQ(
        answers[1],
        JSONValue::decode(R"({"id":3,"result":{"action":"accept","content":{"title":"From Ada"}}})")
            .value());
    EXPECT_EQ(answers[2], JSONValue::decode(R"({"id":4,"result":{"action":"accept"}})").value());
}

TEST_F(BridgeEndToEndTest, TheConsoleSignsCodexInWithACodeAndPeersCannot)
{
    engine.setScenario(JSONValue::object(
        {{"methods",
          JSONValue::object(
              {{"account/read",
                JSONValue::array(
                    {JSONValue::object({{"result", JSONValue::object({{"account", nullptr}})}}),
                     JSONValue::object(
                         {{"result",
                           JSONValue::object(
                               {{"account",
                                 JSONValue::object({{"type", "chatgpt"},
                                                    {"email", "ada@example.com"}})}})}})})}})}}));
    QString port;
    auto bridge = startBridge(&port);
    ASSERT_TRUE(bridge->saysOnError("Sign-in required"));
    auto peer = pairedTool(*bridge, port, "Ada");
    peer->type(R"(call account/login/start {"type": "chatgptDeviceCode"})");
    ASSERT_TRUE(peer->saysOnOutput(R"("kind":"error")")) << peer->out.toStdString();

    bridge->type("login");
    ASSERT_TRUE(bridge->saysOnError("To sign Codex in, open https://auth.example.invalid/device on "
                                    "any device and enter the code ABCD-1234."))
        << bridge->err.toStdString();
    ASSERT_TRUE(bridge->saysOnError("Codex signed in."));
    ASSERT_TRUE(bridge->saysOnError("Signed in with chatgpt: ada@example.com"))
        << bridge->err.toStdString();
    const auto methods = engine.receivedMethods();
    EXPECT_EQ(std::count(methods.begin(), methods.end(), "account/login/start"), 1);
}

TEST_F(AskingEngineTest, AQuestionIsAnsweredOnceClosedByTheEngineAndGoneWithIt)
{
    const QString offered =
        R"("kind":"event","id":")" + uuidPattern + R"(","method":"sarvane/userInputRequest")";
    const QString resolved =
        R"("kind":"event","method":"sarvane/userInputResolved","body":{"threadId":"thr_1","requestId":")";
    const QString closedText =
        "This question has already closed, is being answered, or has an incomplete answer.";

    ada->type(R"(call turn/start {"threadId": "thr_1", "text": "ask-me"})");
    const QString id = bob->captured(offered, &RunningProgram::out);
    ASSERT_FALSE(id.isEmpty()) << bob->out.toStdString();
    EXPECT_EQ(ada->captured(offered, &RunningProgram::out), id);
    ASSERT_TRUE(bridge->saysOnError("Question " + id + " in session thr_1\n  1. Name?"));
    bob->type("answer " + id +
              R"( {"answers": {"name": {"answers": ["Ada"]}}} item/tool/requestUserInput)");
    ASSERT_TRUE(
        bob->saysOnOutput(R"({"version":1,"kind":"response","id":")" + id + R"(","body":{}})"))
        << bob->out.toStdString();
    EXPECT_LT(bob->out.indexOf(resolved + id),
              bob->out.indexOf(R"("kind":"response","id":")" + id));
    ASSERT_TRUE(ada->saysOnOutput(resolved + id));
    ada->type("answer " + id +
              R"( {"answers": {"name": {"answers": ["Bob"]}}} item/tool/requestUserInput)");
    ASSERT_TRUE(ada->saysOnOutput(R"("kind":"error","id":")" + id + R"(","body":")" + closedText));

    // The engine closes a question itself: no answer reaches it.
    ada->type(R"(call turn/start {"threadId": "thr_1", "text": "ask-and-close"})");
    ASSERT_TRUE(waitFor([&] { return bob->out.count("sarvane/userInputResolved") == 2; }))
        << bob->out.toStdString();

    // A peer that comes while a question is open is offered it; the engine's fall ends it.
    ada->type(R"(call turn/start {"threadId": "thr_1", "text": "ask-me"})");
    ASSERT_TRUE(waitFor([&] { return ada->out.count("sarvane/userInputRequest") == 3; }));
    auto cy = pairedTool(*bridge, port, "Cy");
    const QString open = cy->captured(offered, &RunningProgram::out);
    ASSERT_FALSE(open.isEmpty()) << cy->out.toStdString();
    ada->type(R"(call turn/start {"threadId": "thr_1", "text": "crash-me"})");
    ASSERT_TRUE(cy->saysOnOutput(R"("ready":false)"));
    cy->type("answer " + open +
             R"( {"answers": {"name": {"answers": ["Cy"]}}} item/tool/requestUserInput)");
    ASSERT_TRUE(cy->saysOnOutput(R"("kind":"error","id":")" + open + R"(","body":")" + closedText));

    const std::vector<JSONValue> answers = engineAnswers();
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(
        answers[0],
        JSONValue::decode(R"({"id":5,"result":{"answers":{"name":{"answers":["Ada"]}}}})").value());
}

TEST_F(AskingEngineTest, AnApprovalWaitsForAPhoneThatComesBack)
{
    // A phone leaves as a person would close the tool, so that it keeps the bridge it paired with.
    const auto leave = [](std::unique_ptr<RunningProgram>& phone) {
        phone->type("quit");
        EXPECT_TRUE(phone->waitForExit());
        phone.reset();
    };
    // Codex asks while only Ada's phone is there; then it drops too.
    leave(bob);
    ada->type(R"(call turn/start {"threadId": "thr_1", "text": "approve-me"})");
    // The whole line of the serverRequest of method.
    const auto offered = [](const QString& method) {
        return R"((\{"version":1,"kind":"serverRequest","id":")" + uuidPattern + R"(","method":")" +
               method + R"(",[^\n]*)\n)";
    };
    const QString command =
        ada->captured(offered("item/commandExecution/requestApproval"), &RunningProgram::out);
    const QString files =
        ada->captured(offered("item/fileChange/requestApproval"), &RunningProgram::out);
    ASSERT_FALSE(command.isEmpty() || files.isEmpty()) << ada->out.toStdString();
    const QString id = QRegularExpression(uuidPattern).match(command).captured(1);
    leave(ada);

    // Bob's phone comes back, trusted by its hello, is asked the very same and decides.
    bob = startPeer(port, {}, "Bob", "Bob");
    ASSERT_TRUE(bob->saysOnOutput(command)) << bob->out.toStdString();
    bob->type("answer " + id + R"( {"decision": "accept"})");
    ASSERT_TRUE(waitFor([&] { return engineAnswers().size() == 1; }));

    // Ada's comes back after: it is asked only what still waits, and its late answer is dropped.
    ada = startPeer(port, {}, "Ada", "Ada");
    ASSERT_TRUE(ada->saysOnOutput(files)) << ada->out.toStdString();
    EXPECT_FALSE(ada->out.contains(id));
    ada->type("answer " + id + R"( {"decision": "decline"})");
    settle(200);
    const std::vector<JSONValue> answers = engineAnswers();
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0], JSONValue::decode(R"({"id":0,"result":{"decision":"accept"}})").value());
}
