#include "peer/PeerLink.h"
#include "peer/DeviceIdentity.h"
#include "peer/LinkCertificate.h"
#include "platform/TextFormatting.h"
#include "support/EventLoop.h"
#include "support/RawWebSocket.h"
#include "support/TemporaryHome.h"
#include "support/VirtualScheduler.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>
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
std::unique_ptr<QWebSocket> openClient(quint16 port, const QString& query,
                                       const QString& path = "/sarvane")
{
    auto socket = std::make_unique<QWebSocket>();
    const QSslConfiguration tls = PeerLink::tlsConfiguration();
    socket->setSslConfiguration(tls);
    QObject::connect(socket.get(), &QWebSocket::sslErrors, socket.get(),
                     [s = socket.get()] { s->ignoreSslErrors(); });
    QUrl url(QStringLiteral("wss://127.0.0.1:%1%2").arg(port).arg(path));
    url.setQuery(query);
    socket->open(url);
    return socket;
}

std::unique_ptr<QWebSocket> openNamed(quint16 port, const QString& name)
{
    return openClient(port,
                      QStringLiteral("name=") + QString::fromLatin1(QUrl::toPercentEncoding(name)));
}

// Everything a link raises, in order.
struct Recorder {
    std::vector<QString> connected, disconnected, statuses;
    std::vector<std::pair<QByteArray, QString>> data;

    void attach(PeerLink& link)
    {
        link.onConnected = [this](const QString& peer) { connected.push_back(peer); };
        link.onDisconnected = [this](const QString& peer) { disconnected.push_back(peer); };
        link.onData = [this](const QByteArray& bytes, const QString& peer) {
            data.emplace_back(bytes, peer);
        };
        QObject::connect(&link, &PeerLink::statusTextChanged,
                         [this, &link] { statuses.push_back(link.statusText()); });
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
    EXPECT_NE(std::find(events.statuses.begin(), events.statuses.end(), "Securing connection…"),
              events.statuses.end());

    ASSERT_TRUE(waitFor([&] { return phone->state() == QAbstractSocket::ConnectedState; }));
    phone->sendTextMessage(R"({"version":1,"kind":"ping","id":"p1"})");
    phone->sendBinaryMessage("binary too");
    ASSERT_TRUE(waitFor([&] { return events.data.size() == 2; }));
    EXPECT_EQ(events.data[0], std::make_pair(QByteArray(R"({"version":1,"kind":"ping","id":"p1"})"),
                                             QString("Phone")));
    EXPECT_EQ(events.data[1].first, "binary too");

    QStringList received;
    QObject::connect(phone.get(), &QWebSocket::textMessageReceived,
                     [&](const QString& m) { received.append(m); });
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
        return std::all_of(refused.begin(), refused.end(), [](const auto& s) {
            return s->state() == QAbstractSocket::UnconnectedState;
        });
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
    ASSERT_TRUE(waitFor([&] {
        return events.connected.size() == 1 && phone->state() == QAbstractSocket::ConnectedState;
    }));
    phone->sendBinaryMessage(QByteArray(PeerLink::maximumMessageBytes + 1, 'x'));
    ASSERT_TRUE(
        waitFor([&] { return phone->state() == QAbstractSocket::UnconnectedState; }, 60000));
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
    silent.write(
        QStringLiteral(
            "GET /sarvane?name=Silent HTTP/1.1\r\nHost: 127.0.0.1:%1\r\nUpgrade: websocket\r\n"
            "Connection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
            "Sec-WebSocket-Version: 13\r\n\r\n")
            .arg(port)
            .toLatin1());
    auto lively = openNamed(port, "Lively");
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 2; }));
    host->setAuthorized("Silent", true);
    host->setAuthorized("Lively", true);

    // Each ping round moves the clock on only once the lively client's pong has come back over the
    // real socket, however long that takes.
    for (int tick = 1; tick <= 3; ++tick) {
        EXPECT_TRUE(events.disconnected.empty()) << tick;
        scheduler.advance(PeerLink::pingIntervalSeconds);
        ASSERT_TRUE(waitFor([&] { return host->lastHeard("Lively") == scheduler.now(); })) << tick;
    }
    ASSERT_TRUE(waitFor([&] { return events.disconnected.size() == 1; }));
    EXPECT_EQ(events.disconnected[0], "Silent");
    EXPECT_THAT(host->connectedPeers(), ElementsAre("Lively"));
}

