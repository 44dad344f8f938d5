// What strangers on the network cost a paired phone and the bridge, between real processes on
// loopback:
//  (a) a paired phone's ping round trips while nothing else happens;
//  (b) the same during 200 TLS handshakes in 2 s from one address, and from 200 addresses;
//  (c) the bridge's memory while 4 unpaired connections send ping frames for 12 s and read nothing.
// NIMBREL_BENCH_BRIDGE runs another build of the bridge, for figures side by side.
#include "BenchPeer.h"
#include "BenchSupport.h"
#include "peer/BridgeMessage.h"
#include "peer/PeerLink.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QSslSocket>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <vector>

using namespace nimbrel;

namespace {

double statusMiB(qint64 pid, const char* field)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith(field))
            return line.mid(static_cast<qsizetype>(qstrlen(field)))
                       .trimmed()
                       .split(' ')[0]
                       .toDouble() /
                   1024;
    return 0;
}

// Opens `count` TLS connections over `seconds`, from 127.0.0.1 or each from an address of its own,
// and leaves them open a little, on a thread of its own.
class HandshakeFlood : public QThread {
public:
    HandshakeFlood(quint16 port, int count, double seconds, bool manyAddresses)
        : m_port(port)
        , m_count(count)
        , m_seconds(seconds)
        , m_manyAddresses(manyAddresses)
    {
    }
    std::atomic<int> encrypted = 0;

protected:
    void run() override
    {
        std::vector<std::unique_ptr<QSslSocket>> sockets;
        QEventLoop loop;
        QElapsedTimer clock;
        clock.start();
        const auto spin = [&](qint64 untilMs) {
            while (clock.elapsed() < untilMs)
                loop.processEvents(QEventLoop::AllEvents, 2);
        };
        for (int i = 0; i < m_count; ++i) {
            auto socket = std::make_unique<QSslSocket>();
            socket->setSslConfiguration(PeerLink::tlsConfiguration());
            QSslSocket* raw = socket.get();
            QObject::connect(raw, &QSslSocket::sslErrors, raw, [raw] { raw->ignoreSslErrors(); });
            QObject::connect(raw, &QSslSocket::encrypted, raw, [this] { ++encrypted; });
            if (m_manyAddresses)
                raw->bind(
                    QHostAddress(QStringLiteral("127.0.%1.%2").arg(10 + i / 250).arg(1 + i % 250)));
            raw->connectToHostEncrypted(QStringLiteral("127.0.0.1"), m_port);
            sockets.push_back(std::move(socket));
            spin(static_cast<qint64>((i + 1) * m_seconds * 1000 / m_count));
        }
        spin(static_cast<qint64>(m_seconds * 1000) + 3000);
    }

private:
    quint16 m_port;
    int m_count;
    double m_seconds;
    bool m_manyAddresses;
};

struct Pings {
    double median = 0, worst = 0;
    int count = 0;
};

// A paired phone pings the bridge one ping at a time until done() holds.
Pings pingUntil(BenchPeer& phone, const std::function<bool()>& done)
{
    std::vector<double> samples;
    bool answered = false;
    phone.onMessage = [&](const BridgeMessage& m) {
        if (m.kind == BridgeMessageKind::Response && m.body == JSONValue("pong"))
            answered = true;
    };
    QElapsedTimer timer;
    while (!done()) {
        answered = false;
        timer.start();
        phone.send({1, BridgeMessageKind::Ping, QStringLiteral("p"), {}, {}});
        pump([&] { return answered; }, 20000);
        samples.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
    }
    phone.onMessage = nullptr;
    std::sort(samples.begin(), samples.end());
    return {samples[samples.size() / 2], samples.back(), static_cast<int>(samples.size())};
}

void report(const char* what, const Pings& pings)
{
    std::printf("    %-44s median %6.1f ms  worst %6.1f ms  (%d pings)\n", what, pings.median,
                pings.worst, pings.count);
}

