#include "peer/DeviceIdentity.h"
#include "peer/PeerLink.h"
#include "platform/TextFormatting.h"
#include "support/EventLoop.h"
#include "support/TemporaryHome.h"
#include "support/VirtualScheduler.h"

#include <QFileInfo>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QWebSocket>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;
using ::testing::ElementsAre;

namespace {

const PeerLinkSettings loopback{QHostAddress::LocalHost, 0};

// A plain WebSocket client of the test's own, speaking TLS 1.3 to the link.
std::unique_ptr<QWebSocket> openClient(quint16 port, const QString& query, const QString& path = "/sarvane")
{
    auto socket = std::make_unique<QWebSocket>();
    const QSslConfiguration tls = PeerLink::tlsConfiguration();
    socket->setSslConfiguration(tls);
    QObject::connect(socket.get(), &QWebSocket::sslErrors, socket.get(), [s = socket.get()] { s->ignoreSslErrors(); });
    QUrl url(QStringLiteral("wss://127.0.0.1:%1%2").arg(port).arg(path));
    url.setQuery(query);
    socket->open(url);
    return socket;
}

std::unique_ptr<QWebSocket> openNamed(quint16 port, const QString& name)
{
    return openClient(port, QStringLiteral("name=") + QString::fromLatin1(QUrl::toPercentEncoding(name)));
}

// Everything a link raises, in order.
struct Recorder {
    std::vector<QString> connected, disconnected, statuses;
    std::vector<std::pair<QByteArray, QString>> data;

    void attach(PeerLink& link)
    {
        link.onConnected = [this](const QString& peer) { connected.push_back(peer); };
        link.onDisconnected = [this](const QString& peer) { disconnected.push_back(peer); };
        link.onData = [this](const QByteArray& bytes, const QString& peer) { data.emplace_back(bytes, peer); };
        QObject::connect(&link, &PeerLink::statusTextChanged, [this, &link] { statuses.push_back(link.statusText()); });
    }
};

class PeerLinkTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        host = std::make_unique<PeerLink>(PeerLinkMode::Host, "Desk", scheduler, nullptr, loopback);
        events.attach(*host);
        host->start();
        port = host->listeningPort();
        ASSERT_NE(port, 0);
    }

    VirtualScheduler scheduler;
    std::unique_ptr<PeerLink> host;
    Recorder events;
    quint16 port = 0;
};

TEST_F(PeerLinkTest, PeersConnectSendAndLeave)
{
    auto phone = openNamed(port, "Phone");
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 1; }));
    EXPECT_EQ(events.connected[0], "Phone");
    EXPECT_THAT(host->connectedPeers(), ElementsAre("Phone"));
    EXPECT_EQ(host->statusText(), "Connected to Phone");
    EXPECT_NE(std::find(events.statuses.begin(), events.statuses.end(), "Securing connection…"), events.statuses.end());

    ASSERT_TRUE(waitFor([&] { return phone->state() == QAbstractSocket::ConnectedState; }));
    phone->sendTextMessage(R"({"version":1,"kind":"ping","id":"p1"})");
    phone->sendBinaryMessage("binary too");
    ASSERT_TRUE(waitFor([&] { return events.data.size() == 2; }));
    EXPECT_EQ(events.data[0], std::make_pair(QByteArray(R"({"version":1,"kind":"ping","id":"p1"})"), QString("Phone")));
    EXPECT_EQ(events.data[1].first, "binary too");

    QStringList received;
    QObject::connect(phone.get(), &QWebSocket::textMessageReceived, [&](const QString& m) { received.append(m); });
    EXPECT_FALSE(host->send(R"({"version":1,"kind":"response","id":"p1","body":"pong"})", "Phone"));
    EXPECT_EQ(host->send("x", "Nobody"), QStringLiteral("Nobody is not connected."));
    ASSERT_TRUE(waitFor([&] { return received.size() == 1; }));
    EXPECT_EQ(received[0], R"({"version":1,"kind":"response","id":"p1","body":"pong"})");

    // A second peer takes the status line; the first stays connected.
    auto tablet = openNamed(port, "Tablet 📱");
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 2; }));
    EXPECT_EQ(host->statusText(), "Connected to Tablet 📱");
    EXPECT_THAT(host->connectedPeers(), ElementsAre("Phone", "Tablet 📱"));

    phone->close();
    ASSERT_TRUE(waitFor([&] { return events.disconnected.size() == 1; }));
    EXPECT_EQ(events.disconnected[0], "Phone");
    EXPECT_EQ(host->statusText(), "Available on local network");
    EXPECT_THAT(host->connectedPeers(), ElementsAre("Tablet 📱"));
}