TEST_F(PeerLinkTest, StrangersHoldPartOfTheSlotsAndTheOldestMakesRoom)
{
    // Eight from each address, so that only the overall limits apply.
    std::vector<std::unique_ptr<QTcpSocket>> strangers;
    auto connectFrom = [&](int i) {
        strangers.push_back(std::make_unique<QTcpSocket>());
        strangers.back()->bind(QHostAddress(
            QStringLiteral("127.0.1.%1").arg(1 + i / PeerLink::maximumUnauthorizedPerAddress)));
        strangers.back()->connectToHost(QHostAddress::LocalHost, port);
    };
    auto connectedCount = [&] {
        return std::count_if(strangers.begin(), strangers.end(), [](const auto& s) {
            return s->state() == QAbstractSocket::ConnectedState;
        });
    };
    for (int i = 0; i < PeerLink::maximumUnauthorizedConnections; ++i)
        connectFrom(i);
    ASSERT_TRUE(
        waitFor([&] { return connectedCount() == PeerLink::maximumUnauthorizedConnections; }));
    settle(200);

    // A device on its way in takes the place of the oldest stranger, and once authorised it keeps
    // its slot while more strangers come.
    auto trusted = openNamed(port, "Trusted");
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 1; }));
    host->setAuthorized("Trusted", true);
    ASSERT_TRUE(
        waitFor([&] { return strangers.front()->state() == QAbstractSocket::UnconnectedState; }));
    for (int i = 0; i < 8; ++i)
        connectFrom(PeerLink::maximumUnauthorizedConnections + i);
    // The first newcomer found a stranger's slot free again; the others each took the oldest's.
    ASSERT_TRUE(
        waitFor([&] { return strangers[7]->state() == QAbstractSocket::UnconnectedState; }));
    ASSERT_TRUE(waitFor([&] {
        return connectedCount() == PeerLink::maximumUnauthorizedConnections &&
               strangers.back()->state() == QAbstractSocket::ConnectedState;
    }));
    settle(200); // and no more go
    EXPECT_EQ(strangers[8]->state(), QAbstractSocket::ConnectedState);
    EXPECT_EQ(connectedCount(), PeerLink::maximumUnauthorizedConnections);
    EXPECT_EQ(trusted->state(), QAbstractSocket::ConnectedState);

    // None of the strangers finished a handshake: all are dropped after ten seconds.
    scheduler.advance(PeerLink::handshakeLimitSeconds);
    ASSERT_TRUE(waitFor([&] { return connectedCount() == 0; }));
    EXPECT_TRUE(events.disconnected.empty());
    EXPECT_EQ(trusted->state(), QAbstractSocket::ConnectedState);
}

TEST_F(PeerLinkTest, AnAddressAtItsLimitGetsInInPlaceOfItsOwnIdleFileConnections)
{
    // A browser's earlier visit left connections that fetched files and wait; its next visit comes
    // in in their place, from the oldest.
    std::vector<std::unique_ptr<RawWebSocket>> fetched;
    for (int i = 0; i < PeerLink::maximumUnauthorizedPerAddress; ++i) {
        fetched.push_back(std::make_unique<RawWebSocket>(port));
        ASSERT_TRUE(
            fetched.back()->exchange("HEAD /app.js HTTP/1.1\r\n\r\n").startsWith("HTTP/1.1 200"));
    }
    RawWebSocket next(port);
    ASSERT_TRUE(next.encrypted());
    ASSERT_TRUE(waitFor([&] { return fetched[0]->isClosed(); }));
    EXPECT_FALSE(fetched[1]->isClosed());
    EXPECT_EQ(next.upgrade("Next visit"), 101);

    // Idle connections go after a few seconds.
    scheduler.advance(PeerLink::fileIdleLimitSeconds);
    ASSERT_TRUE(waitFor([&] { return fetched[7]->isClosed(); }));
    EXPECT_FALSE(next.isClosed());
}

