// The bridge's memory over a long run, as a heavy user drives it: four paired phones each start a
// turn that streams 2,000 deltas into one session, leave, and come back 1 to 4 seconds later to
// start the next, for as many minutes as the command line says (default 2). The session is listed,
// so it is open in a tab as it would be in the window. Runs without a display.
//
//   soak_bench [minutes]
//
// Prints the bridge's resident memory at the start, every 20 seconds, after the first minute and
// at the end, the turns run, and the growth per 1,000 turns after the first minute.
// NIMBREL_BENCH_BRIDGE runs another build of the bridge, for figures side by side.
#include "BenchPeer.h"
#include "BenchSupport.h"
#include "peer/BridgeMessage.h"
#include "peer/DeviceIdentity.h"
#include "peer/PeerLink.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTimer>
#include <QWebSocket>

#include <cstdio>
#include <memory>

using namespace nimbrel;

namespace {

constexpr const char* threadID = "thr_soak";
constexpr int deltasPerTurn = 2000;

// The bridge's resident memory in KiB.
long residentKiB(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.simplified().split(' ').value(1).toLong();
    return 0;
}

// A paired phone that comes and goes: it connects, says hello, starts a turn once the bridge
// knows it again, leaves when the turn is accepted, and comes back 1 to 4 seconds later.
class ComingAndGoingPeer {
public:
    ComingAndGoingPeer(std::shared_ptr<const DeviceIdentity> identity, HelloPayload hello,
                       quint16 port, QString name, long& turns)
        : m_identity(std::move(identity))
        , m_hello(std::move(hello))
        , m_port(port)
        , m_name(std::move(name))
        , m_turns(turns)
    {
    }

    void connectAgain()
    {
        if (m_stopped)
            return;
        m_socket = std::make_unique<QWebSocket>();
        m_socket->setSslConfiguration(PeerLink::tlsConfiguration());
        QWebSocket* socket = m_socket.get();
        QObject::connect(socket, &QWebSocket::sslErrors, [socket] { socket->ignoreSslErrors(); });
        QObject::connect(socket, &QWebSocket::textMessageReceived,
                         [this](const QString& text) { received(text); });
        m_socket->open(
            QUrl(QStringLiteral("wss://127.0.0.1:%1/sarvane?name=%2").arg(m_port).arg(m_name)));
    }

    void stop() { m_stopped = true; }

private:
    void send(const BridgeMessage& message)
    {
        m_socket->sendTextMessage(QString::fromUtf8(encodeBridgeMessage(message).value()));
    }

    void received(const QString& text)
    {
        const auto decoded = decodeBridgeMessage(text.toStdString());
        if (!decoded.ok())
            return;
        const BridgeMessage& message = decoded.value();
        if (message.kind == BridgeMessageKind::Hello) {
            send({1, BridgeMessageKind::Hello, {}, {}, m_hello.toBody()});
        } else if (message.kind == BridgeMessageKind::PairingAccepted) {
            send({1, BridgeMessageKind::Request, QStringLiteral("turn"),
                  QStringLiteral("turn/start"),
                  JSONValue::object(
                      {{"threadId", threadID},
                       {"input", JSONValue::array({JSONValue::object(
                                     {{"type", "text"}, {"text", "soak prompt"}})})}})});
        } else if (message.kind == BridgeMessageKind::Response &&
                   message.id == QStringLiteral("turn")) {
            ++m_turns;
            leave();
        }
    }

    void leave()
    {
        // Closed once this message is handled; the socket goes with the next connection.
        QWebSocket* socket = m_socket.get();
        QTimer::singleShot(0, socket, [socket] { socket->close(); });
        QTimer::singleShot(1000 + QRandomGenerator::global()->bounded(3000),
                           [this] { connectAgain(); });
    }

    std::shared_ptr<const DeviceIdentity> m_identity;
    HelloPayload m_hello;
    quint16 m_port;
    QString m_name;
    long& m_turns;
    std::unique_ptr<QWebSocket> m_socket;
    bool m_stopped = false;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // The first argument that is a number of minutes; others, meant for other benchmarks, are not.
    double minutes = 2;
    for (int i = 1; i < argc; ++i) {
        bool number = false;
        const double given = QString::fromLocal8Bit(argv[i]).toDouble(&number);
        if (number && given > 0) {
            minutes = given;
            break;
        }
    }

