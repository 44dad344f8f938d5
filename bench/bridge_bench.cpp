// The bridge between real processes on loopback:
//  (a) round trip of thread/list from a peer through nimbrel-bridge to the fake engine, against the
//      same request written straight to the fake engine's pipe;
//  (b) fan-out: the engine emits 100,000 deltas while 4 authorised peers watch.
#include "BenchPeer.h"
#include "BenchSupport.h"
#include "peer/BridgeMessage.h"
#include "peer/DeviceIdentity.h"
#include "peer/PeerLink.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <QThread>
#include <QWebSocket>

#include <algorithm>
#include <cstdio>

using namespace nimbrel;

namespace {

constexpr int roundTrips = 2000;
constexpr int floodCount = 100000;

struct Figures {
    double median, p99;
};

Figures summarise(std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    return {samples[samples.size() / 2], samples[samples.size() * 99 / 100]};
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    const QString scenario = installFakeCodex(
        home, QStringLiteral(FAKE_CODEX_PATH),
        JSONValue::object(
            {{"thread/list", JSONValue::decode(R"({"result":{"data":[]}})").value()},
             {"thread/read", deltaFlood(floodCount, "thr_0193a1b2c3d4e5f6", "item-a42",
                                        "the build passes over the tests ")}}));

    QProcessEnvironment environment = bridgeEnvironment(home, scenario);

    // (a, baseline) straight to the fake engine over its pipe.
    std::vector<double> direct;
    {
        QProcess engine;
        engine.setProcessEnvironment(environment);
        engine.start(QStringLiteral(FAKE_CODEX_PATH), {"app-server"});
        engine.waitForStarted();
        QByteArray buffer;
        QElapsedTimer timer;
        for (int i = 0; i < roundTrips; ++i) {
            timer.start();
            engine.write(QStringLiteral(R"({"id":%1,"method":"thread/list","params":{}})")
                             .arg(i + 1)
                             .toUtf8() +
                         "\n");
            while (!buffer.contains('\n')) {
                engine.waitForReadyRead(1000);
                buffer += engine.readAllStandardOutput();
            }
            direct.push_back(static_cast<double>(timer.nsecsElapsed()) / 1000.0);
            buffer.remove(0, buffer.indexOf('\n') + 1);
        }
        engine.closeWriteChannel();
        engine.waitForFinished();
    }

    QProcess bridge;
    bridge.setProcessEnvironment(environment);
    QString errors;
    QObject::connect(&bridge, &QProcess::readyReadStandardError,
                     [&] { errors += QString::fromUtf8(bridge.readAllStandardError()); });
    const quint16 port = startBridge(bridge, errors, QStringLiteral(NIMBREL_BRIDGE_PATH));

    // Four paired peers.
    std::vector<std::unique_ptr<BenchPeer>> peers;
    for (int i = 0; i < 4; ++i) {
        auto peer = std::make_unique<BenchPeer>(home.filePath(QStringLiteral("peer%1").arg(i)),
                                                port, QStringLiteral("Peer-%1").arg(i));
        BenchPeer* p = peer.get();
        pump([&] { return p->bridgeHello.has_value(); });
        p->hello = p->identity->makeHello(QStringLiteral("Bench %1").arg(i)).value();
        p->send({1, BridgeMessageKind::Hello, {}, {}, p->hello->toBody()});
        p->send({1, BridgeMessageKind::PairingRequest, {}, {}, {}});
        const QString code = pairingCode(*p->hello, *p->bridgeHello);
        pump([&] { return errors.contains("Compare code " + code); });
        bridge.write(("approve " + code + "\n").toUtf8());
        pump([&] { return errors.contains(QStringLiteral("Paired Bench %1").arg(i)); });
        peers.push_back(std::move(peer));
    }

    // (a) through the bridge.
    std::vector<double> relayed;
    {
        BenchPeer& peer = *peers[0];
        QElapsedTimer timer;
        bool answered = false;
        peer.onMessage = [&](const BridgeMessage& m) {
            if (m.kind == BridgeMessageKind::Response)
                answered = true;
        };
        for (int i = 0; i < roundTrips; ++i) {
            answered = false;
            timer.start();
            peer.send({1, BridgeMessageKind::Request, QStringLiteral("r%1").arg(i),
                       QStringLiteral("thread/list"), JSONValue::object({})});
            pump([&] { return answered; });
            relayed.push_back(static_cast<double>(timer.nsecsElapsed()) / 1000.0);
        }
        peer.onMessage = nullptr;
    }
    const Figures straight = summarise(direct), through = summarise(relayed);
    std::printf("(a) thread/list round trip, %d each\n", roundTrips);
    std::printf("    straight to the engine's pipe: median %7.1f us  p99 %7.1f us\n",
                straight.median, straight.p99);
    std::printf("    peer -> bridge -> engine:      median %7.1f us  p99 %7.1f us\n",
                through.median, through.p99);
    std::printf("    added by the bridge:           median %7.1f us  p99 %7.1f us\n",
                through.median - straight.median, through.p99 - straight.p99);

    // (b) fan-out.
    for (auto& peer : peers)
        peer->clock.start();
    peers[0]->send({1, BridgeMessageKind::Request, QStringLiteral("flood"),
                    QStringLiteral("thread/read"), JSONValue::object({})});
    pump(
        [&] {
            return std::all_of(peers.begin(), peers.end(),
                               [](const auto& p) { return p->events >= floodCount; });
        },
        600000);
    std::printf("(b) fan-out of %d deltas to %zu authorised peers\n", floodCount, peers.size());
    for (std::size_t i = 0; i < peers.size(); ++i)
        std::printf("    peer %zu: %ld events, %.0f events/s\n", i, peers[i]->events.load(),
                    peers[i]->events / peers[i]->lastEventAt);
    QFile status(QStringLiteral("/proc/%1/status").arg(bridge.processId()));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM") || line.startsWith("VmRSS"))
            std::printf("    bridge %s\n", line.simplified().constData());
    bridge.terminate();
    bridge.waitForFinished();
    return 0;
}