TEST_F(PeerLinkTest, RefusedHandshakesRaiseNothing)
{
    const QString tooLong = QString(64, QLatin1Char('n'));
    std::vector<std::unique_ptr<QWebSocket>> refused;
    refused.push_back(openClient(port, ""));
    refused.push_back(openClient(port, "name="));
    refused.push_back(openClient(port, "name=" + tooLong));
    refused.push_back(openClient(port, "name=Phone", "/elsewhere"));
    refused.push_back(openClient(port, "other=Phone"));
    ASSERT_TRUE(waitFor([&] {
        return std::all_of(refused.begin(), refused.end(), [](const auto& s) { return s->state() == QAbstractSocket::UnconnectedState; });
    }));
    settle(100);
    EXPECT_TRUE(events.connected.empty());
    EXPECT_TRUE(events.disconnected.empty());
    EXPECT_TRUE(host->connectedPeers().isEmpty());

    // 63 user-perceived characters are fine, however many bytes they take.
    auto longest = openNamed(port, QString(62, QLatin1Char('n')) + "🇳🇴");
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 1; }));
}

TEST_F(PeerLinkTest, OversizedMessageClosesWith1009AndDeliversNothing)
{
    auto phone = openNamed(port, "Phone");
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 1 && phone->state() == QAbstractSocket::ConnectedState; }));
    phone->sendBinaryMessage(QByteArray(PeerLink::maximumMessageBytes + 1, 'x'));
    ASSERT_TRUE(waitFor([&] { return phone->state() == QAbstractSocket::UnconnectedState; }, 60000));
    EXPECT_EQ(phone->closeCode(), QWebSocketProtocol::CloseCodeTooMuchData);
    ASSERT_TRUE(waitFor([&] { return events.disconnected.size() == 1; }));
    EXPECT_TRUE(events.data.empty());
}

TEST_F(PeerLinkTest, SilentPeersAreDroppedAndAnsweringOnesKept)
{
    // A peer that completes the upgrade and then never reads or answers again.
    QSslSocket silent;
    const QSslConfiguration tls = PeerLink::tlsConfiguration();
    silent.setSslConfiguration(tls);
    silent.connectToHostEncrypted("127.0.0.1", port);
    ASSERT_TRUE(waitFor([&] { return silent.isEncrypted(); }));
    silent.write(QStringLiteral("GET /sarvane?name=Silent HTTP/1.1\r\nHost: 127.0.0.1:%1\r\nUpgrade: websocket\r\n"
                                "Connection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                                "Sec-WebSocket-Version: 13\r\n\r\n").arg(port).toLatin1());
    auto lively = openNamed(port, "Lively");
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 2; }));

    for (int tick = 1; tick <= 3; ++tick) {
        EXPECT_TRUE(events.disconnected.empty()) << tick;
        scheduler.advance(PeerLink::pingIntervalSeconds);
        settle(300); // the lively client's pong comes back over the real socket
    }
    ASSERT_TRUE(waitFor([&] { return events.disconnected.size() == 1; }));
    EXPECT_EQ(events.disconnected[0], "Silent");
    EXPECT_THAT(host->connectedPeers(), ElementsAre("Lively"));
}

TEST_F(PeerLinkTest, ConnectionLimitAndHandshakeLimit)
{
    std::vector<std::unique_ptr<QTcpSocket>> sockets;
    for (int i = 0; i < PeerLink::maximumConnections; ++i) {
        sockets.push_back(std::make_unique<QTcpSocket>());
        sockets.back()->connectToHost(QHostAddress::LocalHost, port);
    }
    ASSERT_TRUE(waitFor([&] {
        return std::all_of(sockets.begin(), sockets.end(), [](const auto& s) { return s->state() == QAbstractSocket::ConnectedState; });
    }));
    settle(200);
    QTcpSocket extra;
    extra.connectToHost(QHostAddress::LocalHost, port);
    ASSERT_TRUE(waitFor([&] { return extra.state() == QAbstractSocket::UnconnectedState; }));
    auto refused = openNamed(port, "Refused");
    ASSERT_TRUE(waitFor([&] { return refused->state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_TRUE(events.connected.empty());

    // None of them finished a handshake: all are dropped after ten seconds, and room comes back.
    scheduler.advance(PeerLink::handshakeLimitSeconds);
    ASSERT_TRUE(waitFor([&] {
        return std::all_of(sockets.begin(), sockets.end(), [](const auto& s) { return s->state() == QAbstractSocket::UnconnectedState; });
    }));
    EXPECT_TRUE(events.disconnected.empty());
    auto welcome = openNamed(port, "Welcome");
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 1; }));
}