    QTemporaryDir home;
    const JSONValue listed = JSONValue::object({{"id", threadID},
                                                {"name", "Soak"},
                                                {"preview", "soak prompt"},
                                                {"cwd", "/tmp"},
                                                {"source", "cli"},
                                                {"status", "idle"},
                                                {"updatedAt", 1767225600}});
    const QString scenarioPath = installFakeCodex(
        home, QStringLiteral(FAKE_CODEX_PATH),
        JSONValue::object(
            {{"thread/list",
              JSONValue::object(
                  {{"result", JSONValue::object({{"data", JSONValue::array({listed})}})}})},
             {"turn/start",
              JSONValue::object(
                  {{"result", JSONValue::object(
                                  {{"turn", JSONValue::object({{"id", "turn"},
                                                               {"status", "inProgress"}})}})}})}}));
    // The history of the session and the turn each start cues, beside the methods.
    {
        QFile scenario(scenarioPath);
        scenario.open(QIODevice::ReadOnly);
        JSONValue document = JSONValue::decode(scenario.readAll().toStdString()).value();
        std::vector<std::pair<std::string, JSONValue>> members;
        for (const auto& member : document.members())
            members.emplace_back(std::string(member.name()), member.value);
        members.emplace_back("history",
                             JSONValue::object({{threadID, JSONValue::object({{"items", 45}})}}));
        members.emplace_back(
            "cues",
            JSONValue::array({JSONValue::object(
                {{"when", "soak prompt"},
                 {"actions", JSONValue::array({JSONValue::object(
                                 {{"streamTurn", JSONValue::object({{"threadId", threadID},
                                                                    {"turnId", "turn"},
                                                                    {"prompt", "soak prompt"},
                                                                    {"deltas", deltasPerTurn},
                                                                    {"numbered", true}})}})})}})}));
        scenario.close();
        scenario.open(QIODevice::WriteOnly | QIODevice::Truncate);
        scenario.write(QByteArray::fromStdString(*JSONValue::object(std::move(members)).encode()));
    }

    QProcessEnvironment environment = bridgeEnvironment(home, scenarioPath);
    environment.remove("DISPLAY");
    environment.remove("WAYLAND_DISPLAY");

    QProcess bridge;
    bridge.setProcessEnvironment(environment);
    QString errors;
    QObject::connect(&bridge, &QProcess::readyReadStandardError, [&] {
        errors += QString::fromUtf8(bridge.readAllStandardError());
        // Only the newest part is looked at; the log of a long run is not kept whole.
        if (errors.size() > 65536)
            errors = errors.right(16384);
    });
    const quint16 port = startBridge(bridge, errors, QStringLiteral(NIMBREL_BRIDGE_PATH));
    if (port == 0) {
        std::fprintf(stderr, "the bridge did not start: %s\n", qPrintable(errors));
        return 1;
    }

    // Four phones pair once, as in the bridge benchmark.
    long turns = 0;
    std::vector<std::unique_ptr<ComingAndGoingPeer>> peers;
    for (int i = 0; i < 4; ++i) {
        BenchPeer pairing(home.filePath(QStringLiteral("peer%1").arg(i)), port,
                          QStringLiteral("Phone-%1").arg(i));
        pump([&] { return pairing.bridgeHello.has_value(); });
        pairing.hello = pairing.identity->makeHello(QStringLiteral("Phone %1").arg(i)).value();
        pairing.send({1, BridgeMessageKind::Hello, {}, {}, pairing.hello->toBody()});
        pairing.send({1, BridgeMessageKind::PairingRequest, {}, {}, {}});
        const QString code = pairingCode(*pairing.hello, *pairing.bridgeHello);
        pump([&] { return errors.contains("Compare code " + code); });
        bridge.write(("approve " + code + "\n").toUtf8());
        pump([&] { return errors.contains(QStringLiteral("Paired Phone %1").arg(i)); });
        pairing.socket.close();
        peers.push_back(std::make_unique<ComingAndGoingPeer>(
            pairing.identity, *pairing.hello, port, QStringLiteral("Phone-%1").arg(i), turns));
    }
    pump([] { return false; }, 2000);

    const qint64 pid = bridge.processId();
    const double totalSeconds = minutes * 60;
    const double markSeconds = std::min(60.0, totalSeconds / 2);
    const long startKiB = residentKiB(pid);
    std::printf("soak: %.1f minutes, 4 peers, %d deltas a turn\n", minutes, deltasPerTurn);
    std::printf("  start             rss %7.1f MiB\n", startKiB / 1024.0);
    std::fflush(stdout);

    for (auto& peer : peers)
        peer->connectAgain();
    QElapsedTimer clock;
    clock.start();
    long markKiB = 0, markTurns = 0;
    double nextSample = 20;
    bool marked = false;
    while (clock.elapsed() < totalSeconds * 1000 && bridge.state() == QProcess::Running) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        const double elapsed = static_cast<double>(clock.elapsed()) / 1000;
        if (!marked && elapsed >= markSeconds) {
            marked = true;
            markKiB = residentKiB(pid);
            markTurns = turns;
            std::printf("  after %4.0f s      rss %7.1f MiB  turns %6ld  (mark)\n", elapsed,
                        markKiB / 1024.0, turns);
            std::fflush(stdout);
        }
        if (elapsed >= nextSample) {
            nextSample += 20;
            std::printf("  %6.0f s          rss %7.1f MiB  turns %6ld\n", elapsed,
                        residentKiB(pid) / 1024.0, turns);
            std::fflush(stdout);
        }
    }
    for (auto& peer : peers)
        peer->stop();
    pump([] { return false; }, 3000);
    const long endKiB = residentKiB(pid);
    std::printf("  end               rss %7.1f MiB  turns %6ld\n", endKiB / 1024.0, turns);
    if (bridge.state() != QProcess::Running)
        std::printf("  the bridge ended early: %s\n", qPrintable(errors.right(2000)));
    if (turns > markTurns)
        std::printf("  growth after the mark: %.2f MiB per 1,000 turns (%ld turns)\n",
                    (endKiB - markKiB) / 1024.0 / static_cast<double>(turns - markTurns) * 1000,
                    turns - markTurns);
    bridge.terminate();
    bridge.waitForFinished();
    return 0;
}