TEST_F(PeerLinkTest, AnAddressStartsAFewHandshakesASecondAndTheRestWait)
{
    // Connections that close at once, so that no limit of connections applies.
    int started = 0;
    for (; started < 40; ++started) {
        QSslSocket socket;
        socket.setSslConfiguration(PeerLink::tlsConfiguration());
        socket.connectToHostEncrypted("127.0.0.1", port);
        if (!waitFor([&] { return socket.isEncrypted(); }, 5000))
            break;
        socket.abort();
        waitFor([&] { return host->statusText() == "Available on local network"; });
    }
    EXPECT_EQ(started, PeerLink::handshakeBurst);
    // The waiting one starts when its turn comes; another address starts at once.
    QSslSocket waiting, other;
    waiting.setSslConfiguration(PeerLink::tlsConfiguration());
    other.setSslConfiguration(PeerLink::tlsConfiguration());
    waiting.connectToHostEncrypted("127.0.0.1", port);
    other.bind(QHostAddress("127.0.0.2"));
    other.connectToHostEncrypted("127.0.0.1", port);
    ASSERT_TRUE(waitFor([&] { return other.isEncrypted(); }));
    EXPECT_FALSE(waiting.isEncrypted());
    ASSERT_TRUE(waitFor([&] {
        scheduler.advance(0.05);
        return waiting.isEncrypted();
    }));
}

TEST_F(PeerLinkTest, StrangersSendFewControlFramesAndWhatTheyAreSentCounts)
{
    auto trusted = openNamed(port, "Trusted");
    RawWebSocket pinger(port), quiet(port);
    ASSERT_EQ(pinger.upgrade("Pinger"), 101);
    ASSERT_EQ(quiet.upgrade("Quiet"), 101);
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 3; }));
    host->setAuthorized("Trusted", true);
    int pongs = 0;
    QObject::connect(trusted.get(), &QWebSocket::pong, [&] { ++pongs; });
    for (int i = 0; i < 50; ++i)
        trusted->ping("are you there");
    ASSERT_TRUE(waitFor([&] { return pongs == 50; }));

    // A stranger's burst of control frames is answered; past it, the stranger goes.
    for (int i = 0; i < PeerLink::controlFramesPerSecond; ++i)
        pinger.sendFrame("ping", 0x9);
    quiet.sendFrame("ping", 0x9);
    settle(300);
    EXPECT_FALSE(pinger.isClosed());
    pinger.sendFrame("one more", 0x9);
    ASSERT_TRUE(waitFor([&] { return pinger.closeCode().has_value(); }));
    EXPECT_EQ(*pinger.closeCode(), QWebSocketProtocol::CloseCodePolicyViolated);
    // Time restores the allowance; an authorised peer has none to keep.
    scheduler.advance(1);
    for (int i = 0; i < PeerLink::controlFramesPerSecond; ++i)
        quiet.sendFrame("ping", 0x9);
    settle(300);
    EXPECT_FALSE(quiet.closeCode().has_value());
    EXPECT_EQ(events.disconnected, std::vector<QString>{"Pinger"});
    EXPECT_EQ(trusted->state(), QAbstractSocket::ConnectedState);
}