TEST(PeerLink, LocalNamesAndTheCertificateKey)
{
    EXPECT_THAT(PeerLink::localNameFor("Mac").toStdString(), ::testing::MatchesRegex("Mac-[0-9A-F]{4}"));
    EXPECT_NE(PeerLink::localNameFor("Mac"), PeerLink::localNameFor("Mac"));
    const QString seventy(70, QLatin1Char('m'));
    EXPECT_EQ(PeerLink::localNameFor(seventy), seventy.left(63));
    const QString flags = QStringLiteral("🇳🇴").repeated(62);
    const QString cut = PeerLink::localNameFor(flags);
    EXPECT_EQ(characterCount(cut), 63);
    EXPECT_TRUE(cut.startsWith(flags));

    // The certificate is made over the device's own key, so a peer can match it to the hello.
    TemporaryHome home;
    SettingsUserDefaults defaults(home.filePath("defaults.ini"));
    const auto identity = DeviceIdentity::create(SecretStore(home.filePath("secrets")), defaults).value();
    VirtualScheduler scheduler;
    PeerLink host(PeerLinkMode::Host, "Desk", scheduler, identity->key(), loopback);
    const QByteArray spki = host.certificate().publicKey().toDer();
    EXPECT_EQ(spki.right(64), identity->publicKeyRaw());
    host.start();
    auto client = openNamed(host.listeningPort(), "Phone");
    ASSERT_TRUE(waitFor([&] { return client->state() == QAbstractSocket::ConnectedState; }));
    EXPECT_EQ(client->sslConfiguration().peerCertificate().publicKey().toDer().right(64), identity->publicKeyRaw());
    EXPECT_EQ(client->sslConfiguration().sessionProtocol(), QSsl::TlsV1_3);
}

TEST(PeerLink, ClientModeTalksToHostMode)
{
    VirtualScheduler scheduler;
    PeerLink host(PeerLinkMode::Host, "Desk", scheduler, nullptr, loopback);
    PeerLink phone(PeerLinkMode::Client, "Phone", scheduler);
    Recorder hostEvents, phoneEvents;
    hostEvents.attach(host);
    phoneEvents.attach(phone);
    host.start();
    phone.start();
    EXPECT_TRUE(phone.statusText() == "Looking for Macs…" || phone.statusText().startsWith("Discovery failed: "));
    phone.connectTo(QHostAddress::LocalHost, host.listeningPort(), "Desk");
    ASSERT_TRUE(waitFor([&] { return hostEvents.connected.size() == 1 && phoneEvents.connected.size() == 1; }));
    EXPECT_EQ(hostEvents.connected[0], phone.localName());
    EXPECT_EQ(phoneEvents.connected[0], "Desk");
    EXPECT_EQ(phone.statusText(), "Connected to Desk");

    EXPECT_FALSE(phone.send("from phone", "Desk"));
    EXPECT_FALSE(host.send("from desk", phone.localName()));
    ASSERT_TRUE(waitFor([&] { return hostEvents.data.size() == 1 && phoneEvents.data.size() == 1; }));
    EXPECT_EQ(hostEvents.data[0].first, "from phone");
    EXPECT_EQ(phoneEvents.data[0], std::make_pair(QByteArray("from desk"), QString("Desk")));
}

TEST(PeerLink, AdvertisingFailureLeavesTheServerListening)
{
    if (QFileInfo::exists("/run/avahi-daemon/socket"))
        GTEST_SKIP() << "an Avahi daemon runs here";
    VirtualScheduler scheduler;
    PeerLink host(PeerLinkMode::Host, "Desk", scheduler, nullptr, loopback);
    host.start();
    ASSERT_TRUE(waitFor([&] { return host.statusText().startsWith("Advertising failed: "); }));
    EXPECT_GT(host.statusText().size(), QStringLiteral("Advertising failed: ").size());
    int connected = 0;
    host.onConnected = [&](const QString&) { ++connected; };
    auto client = openNamed(host.listeningPort(), "Phone");
    ASSERT_TRUE(waitFor([&] { return connected == 1; }));

    // A port that is taken is an advertising failure too.
    PeerLink second(PeerLinkMode::Host, "Other", scheduler, nullptr, {QHostAddress::LocalHost, host.listeningPort()});
    second.start();
    EXPECT_TRUE(second.statusText().startsWith("Advertising failed: "));
}

} // namespace
