// A long turn through the real controller: the fake engine streams 100,000 agent-message deltas
// into one session that already holds 10,000 entries, while one paired peer watches. Prints how
// fast the main thread takes them in against the rate the engine writes them, how often the
// session is stored, the main thread's CPU time per delta, the round trip of a ping sent by the
// peer in the middle of the flood, and this process's peak memory. The peer has a thread of its
// own.
#include "BenchPeer.h"
#include "BenchSupport.h"
#include "bridge/BridgeController.h"
#include "platform/Scheduler.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <sys/resource.h>

#include <cstdio>

using namespace nimbrel;

namespace {

constexpr int deltaCount = 100000;
constexpr int heldEntries = 10000;
const std::string deltaText = "the build passes over the tests ";

double threadCPUSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// How long the fake engine takes to write the flood into a pipe that a plain reader empties.
double engineWriteSeconds(const QProcessEnvironment& environment)
{
    QProcess engine;
    engine.setProcessEnvironment(environment);
    engine.start(QStringLiteral(FAKE_CODEX_PATH), {"app-server"});
    engine.waitForStarted();
    QElapsedTimer timer;
    timer.start();
    engine.write(R"({"id":1,"method":"thread/read","params":{}})"
                 "\n");
    qint64 lines = 0;
    while (lines < deltaCount + 1 && engine.waitForReadyRead(5000))
        lines += engine.readAllStandardOutput().count('\n');
    const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    engine.closeWriteChannel();
    engine.waitForFinished();
    return seconds;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    const QString scenario = installFakeCodex(
        home, QStringLiteral(FAKE_CODEX_PATH),
        JSONValue::object(
            {{"thread/list",
              JSONValue::decode(R"({"result":{"data":[{"id":"thr_bench"}]}})").value()},
             {"thread/items/list", JSONValue::decode(R"({"result":{"data":[]}})").value()},
             {"thread/read", deltaFlood(deltaCount, "thr_bench", "item-live", deltaText)}}));
    qputenv("FAKE_CODEX_SCENARIO", scenario.toUtf8());
    qputenv("PATH", (home.filePath("bin") + ":/usr/bin:/bin").toUtf8());
    qputenv("HOME", home.path().toUtf8());
    const double engineSeconds = engineWriteSeconds(QProcessEnvironment::systemEnvironment());

    SystemScheduler scheduler;
    MemoryUserDefaults defaults;
    BridgeController controller(scheduler, defaults, PeerLinkSettings{QHostAddress::LocalHost, 0},
                                SecretStore(home.filePath("secrets")));
    CodexWorkspace& workspace = controller.workspace();
    controller.startOnce();
    pump([&] {
        return controller.appServerReady() &&
               workspace.sessionState("thr_bench").hasLoadedTranscript;
    });
    fillTranscript(workspace, "thr_bench", heldEntries);

    // The peer runs on a thread of its own, as a phone runs on a device of its own.
    QThread peerThread;
    peerThread.start();
    QObject peerContext;
    peerContext.moveToThread(&peerThread);
    auto onPeer = [&](const std::function<void()>& work) {
        QMetaObject::invokeMethod(&peerContext, work, Qt::BlockingQueuedConnection);
    };
    std::unique_ptr<BenchPeer> peer;
    const quint16 port = controller.link().listeningPort();
    onPeer([&] { peer = std::make_unique<BenchPeer>(home.filePath("peer"), port, "Bench"); });
    std::optional<HelloPayload> bridgeHello;
    pump([&] {
        onPeer([&] { bridgeHello = peer->bridgeHello; });
        return bridgeHello.has_value();
    });
    HelloPayload hello = peer->identity->makeHello("Bench").value();
    onPeer([&] {
        peer->send({1, BridgeMessageKind::Hello, {}, {}, hello.toBody()});
        peer->send({1, BridgeMessageKind::PairingRequest, {}, {}, {}});
    });
    const QString code = pairingCode(hello, *bridgeHello);
    pump([&] { return controller.pairingRequestWithCode(code).has_value(); });
    controller.approvePairing(*controller.pairingRequestWithCode(code));
    pump([&] { return controller.isAuthorized("Bench"); });

    long stores = 0;
    QObject::connect(&workspace, &CodexWorkspace::sessionChanged,
                     [&](const QString& id) { stores += id == "thr_bench"; });
    QElapsedTimer pingClock;
    std::atomic<double> pingMilliseconds = -1;
    bool pingSent = false;
    onPeer([&] {
        peer->onMessage = [&](const BridgeMessage& message) {
            if (message.kind == BridgeMessageKind::Response &&
                message.id == QStringLiteral("mid-flood"))
                pingMilliseconds = static_cast<double>(pingClock.nsecsElapsed()) / 1e6;
            if (!pingSent && peer->events >= deltaCount / 2) {
                pingSent = true;
                pingClock.start();
                peer->send({1, BridgeMessageKind::Ping, QStringLiteral("mid-flood"), {}, {}});
            }
        };
    });
    const auto liveText = [&] {
        const CodexSessionState* session = workspace.session("thr_bench");
        return session && session->transcript.back().id == "item-live"
                   ? session->transcript.back().text.size()
                   : 0;
    };
    const qsizetype expected = static_cast<qsizetype>(deltaCount * deltaText.size());

    const double cpuBefore = threadCPUSeconds();
    QElapsedTimer timer;
    timer.start();
    onPeer([&] {
        peer->send({1, BridgeMessageKind::Request, QStringLiteral("flood"),
                    QStringLiteral("thread/read"), JSONValue::object({})});
    });
    pump([&] {
        return liveText() == expected && peer->events >= deltaCount && pingMilliseconds >= 0;
    });
    const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    const double cpu = threadCPUSeconds() - cpuBefore;

    std::printf("live events: %d deltas into a session of %d entries, 1 peer watching\n",
                deltaCount, heldEntries);
    std::printf("    engine writes the flood alone:  %8.0f deltas/s\n", deltaCount / engineSeconds);
    std::printf("    main thread takes them in:      %8.0f deltas/s (%.2f of the engine's rate)\n",
                deltaCount / seconds, engineSeconds / seconds);
    std::printf("    session stores:                 %ld in %.2f s, %.1f/s\n", stores, seconds,
                static_cast<double>(stores) / seconds);
    std::printf("    main-thread CPU per delta:      %.2f us\n", cpu / deltaCount * 1e6);
    std::printf("    ping round trip mid-flood:      %.1f ms\n", pingMilliseconds.load());
    std::printf("    all text in the session:        %s\n", liveText() == expected ? "yes" : "NO");
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM"))
            std::printf("    this process (bridge and peer) %s\n", line.simplified().constData());
    onPeer([&] { peer.reset(); });
    peerThread.quit();
    peerThread.wait();
    return 0;
}
