// Round trip of a 200-byte message: client -> link -> onData -> send -> client, against a plain
// TLS WebSocket echo server built from the same Qt classes, in the same run.
#include "peer/LinkCertificate.h"
#include "peer/PeerLink.h"
#include "platform/Scheduler.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSslConfiguration>
#include <QSslKey>
#include <QWebSocket>
#include <QWebSocketServer>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace nimbrel;

namespace {

constexpr int roundTrips = 3000;

// Microseconds of each round trip through whatever echoes at url.
std::vector<double> measure(const QUrl& url)
{
    QWebSocket client;
    client.setSslConfiguration(PeerLink::tlsConfiguration());
    QObject::connect(&client, &QWebSocket::sslErrors, [&] { client.ignoreSslErrors(); });
    const QString message = QString(200, QLatin1Char('m'));
    std::vector<double> samples;
    QElapsedTimer timer;
    QObject::connect(&client, &QWebSocket::connected, [&] {
        timer.start();
        client.sendTextMessage(message);
    });
    QObject::connect(&client, &QWebSocket::textMessageReceived, [&](const QString&) {
        samples.push_back(static_cast<double>(timer.nsecsElapsed()) / 1000.0);
        if (static_cast<int>(samples.size()) == roundTrips) {
            QCoreApplication::exit(0);
            return;
        }
        timer.restart();
        client.sendTextMessage(message);
    });
    client.open(url);
    QCoreApplication::exec();
    return samples;
}

void report(const char* name, std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    std::printf("%-28s median %7.1f us   p99 %7.1f us   (%zu round trips)\n", name,
                samples[samples.size() / 2], samples[samples.size() * 99 / 100], samples.size());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    SystemScheduler scheduler;

    PeerLink link(PeerLinkMode::Host, "Bench", scheduler, nullptr, {QHostAddress::LocalHost, 0});
    link.onData = [&](const QByteArray& data, const QString& peer) { link.send(data, peer); };
    // The bench's client is a paired device: strangers may send only a few small messages.
    link.onConnected = [&](const QString& peer) { link.setAuthorized(peer, true); };
    link.start();
    QUrl linkUrl(QStringLiteral("wss://127.0.0.1:%1/sarvane?name=Bench").arg(link.listeningPort()));

    const auto certificate = makeLinkCertificate(nullptr, "Echo").value();
    QWebSocketServer echo("Echo", QWebSocketServer::SecureMode);
    QSslConfiguration tls = PeerLink::tlsConfiguration();
    tls.setLocalCertificate(QSslCertificate(certificate.certificatePem));
    tls.setPrivateKey(QSslKey(certificate.privateKeyPem, QSsl::Ec));
    echo.setSslConfiguration(tls);
    QObject::connect(&echo, &QWebSocketServer::newConnection, [&] {
        QWebSocket* socket = echo.nextPendingConnection();
        QObject::connect(socket, &QWebSocket::textMessageReceived, socket,
                         [socket](const QString& m) { socket->sendTextMessage(m); });
    });
    echo.listen(QHostAddress::LocalHost, 0);
    const QUrl echoUrl(QStringLiteral("wss://127.0.0.1:%1/").arg(echo.serverPort()));

    for (int round = 1; round <= 2; ++round) {
        std::printf("round %d\n", round);
        report("plain Qt TLS echo", measure(echoUrl));
        report("through PeerLink", measure(linkUrl));
    }
    return 0;
}