TEST(PeerLinkNeighbours, IPv6NeighboursDoNotLockEachOtherOut)
{
    // Addresses of one /64 on the loopback interface, as neighbours on a home network have.
    const auto neighbour = [](int i) { return QStringLiteral("fd00::%1").arg(i); };
    for (int i = 1; i <= 7; ++i) {
        QProcess ip;
        ip.start("ip", {"-6", "addr", "add", neighbour(i) + "/128", "dev", "lo"});
        ip.waitForFinished();
        // Already there ("File exists", "address already assigned"): from an earlier run.
        const QByteArray error = ip.readAllStandardError();
        if (ip.exitCode() != 0 && !error.contains("exists") && !error.contains("already"))
            GTEST_SKIP() << "cannot add " << neighbour(i).toStdString()
                         << " to the loopback interface (needs root)";
    }
    VirtualScheduler scheduler;
    PeerLink host(PeerLinkMode::Host, "Desk", scheduler, nullptr, {QHostAddress::LocalHostIPv6, 0});
    host.start();
    const quint16 port = host.listeningPort();
    ASSERT_NE(port, 0);

    // One neighbour holds its eight silent connections; the ninth is refused, the other gets in.
    std::vector<std::unique_ptr<QTcpSocket>> silent;
    const auto connectFrom = [&](const QString& address) {
        silent.push_back(std::make_unique<QTcpSocket>());
        silent.back()->bind(QHostAddress(address));
        silent.back()->connectToHost(QHostAddress::LocalHostIPv6, port);
    };
    for (int i = 0; i < PeerLink::maximumUnauthorizedPerAddress; ++i)
        connectFrom("fd00::1");
    ASSERT_TRUE(waitFor([&] { return host.statusText() == "Securing connection…"; }));
    settle(200);
    RawWebSocket ninth(port, QHostAddress("fd00::1"));
    EXPECT_FALSE(ninth.encrypted());
    RawWebSocket phone(port, QHostAddress("fd00::2"));
    ASSERT_TRUE(phone.encrypted());
    ASSERT_EQ(phone.upgrade("Phone"), 101);
    ASSERT_TRUE(waitFor([&] { return host.connectedPeers().contains("Phone"); }));
    host.setAuthorized("Phone", true);

    // With the strangers' total full, a trusted phone still comes in and is authorised.
    for (int i = PeerLink::maximumUnauthorizedPerAddress;
         i < PeerLink::maximumUnauthorizedConnections; ++i)
        connectFrom(neighbour(2 + i / PeerLink::maximumUnauthorizedPerAddress));
    ASSERT_TRUE(waitFor([&] {
        return std::all_of(silent.begin(), silent.end(), [](const auto& socket) {
            return socket->state() == QAbstractSocket::ConnectedState;
        });
    }));
    settle(300);
    RawWebSocket second(port, QHostAddress("fd00::2"));
    ASSERT_TRUE(second.encrypted());
    ASSERT_EQ(second.upgrade("Second phone"), 101);
    ASSERT_TRUE(waitFor([&] { return host.connectedPeers().contains("Second phone"); }));
    host.setAuthorized("Second phone", true);
    settle(100);
    EXPECT_EQ(host.connectedPeers(), (QStringList{"Phone", "Second phone"}));
    EXPECT_TRUE(silent.front()->state() == QAbstractSocket::UnconnectedState || waitFor([&] {
                    return silent.front()->state() == QAbstractSocket::UnconnectedState;
                }));
}

TEST_F(PeerLinkTest, ANameBelongsToOneConnection)
{
    auto victim = openNamed(port, "Phone-A");
    ASSERT_TRUE(waitFor([&] {
        return events.connected.size() == 1 && victim->state() == QAbstractSocket::ConnectedState;
    }));

    RawWebSocket twin(port), forged(port), stranger(port), controlled(port);
    EXPECT_EQ(twin.upgrade("Phone-A"), 409);
    EXPECT_EQ(forged.upgrade("Phone-A", false), 409);
    EXPECT_EQ(controlled.upgrade("Phone\nB"), 400);
    // A bare GET under a free name never becomes a WebSocket, and raises nothing when it fails.
    stranger.upgrade("Phone-B", false);
    ASSERT_TRUE(waitFor([&] {
        return twin.isClosed() && forged.isClosed() && controlled.isClosed() && stranger.isClosed();
    }));
    RawWebSocket separated(port);
    EXPECT_EQ(separated.upgrade("Line\u2028sep"), 400);
    // A browser page may open the link only from the bridge's own origin.
    RawWebSocket otherSite(port), twoOrigins(port), ownPage(port);
    EXPECT_EQ(otherSite.upgrade("Phone-C", true, "Origin: https://example.com\r\n"), 403);
    EXPECT_EQ(twoOrigins.upgrade("Phone-C", true, "Origin: https://127.0.0.1\r\nOrigin: x\r\n"),
              400);
    EXPECT_EQ(ownPage.upgrade("Phone-C", true, "Origin: HTTPS://127.0.0.1\r\n"), 101);
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 2; }));
    settle(100);
    EXPECT_EQ(events.connected, (std::vector<QString>{"Phone-A", "Phone-C"}));
    EXPECT_TRUE(events.disconnected.empty());
    EXPECT_EQ(victim->state(), QAbstractSocket::ConnectedState);

    // Once the owner has gone, the name is free again.
    victim->close();
    ASSERT_TRUE(waitFor([&] { return events.disconnected.size() == 1; }));
    RawWebSocket heir(port);
    EXPECT_EQ(heir.upgrade("Phone-A"), 101);
}