QByteArray maskedFrame(quint8 opcode, const QByteArray& payload)
{
    QByteArray frame;
    frame.append(static_cast<char>(0x80 | opcode));
    frame.append(static_cast<char>(0x80 | payload.size())); // under 126 bytes
    return frame + QByteArray(4, '\0') + payload;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    const QString scenario = installFakeCodex(
        home, QStringLiteral(FAKE_CODEX_PATH),
        JSONValue::object(
            {{"thread/list", JSONValue::decode(R"({"result":{"data":[]}})").value()}}));
    QProcessEnvironment environment = bridgeEnvironment(home, scenario);
    // Memory that the bridge frees counts as freed under the sanitiser too.
    environment.insert("ASAN_OPTIONS",
                       qEnvironmentVariable("ASAN_OPTIONS") + ":quarantine_size_mb=1");

    QProcess bridge;
    bridge.setProcessEnvironment(environment);
    QString errors;
    QObject::connect(&bridge, &QProcess::readyReadStandardError,
                     [&] { errors += QString::fromUtf8(bridge.readAllStandardError()); });
    const quint16 port = startBridge(bridge, errors, QStringLiteral(NIMBREL_BRIDGE_PATH));

    BenchPeer phone(home.filePath("phone"), port, QStringLiteral("Phone"));
    pump([&] { return phone.bridgeHello.has_value(); });
    phone.hello = phone.identity->makeHello(QStringLiteral("Bench Phone")).value();
    phone.send({1, BridgeMessageKind::Hello, {}, {}, phone.hello->toBody()});
    phone.send({1, BridgeMessageKind::PairingRequest, {}, {}, {}});
    const QString code = pairingCode(*phone.hello, *phone.bridgeHello);
    pump([&] { return errors.contains("Compare code " + code); });
    bridge.write(("approve " + code + "\n").toUtf8());
    pump([&] { return errors.contains(QStringLiteral("Paired Bench Phone")); });

    std::printf("(a, b) a paired phone's ping round trip\n");
    QElapsedTimer clock;
    clock.start();
    report("idle, 2 s", pingUntil(phone, [&] { return clock.elapsed() > 2000; }));
    for (const bool many : {false, true}) {
        HandshakeFlood flood(port, 200, 2, many);
        flood.start();
        const Pings during = pingUntil(phone, [&] { return flood.isFinished(); });
        report(many ? "200 handshakes in 2 s from 200 addresses"
                    : "200 handshakes in 2 s, one address",
               during);
        std::printf("    %-44s %d of 200 finished TLS\n", "", flood.encrypted.load());
        QThread::msleep(500);
        pump([] { return false; }, 11000); // the bridge drops what did not upgrade
    }

    std::printf("(c) 4 unpaired connections send ping frames for 12 s and read nothing\n");
    const double before = statusMiB(bridge.processId(), "VmRSS:");
    std::vector<std::unique_ptr<QSslSocket>> pingers;
    for (int i = 0; i < 4; ++i) {
        auto socket = std::make_unique<QSslSocket>();
        socket->setSslConfiguration(PeerLink::tlsConfiguration());
        QSslSocket* raw = socket.get();
        QObject::connect(raw, &QSslSocket::sslErrors, raw, [raw] { raw->ignoreSslErrors(); });
        raw->connectToHostEncrypted(QStringLiteral("127.0.0.1"), port);
        pump([&] { return raw->isEncrypted(); }, 5000);
        raw->write(QStringLiteral("GET /sarvane?name=Pinger%1 HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                                  "Upgrade: websocket\r\nConnection: Upgrade\r\n"
                                  "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                                  "Sec-WebSocket-Version: 13\r\n\r\n")
                       .arg(i)
                       .toLatin1());
        pump([&] { return raw->bytesAvailable() > 0; }, 5000);
        raw->readAll();
        raw->setReadBufferSize(1); // reads nothing more
        pingers.push_back(std::move(socket));
    }
    QByteArray burst;
    for (int i = 0; i < 1000; ++i)
        burst += maskedFrame(0x9, QByteArray(125, 'p'));
    double worst = 0;
    clock.restart();
    const Pings during = pingUntil(phone, [&] {
        for (const auto& pinger : pingers)
            if (pinger->state() == QAbstractSocket::ConnectedState &&
                pinger->bytesToWrite() < (1 << 20))
                pinger->write(burst);
        worst = std::max(worst, statusMiB(bridge.processId(), "VmRSS:") - before);
        return clock.elapsed() > 12000;
    });
    const long open = std::count_if(pingers.begin(), pingers.end(), [](const auto& p) {
        return p->state() == QAbstractSocket::ConnectedState;
    });
    std::printf("    bridge's growth: at most %.1f MiB; %ld of 4 still connected\n", worst, open);
    report("meanwhile", during);
    bridge.kill();
    bridge.waitForFinished();
    return 0;
}