TEST_F(PeerLinkTest, TheLinkServesThePageFilesOverTheSameConnection)
{
    RawWebSocket browser(port);
    const QByteArray page = browser.exchange("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    EXPECT_TRUE(page.startsWith("HTTP/1.1 200 OK\r\n")) << page.left(200).toStdString();
    EXPECT_TRUE(page.contains("Content-Security-Policy: default-src 'none'; script-src 'self';"));
    EXPECT_TRUE(page.contains("X-Content-Type-Options: nosniff\r\n"));
    EXPECT_TRUE(page.contains("<script type=\"module\" src=\"app.js\"></script>"));
    // The connection stays for the next file while it is not idle for the file idle limit.
    scheduler.advance(PeerLink::fileIdleLimitSeconds - 1);
    const QByteArray head = browser.exchange("HEAD /app.js HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    EXPECT_TRUE(head.startsWith("HTTP/1.1 200 OK\r\n") && head.endsWith("\r\n\r\n"))
        << head.toStdString();
    scheduler.advance(PeerLink::fileIdleLimitSeconds);
    ASSERT_TRUE(waitFor([&] { return browser.isClosed(); }));

    // Refusals close the connection.
    const std::pair<QByteArray, QByteArray> refused[] = {
        {"GET /../app.js HTTP/1.1\r\n\r\n", "404 "},
        {"GET /app.js/ HTTP/1.1\r\n\r\n", "404 "},
        {"POST / HTTP/1.1\r\nContent-Length: 0\r\n\r\n", "405 "},
        {"GET / HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello", "400 "},
        {"GET / HTTP/1.1\r\nX: " + QByteArray(16 * 1024, 'x') + "\r\n\r\n", "431 "},
        {"GET /\r\n\r\n", "400 "},
    };
    for (const auto& [request, status] : refused) {
        RawWebSocket client(port);
        EXPECT_TRUE(client.exchange(request).startsWith("HTTP/1.1 " + status))
            << request.left(40).toStdString();
        EXPECT_TRUE(waitFor([&] { return client.isClosed(); }));
    }
    EXPECT_TRUE(events.connected.empty());
}

TEST_F(PeerLinkTest, OneAddressHoldsAtMostEightUnauthorisedConnections)
{
    std::vector<std::unique_ptr<QWebSocket>> idle;
    for (int i = 0; i < PeerLink::maximumUnauthorizedPerAddress; ++i)
        idle.push_back(openNamed(port, QStringLiteral("Idle %1").arg(i)));
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 8; }));
    RawWebSocket ninth(port);
    EXPECT_FALSE(ninth.encrypted());
    EXPECT_TRUE(ninth.isClosed());

    RawWebSocket phone(port, QHostAddress("127.0.0.2"));
    ASSERT_TRUE(phone.encrypted());
    EXPECT_EQ(phone.upgrade("Phone"), 101);

    // An authorised connection leaves room for another.
    host->setAuthorized("Idle 0", true);
    RawWebSocket tenth(port);
    EXPECT_TRUE(tenth.encrypted());
}

TEST_F(PeerLinkTest, AConnectionStaysTenSecondsUnlessAuthorisedOrWaitingForTheUser)
{
    auto quiet = openNamed(port, "Quiet");
    auto waiting = openNamed(port, "Waiting");
    auto authorised = openNamed(port, "Authorised");
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 3; }));
    host->setAwaitingPairing("Waiting", true);
    host->setAuthorized("Authorised", true);
    scheduler.advance(PeerLink::helloLimitSeconds - 0.5);
    settle(100);
    EXPECT_TRUE(events.disconnected.empty());
    scheduler.advance(0.5);
    ASSERT_TRUE(waitFor([&] { return quiet->state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_EQ(quiet->closeCode(), QWebSocketProtocol::CloseCodePolicyViolated);
    EXPECT_EQ(events.disconnected, std::vector<QString>{"Quiet"});

    // The wait ends without rights: the peer has the limit again, then goes; so does one whose
    // rights end.
    scheduler.advance(PeerLink::helloLimitSeconds * 2);
    settle(100);
    EXPECT_EQ(events.disconnected.size(), 1u);
    host->setAwaitingPairing("Waiting", false);
    host->setAuthorized("Authorised", false);
    scheduler.advance(PeerLink::helloLimitSeconds - 0.5);
    settle(100);
    EXPECT_EQ(events.disconnected.size(), 1u);
    scheduler.advance(0.5);
    ASSERT_TRUE(waitFor([&] { return events.disconnected.size() == 3; }));
}

TEST_F(PeerLinkTest, StrangersSendLittleAndHoldNobodyBack)
{
    // Before its authorisation a peer may send small messages, and few of them.
    auto big = openNamed(port, "Big");
    auto chatty = openNamed(port, "Chatty");
    auto trusted = openNamed(port, "Trusted");
    ASSERT_TRUE(waitFor([&] {
        return events.connected.size() == 3 &&
               trusted->state() == QAbstractSocket::ConnectedState &&
               big->state() == QAbstractSocket::ConnectedState &&
               chatty->state() == QAbstractSocket::ConnectedState;
    }));
    host->setAuthorized("Trusted", true);
    big->sendTextMessage(QString(PeerLink::maximumUnauthorizedMessageBytes + 1, QLatin1Char('x')));
    trusted->sendTextMessage(
        QString(PeerLink::maximumUnauthorizedMessageBytes * 4, QLatin1Char('x')));
    for (int i = 0; i <= PeerLink::maximumUnauthorizedMessages; ++i)
        chatty->sendTextMessage(QStringLiteral("ping"));
    const auto from = [&](const QString& peer) {
        return std::count_if(events.data.begin(), events.data.end(),
                             [&](const auto& d) { return d.second == peer; });
    };
    // The trusted peer's larger message takes longer to arrive than the refusals.
    ASSERT_TRUE(waitFor([&] { return events.disconnected.size() == 2 && from("Trusted") == 1; }));
    EXPECT_EQ(big->closeCode(), QWebSocketProtocol::CloseCodeTooMuchData);
    EXPECT_EQ(chatty->closeCode(), QWebSocketProtocol::CloseCodePolicyViolated);
    EXPECT_EQ(from("Big"), 0);
    EXPECT_EQ(from("Chatty"), PeerLink::maximumUnauthorizedMessages);
    EXPECT_EQ(from("Trusted"), 1);

    // A stranger that reads slowly holds nobody back, and is dropped at its small bound.
    std::vector<QString> slow;
    host->onSlowPeer = [&](const QString& peer) { slow.push_back(peer); };
    RawWebSocket stranger(port);
    ASSERT_EQ(stranger.upgrade("Stranger"), 101);
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 4; }));
    stranger.stopReading();
    const QByteArray message(16 * 1024, 'x');
    for (int i = 0; i < 1000 && slow.empty(); ++i) {
        host->send(message, "Stranger");
        EXPECT_FALSE(host->congested());
        EXPECT_LE(host->backlog("Stranger"), PeerLink::maximumUnauthorizedBacklogBytes);
        if (i % 16 == 0)
            settle(5);
    }
    EXPECT_EQ(slow, std::vector<QString>{"Stranger"});
}

TEST_F(PeerLinkTest, FilesPipelinedAndNeverReadWaitInTheKernelNotTheLink)
{
    // Thousands of requests sent at once by a client that never reads: the link reads on only as
    // its answers are taken, answers a bounded number, and closes at the connection's lifetime.
    RawWebSocket browser(port);
    browser.stopReading();
    QByteArray requests;
    for (int i = 0; i < 4000; ++i)
        requests += "GET /app.js HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    browser.sendBytes(requests);
    settle(500);
    scheduler.advance(PeerLink::fileIdleLimitSeconds - 1);
    settle(100);
    EXPECT_FALSE(browser.isClosed());
    browser.resumeReading();
    int answers = 0;
    ASSERT_TRUE(waitFor([&] { return browser.isClosed(); }));
    answers = browser.received().count("HTTP/1.1 200 OK");
    EXPECT_EQ(answers, PeerLink::maximumFileRequests);
    EXPECT_TRUE(browser.received().contains("Connection: close\r\n"));

    // Serving does not extend a connection's life: one that keeps asking goes at thirty seconds.
    RawWebSocket keen(port);
    for (double at = 0; at < PeerLink::fileConnectionLifetimeSeconds; at += 4) {
        ASSERT_TRUE(keen.exchange("HEAD /app.js HTTP/1.1\r\n\r\n").startsWith("HTTP/1.1 200 OK"))
            << at;
        scheduler.advance(4);
    }
    ASSERT_TRUE(waitFor([&] { return keen.isClosed(); }));
    EXPECT_TRUE(events.connected.empty());
}

TEST_F(PeerLinkTest, APeerThatStopsReadingIsClosedAtItsBoundAndTheOthersKeepTheirs)
{
    std::vector<QString> slow;
    host->onSlowPeer = [&](const QString& peer) { slow.push_back(peer); };
    RawWebSocket stalled(port);
    ASSERT_EQ(stalled.upgrade("Stalled"), 101);
    auto reader = openNamed(port, "Reader");
    int read = 0;
    QObject::connect(reader.get(), &QWebSocket::textMessageReceived, [&] { ++read; });
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 2; }));
    host->setAuthorized("Stalled", true);
    host->setAuthorized("Reader", true);
    stalled.stopReading();

    // The sender waits while the link says a reading peer is far behind, as the bridge does; time
    // passes meanwhile, so a peer that takes nothing stops counting as one that reads.
    const QByteArray message(256 * 1024, 'x');
    int sent = 0, waits = 0;
    while (slow.empty() && sent < 1000) {
        host->send(message, "Stalled");
        host->send(message, "Reader");
        ++sent;
        EXPECT_LE(host->backlog("Stalled"), PeerLink::maximumPeerBacklogBytes);
        if (host->congested()) {
            ++waits;
            ASSERT_TRUE(waitFor([&] {
                scheduler.advance(0.01);
                return !host->congested();
            }));
        }
        QCoreApplication::processEvents();
    }
    EXPECT_GT(waits, 0);
    EXPECT_EQ(slow, std::vector<QString>{"Stalled"});
    EXPECT_GE(sent, PeerLink::maximumPeerBacklogBytes / message.size());
    ASSERT_TRUE(waitFor([&] { return events.disconnected.size() == 1; }));
    EXPECT_EQ(events.disconnected[0], "Stalled");
    EXPECT_FALSE(host->congested());

    // The reading peer gets everything; the stalled one, once it reads again, learns why it went.
    ASSERT_TRUE(waitFor([&] { return read == sent; }, 60000));
    stalled.resumeReading();
    ASSERT_TRUE(waitFor([&] { return stalled.closeCode().has_value(); }, 30000));
    EXPECT_EQ(*stalled.closeCode(), QWebSocketProtocol::CloseCodePolicyViolated);
}

TEST_F(PeerLinkTest, AllBacklogsTogetherAreBoundedTheLargestGoingFirst)
{
    const auto name = [](int i) { return QStringLiteral("Stalled %1").arg(i); };
    std::vector<QString> slow;
    bool largestWent = false;
    host->onSlowPeer = [&](const QString& peer) {
        slow.push_back(peer);
        largestWent = true;
        for (int i = 0; i < 5; ++i)
            largestWent = largestWent && host->backlog(peer) >= host->backlog(name(i));
    };
    std::vector<std::unique_ptr<RawWebSocket>> stalled;
    for (int i = 0; i < 5; ++i) {
        stalled.push_back(std::make_unique<RawWebSocket>(
            port, QHostAddress(QStringLiteral("127.0.2.%1").arg(i + 1))));
        ASSERT_EQ(stalled.back()->upgrade(name(i)), 101);
        stalled.back()->stopReading();
    }
    ASSERT_TRUE(waitFor([&] { return events.connected.size() == 5; }));
    for (int i = 0; i < 5; ++i)
        host->setAuthorized(name(i), true);
    const QByteArray message(1024 * 1024, 'x');
    for (int round = 0; round < 40 && slow.empty(); ++round) {
        for (int i = 0; i < 5 && slow.empty(); ++i)
            host->send(message, name(i));
        settle(10);
    }
    ASSERT_EQ(slow.size(), 1u);
    EXPECT_TRUE(largestWent);
    // The connection that went is the one named, it raised its end, and the total is what remains.
    EXPECT_EQ(events.disconnected, slow);
    EXPECT_FALSE(host->connectedPeers().contains(slow[0]));
    EXPECT_EQ(host->connectedPeers().size(), 4);
    qint64 total = 0;
    for (int i = 0; i < 5; ++i) {
        EXPECT_LT(host->backlog(name(i)), PeerLink::maximumPeerBacklogBytes);
        total += host->backlog(name(i));
    }
    EXPECT_EQ(host->totalBacklog(), total);
    EXPECT_LE(total, PeerLink::maximumTotalBacklogBytes);
    EXPECT_GT(total, PeerLink::maximumTotalBacklogBytes / 2);
}

TEST(PeerLink, LocalNamesAndTheCertificateKey)
{
    EXPECT_THAT(PeerLink::localNameFor("Mac").toStdString(),
                ::testing::MatchesRegex("Mac-[0-9A-F]{4}"));
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
    const auto identity =
        DeviceIdentity::create(SecretStore(home.filePath("secrets")), defaults).value();
    VirtualScheduler scheduler;
    PeerLink host(PeerLinkMode::Host, "Desk", scheduler, identity->key(), loopback);
    EXPECT_EQ(rawPublicKeyOfCertificateKey(host.certificate().publicKey().toDer()),
              identity->publicKeyRaw());
    host.start();
    auto client = openNamed(host.listeningPort(), "Phone");
    ASSERT_TRUE(waitFor([&] { return client->state() == QAbstractSocket::ConnectedState; }));
    EXPECT_EQ(rawPublicKeyOfCertificateKey(
                  client->sslConfiguration().peerCertificate().publicKey().toDer()),
              identity->publicKeyRaw());
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
    EXPECT_TRUE(phone.statusText() == "Looking for bridges…" ||
                phone.statusText().startsWith("Discovery failed: "));
    phone.connectTo(QHostAddress::LocalHost, host.listeningPort(), "Desk");
    ASSERT_TRUE(waitFor(
        [&] { return hostEvents.connected.size() == 1 && phoneEvents.connected.size() == 1; }));
    EXPECT_EQ(hostEvents.connected[0], phone.localName());
    EXPECT_EQ(phoneEvents.connected[0], "Desk");
    EXPECT_EQ(phone.statusText(), "Connected to Desk");

    EXPECT_FALSE(phone.send("from phone", "Desk"));
    EXPECT_FALSE(host.send("from desk", phone.localName()));
    ASSERT_TRUE(
        waitFor([&] { return hostEvents.data.size() == 1 && phoneEvents.data.size() == 1; }));
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
    PeerLink second(PeerLinkMode::Host, "Other", scheduler, nullptr,
                    {QHostAddress::LocalHost, host.listeningPort()});
    second.start();
    EXPECT_TRUE(second.statusText().startsWith("Advertising failed: "));
}

} // namespace
