#include "PeerLink.h"

#include "peer/CockpitFiles.h"
#include "peer/LinkCertificate.h"
#include "peer/PeerOutbox.h"
#include "platform/Property.h"
#include "platform/ServiceDiscovery.h"
#include "platform/TextFormatting.h"

#include <QPointer>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QUrl>
#include <QUrlQuery>
#include <QWebSocket>
#include <QWebSocketServer>

#include <algorithm>

#include <sys/socket.h>
#include <unistd.h>

namespace nimbrel {

namespace {

constexpr qsizetype maximumRequestHeaderBytes = 16 * 1024;

// What an upgrade request asks for: the name a connecting peer gives, or the HTTP status that
// refuses it (another path, no name, a name that is empty, too long or holds control characters).
struct UpgradeRequest {
    QString name;
    QByteArray refusal;
};

UpgradeRequest upgradeRequestOf(const WebRequest& request)
{
    static const QByteArray badRequest = "400 Bad Request";
    if (request.method != "GET")
        return {{}, badRequest};
    const QUrl url(QString::fromLatin1(request.target));
    if (!url.isValid() || url.path() != PeerLink::resourcePath)
        return {{}, badRequest};
    const QString name = QUrlQuery(url).queryItemValue(QStringLiteral("name"), QUrl::FullyDecoded);
    const int characters = characterCount(name);
    if (characters < 1 || characters > PeerLink::maximumNameCharacters || hasControlCharacters(name))
        return {{}, badRequest};
    // Browsers name the page that opens a WebSocket; only a page of the bridge's own origin may.
    // Other clients send no Origin.
    const QList<QByteArray> origins = request.values("origin"), hosts = request.values("host");
    if (origins.size() > 1 || hosts.size() > 1)
        return {{}, badRequest};
    if (!origins.isEmpty() &&
        (hosts.isEmpty() || origins[0].toLower() != "https://" + hosts[0].toLower()))
        return {{}, "403 Forbidden"};
    return {name, {}};
}

// The address a connection comes from, with IPv4 addresses seen through IPv6 written as IPv4.
QHostAddress sourceAddress(const QHostAddress& address)
{
    bool isIPv4 = false;
    const quint32 ipv4 = address.toIPv4Address(&isIPv4);
    return isIPv4 ? QHostAddress(ipv4) : address;
}

std::optional<QHostAddress> sourceAddressOf(qintptr descriptor)
{
    sockaddr_storage storage{};
    socklen_t length = sizeof(storage);
    if (::getpeername(static_cast<int>(descriptor), reinterpret_cast<sockaddr*>(&storage), &length) != 0)
        return std::nullopt;
    return sourceAddress(QHostAddress(reinterpret_cast<const sockaddr*>(&storage)));
}

} // namespace

// The listening socket; past the connection limit it closes new connections before any TLS.
class PeerLink::Server : public QSslServer {
public:
    Server(PeerLink* link) : QSslServer(link), m_link(link) {}

protected:
    void incomingConnection(qintptr descriptor) override
    {
        const std::optional<QHostAddress> source = sourceAddressOf(descriptor);
        if (static_cast<int>(m_link->m_connections.size()) >= maximumConnections || !source || !m_link->admits(*source)) {
            ::close(static_cast<int>(descriptor));
            return;
        }
        QSslServer::incomingConnection(descriptor);
        // Counted from the TCP accept on, including peers that never start TLS.
        for (QSslSocket* socket : findChildren<QSslSocket*>(Qt::FindDirectChildrenOnly))
            if (socket->socketDescriptor() == descriptor && !m_link->connectionFor(socket))
                m_link->acceptHandshake(socket);
    }

private:
    PeerLink* m_link;
};

struct PeerLink::Connection {
    QPointer<QSslSocket> tls;      // host mode: the TLS socket, under the WebSocket once upgraded
    QPointer<QWebSocket> socket;   // once upgraded (host) or from the start (client)
    QString name;                  // empty until the peer has said it
    QHostAddress remoteAddress;
    quint16 remotePort = 0;
    bool open = false;
    bool announced = false;        // onConnected ran, so onDisconnected will
    bool helloVerified = false;
    bool authorized = false;
    double lastHeard = 0;
    TaskHandle handshakeLimit;
    TaskHandle helloLimit;
    PeerOutbox outbox;             // messages waiting for room in the socket
    qint64 backlog = 0;            // outbox and socket, as last counted (see account)
    double lastProgress = 0;       // when the peer's side last took data, or data began to wait
    bool holdingBack = false;
};

PeerLinkSettings PeerLinkSettings::fromEnvironment()
{
    PeerLinkSettings settings;
    if (const QString address = qEnvironmentVariable("NIMBREL_LINK_ADDRESS"); !address.isEmpty())
        settings.address = QHostAddress(address);
    bool ok = false;
    if (const uint port = qEnvironmentVariable("NIMBREL_LINK_PORT").toUInt(&ok); ok && port <= 65535)
        settings.port = static_cast<quint16>(port);
    return settings;
}

QSslConfiguration PeerLink::tlsConfiguration()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setProtocol(QSsl::TlsV1_3OrLater);
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    return configuration;
}

QString PeerLink::localNameFor(const QString& displayName)
{
    return firstCharacters(displayName + QLatin1Char('-') + randomUUIDText().left(4), maximumNameCharacters);
}

PeerLink::PeerLink(PeerLinkMode mode, const QString& displayName, Scheduler& scheduler, EVP_PKEY* tlsKey,
                   PeerLinkSettings settings, QObject* parent)
    : QObject(parent), m_mode(mode), m_localName(localNameFor(displayName)), m_scheduler(scheduler), m_settings(settings)
{
    if (mode == PeerLinkMode::Host)
        useTlsKey(tlsKey);
}

void PeerLink::useTlsKey(EVP_PKEY* key)
{
    if (auto certificate = makeLinkCertificate(key, m_localName)) {
        m_certificate = QSslCertificate(certificate->certificatePem, QSsl::Pem);
        m_privateKeyPem = certificate->privateKeyPem;
    }
}

PeerLink::~PeerLink()
{
    if (m_keepAlive)
        m_keepAlive->cancel();
    if (m_congestionCheck)
        m_congestionCheck->cancel();
    for (const auto& connection : m_connections) {
        for (const TaskHandle& task : {connection->handshakeLimit, connection->helloLimit})
            if (task)
                task->cancel();
        if (connection->socket)
            QObject::disconnect(connection->socket, nullptr, this, nullptr);
        if (connection->tls)
            QObject::disconnect(connection->tls, nullptr, this, nullptr);
    }
}

quint16 PeerLink::listeningPort() const { return m_server ? m_server->serverPort() : 0; }

std::optional<std::pair<QHostAddress, quint16>> PeerLink::discoveredAddress(const QString& name) const
{
    for (const auto& [found, address] : m_found)
        if (found == name)
            return address;
    return std::nullopt;
}

// ---- starting

void PeerLink::start()
{
    m_keepAlive = m_scheduler.schedule(this, pingIntervalSeconds, [this] { keepAlive(); });
    m_discovery = new ServiceDiscovery(this);
    connect(m_discovery, &ServiceDiscovery::failed, this, [this](const QString& error) {
        setStatusText((m_mode == PeerLinkMode::Host ? QStringLiteral("Advertising failed: ") : QStringLiteral("Discovery failed: ")) + error);
    });
    if (m_mode == PeerLinkMode::Client) {
        connect(m_discovery, &ServiceDiscovery::serviceFound, this, [this](const QString& name, const QString& address, quint16 port) {
            m_found.emplace_back(name, std::make_pair(QHostAddress(address), port));
            if (!m_discoveredPeers.contains(name)) {
                m_discoveredPeers.append(name);
                emit discoveredPeersChanged();
            }
        });
        connect(m_discovery, &ServiceDiscovery::serviceLost, this, [this](const QString& name) {
            std::erase_if(m_found, [&](const auto& entry) { return entry.first == name; });
            if (m_discoveredPeers.removeAll(name) > 0)
                emit discoveredPeersChanged();
        });
        m_discovery->browse(serviceType);
        setStatusText(QStringLiteral("Looking for bridges…"));
        return;
    }
    setStatusText(QStringLiteral("Available on local network"));
    listen();
}

void PeerLink::listen()
{
    m_server = new Server(this);
    QSslConfiguration configuration = tlsConfiguration();
    configuration.setLocalCertificate(m_certificate);
    configuration.setPrivateKey(QSslKey(m_privateKeyPem, QSsl::Ec, QSsl::Pem));
    m_server->setSslConfiguration(configuration);
    // The link's own limit, on the injected clock, governs handshakes; this only backs it up.
    m_server->setHandshakeTimeout(24 * 3600 * 1000);
    // Qt stops accepting at this many unfinished connections; the link's own limit is lower.
    m_server->setMaxPendingConnections(4 * maximumConnections);
    m_upgrader = new QWebSocketServer(m_localName, QWebSocketServer::NonSecureMode, this);
    connect(m_upgrader, &QWebSocketServer::newConnection, this, [this] {
        while (QWebSocket* socket = m_upgrader->nextPendingConnection())
            adoptWebSocket(socket);
    });
    connect(m_server, &QSslServer::pendingConnectionAvailable, this, [this] {
        while (QTcpSocket* next = m_server->nextPendingConnection())
            if (auto connection = connectionFor(next)) {
                connect(next, &QIODevice::readyRead, this, [this, connection] { readUpgradeRequest(connection); });
                readUpgradeRequest(connection);
            }
    });
    if (!m_server->listen(m_settings.address, m_settings.port)) {
        setStatusText(QStringLiteral("Advertising failed: ") + m_server->errorString());
        return;
    }
    const QHostAddress address = m_settings.address;
    const QString host = address == QHostAddress::Any ? QStringLiteral("0.0.0.0")
                         : address.protocol() == QAbstractSocket::IPv6Protocol
                             ? QLatin1Char('[') + address.toString() + QLatin1Char(']')
                             : address.toString();
    emit listening(QStringLiteral("wss://") + host + QLatin1Char(':') + QString::number(listeningPort()) + resourcePath);
    m_discovery->publish(m_localName, serviceType, listeningPort(), {QStringLiteral("version=1")});
}

// ---- host mode: from TCP to WebSocket

void PeerLink::acceptHandshake(QSslSocket* socket)
{
    auto connection = std::make_shared<Connection>();
    connection->tls = socket;
    connection->remoteAddress = sourceAddress(socket->peerAddress());
    connection->remotePort = socket->peerPort();
    m_connections.push_back(connection);
    setStatusText(QStringLiteral("Securing connection…"));
    rearmHandshakeLimit(connection);
    connect(socket, &QAbstractSocket::disconnected, this,
            [this, connection] { closed(connection); });
    connect(socket, &QSslSocket::errorOccurred, this,
            [this, connection](QAbstractSocket::SocketError) {
                if (!connection->socket)
                    closed(connection);
            });
}

void PeerLink::rearmHandshakeLimit(const std::shared_ptr<Connection>& connection)
{
    if (connection->handshakeLimit)
        connection->handshakeLimit->cancel();
    std::weak_ptr<Connection> weak = connection;
    connection->handshakeLimit = m_scheduler.schedule(this, handshakeLimitSeconds, [weak] {
        if (auto expired = weak.lock(); expired && !expired->open) {
            if (expired->socket)
                expired->socket->abort();
            else if (expired->tls)
                expired->tls->abort();
        }
    });
}

void PeerLink::readUpgradeRequest(const std::shared_ptr<Connection>& connection)
{
    QSslSocket* socket = connection->tls;
    while (socket && !connection->socket && connection->name.isEmpty()) {
        const QByteArray buffered = socket->peek(maximumRequestHeaderBytes + 1);
        const qsizetype headerEnd = buffered.indexOf("\r\n\r\n");
        if (headerEnd < 0 && buffered.size() <= maximumRequestHeaderBytes)
            return; // wait for the rest of the request
        const std::optional<WebRequest> request =
            headerEnd < 0 ? std::nullopt : parseWebRequest(buffered.left(headerEnd));
        WebResponse response = headerEnd < 0 ? webRefusal("431 Request Header Fields Too Large")
                               : !request    ? webRefusal("400 Bad Request")
                                             : WebResponse{};
        // Any path but the WebSocket's is a request for one of the browser cockpit's files.
        if (request && request->path() != resourcePath.toLatin1())
            response = cockpitResponse(*request);
        if (!response.bytes.isEmpty()) {
            socket->read(headerEnd + 4);
            socket->write(response.bytes);
            if (!response.keepOpen) {
                disconnect(socket, &QIODevice::readyRead, this, nullptr);
                socket->disconnectFromHost();
                return;
            }
            // A connection that keeps asking for files stays while it is not idle for long.
            rearmHandshakeLimit(connection);
            continue;
        }
        UpgradeRequest upgrade = upgradeRequestOf(*request);
        // A name belongs to the connection that has it, from its upgrade until it closes.
        if (upgrade.refusal.isEmpty() &&
            std::any_of(m_connections.begin(), m_connections.end(),
                        [&](const auto& other) { return other->name == upgrade.name; }))
            upgrade.refusal = "409 Conflict";
        disconnect(socket, &QIODevice::readyRead, this, nullptr);
        if (!upgrade.refusal.isEmpty()) {
            socket->write(webRefusal(upgrade.refusal).bytes);
            socket->disconnectFromHost();
            return;
        }
        connection->name = upgrade.name;
        m_upgrader->handleConnection(socket);
        return;
    }
}

void PeerLink::adoptWebSocket(QWebSocket* socket)
{
    std::shared_ptr<Connection> connection;
    for (const auto& candidate : m_connections)
        if (!candidate->socket && candidate->tls && candidate->remotePort == socket->peerPort()
            && candidate->remoteAddress == sourceAddress(socket->peerAddress()))
            connection = candidate;
    if (!connection) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    connection->socket = socket;
    socket->setParent(this);
    watch(connection);
    opened(connection);
}

// ---- client mode

void PeerLink::connectTo(const QHostAddress& address, quint16 port, const QString& peerName)
{
    auto connection = std::make_shared<Connection>();
    connection->name = peerName.isEmpty() ? address.toString() + QLatin1Char(':') + QString::number(port) : peerName;
    auto* socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    socket->setSslConfiguration(tlsConfiguration());
    connect(socket, &QWebSocket::sslErrors, socket, [socket](const QList<QSslError>&) { socket->ignoreSslErrors(); });
    connection->socket = socket;
    m_connections.push_back(connection);
    watch(connection);
    connect(socket, &QWebSocket::connected, this, [this, connection] { opened(connection); });
    QUrl url;
    url.setScheme(QStringLiteral("wss"));
    url.setHost(address.toString());
    url.setPort(port);
    url.setPath(resourcePath);
    url.setQuery(QStringLiteral("name=") + QString::fromLatin1(QUrl::toPercentEncoding(m_localName)));
    setStatusText(QStringLiteral("Securing connection…"));
    socket->open(url);
}

// ---- open connections

void PeerLink::watch(const std::shared_ptr<Connection>& connection)
{
    QWebSocket* socket = connection->socket;
    // A frame announcing more than a message may hold is refused from its header on, before any
    // of it is buffered. Set before the event loop delivers the socket's first frame.
    socket->setMaxAllowedIncomingFrameSize(maximumMessageBytes);
    socket->setMaxAllowedIncomingMessageSize(maximumMessageBytes);
    auto heard = [this, connection] { connection->lastHeard = m_scheduler.now(); };
    connect(socket, &QWebSocket::textMessageReceived, this, [this, connection, heard](const QString& message) {
        heard();
        if (onData && connection->open)
            onData(message.toUtf8(), connection->name);
    });
    connect(socket, &QWebSocket::binaryMessageReceived, this, [this, connection, heard](const QByteArray& message) {
        heard();
        if (onData && connection->open)
            onData(message, connection->name);
    });
    connect(socket, &QWebSocket::pong, this, heard);
    connect(socket, &QWebSocket::disconnected, this, [this, connection] { closed(connection); });
    // Room in the socket: the peer's side took data.
    auto progressed = [this, connection] {
        connection->lastProgress = m_scheduler.now();
        pump(connection);
    };
    if (connection->tls) {
        connect(connection->tls, &QSslSocket::encryptedBytesWritten, this, progressed);
        connect(connection->tls, &QSslSocket::bytesWritten, this, progressed);
    } else {
        connect(socket, &QWebSocket::bytesWritten, this, progressed);
    }
}

void PeerLink::opened(const std::shared_ptr<Connection>& connection)
{
    if (connection->open)
        return;
    connection->open = true;
    connection->lastHeard = m_scheduler.now();
    if (connection->handshakeLimit)
        connection->handshakeLimit->cancel();
    if (m_mode == PeerLinkMode::Host) {
        std::weak_ptr<Connection> weak = connection;
        connection->helloLimit = m_scheduler.schedule(this, helloLimitSeconds, [this, weak] {
            if (auto expired = weak.lock())
                expireHello(expired);
        });
    }
    refreshConnectedPeers();
    setStatusText(QStringLiteral("Connected to ") + connection->name);
    connection->announced = true;
    if (onConnected)
        onConnected(connection->name);
}

void PeerLink::expireHello(const std::shared_ptr<Connection>& connection)
{
    if (!connection->helloVerified)
        closeConnection(connection, QWebSocketProtocol::CloseCodePolicyViolated, QStringLiteral("No verified hello"));
}

void PeerLink::closed(const std::shared_ptr<Connection>& connection)
{
    const auto position = std::find(m_connections.begin(), m_connections.end(), connection);
    if (position == m_connections.end())
        return; // already closed
    m_connections.erase(position);
    connection->open = false;
    for (const TaskHandle& task : {connection->handshakeLimit, connection->helloLimit})
        if (task)
            task->cancel();
    connection->outbox.clear();
    m_totalBacklog -= connection->backlog;
    connection->backlog = 0;
    if (connection->socket) {
        QObject::disconnect(connection->socket, nullptr, this, nullptr);
        if (connection->tls)
            QObject::disconnect(connection->tls, nullptr, this, nullptr);
        // A socket still closing keeps going until it is closed or its grace runs out.
        if (connection->socket->state() == QAbstractSocket::UnconnectedState) {
            connection->socket->deleteLater();
        } else {
            QPointer<QWebSocket> closing = connection->socket;
            connect(closing, &QWebSocket::disconnected, closing, &QObject::deleteLater);
            m_scheduler.schedule(closing, closingGraceSeconds, [closing] {
                closing->abort();
                closing->deleteLater();
            });
        }
    }
    if (connection->tls && !connection->socket) {
        QObject::disconnect(connection->tls, nullptr, this, nullptr);
        connection->tls->deleteLater();
    }
    refreshConnectedPeers();
    publishCongestion();
    setStatusText(idleStatus());
    // Only a connection that was announced raises its end: a refused or failed upgrade raises nothing.
    if (connection->announced && onDisconnected)
        onDisconnected(connection->name);
}

void PeerLink::closeConnection(const std::shared_ptr<Connection>& connection, int code, const QString& reason)
{
    if (connection->socket)
        connection->socket->close(static_cast<QWebSocketProtocol::CloseCode>(code), reason);
    else if (connection->tls)
        connection->tls->abort();
    closed(connection);
}

void PeerLink::keepAlive()
{
    m_keepAlive = m_scheduler.schedule(this, pingIntervalSeconds, [this] { keepAlive(); });
    const double now = m_scheduler.now();
    for (const auto& connection : std::vector(m_connections)) {
        if (!connection->open || !connection->socket)
            continue;
        if (now - connection->lastHeard >= silenceLimitSeconds)
            connection->socket->abort();
        else
            connection->socket->ping();
    }
}

std::optional<QString> PeerLink::send(const QByteArray& data, const QString& peer)
{
    const std::shared_ptr<Connection> connection = openConnectionNamed(peer);
    if (!connection)
        return peer + QStringLiteral(" is not connected.");
    if (connection->backlog == 0)
        connection->lastProgress = m_scheduler.now(); // the wait starts now
    // Nothing waits and the socket has room: the message goes straight to it.
    if (connection->outbox.empty() && bytesInSocket(*connection) < socketShareBytes)
        connection->socket->sendTextMessage(QString::fromUtf8(data));
    else
        connection->outbox.push(data);
    pump(connection);
    if (connection->backlog > maximumPeerBacklogBytes)
        dropSlowPeer(connection);
    else if (m_totalBacklog > maximumTotalBacklogBytes)
        enforceTotalBacklog();
    return std::nullopt;
}

// ---- what waits for a peer

qint64 PeerLink::bytesInSocket(const Connection& connection) const
{
    if (connection.tls)
        return connection.tls->bytesToWrite() + connection.tls->encryptedBytesToWrite();
    return connection.socket ? connection.socket->bytesToWrite() : 0;
}

qint64 PeerLink::backlog(const QString& peer) const
{
    const auto connection = openConnectionNamed(peer);
    return connection ? connection->backlog : 0;
}

// Hands queued messages to the socket while it holds less than its share.
void PeerLink::pump(const std::shared_ptr<Connection>& connection)
{
    QWebSocket* socket = connection->socket;
    if (!socket || !connection->open)
        return;
    while (!connection->outbox.empty() && bytesInSocket(*connection) < socketShareBytes)
        socket->sendTextMessage(connection->outbox.popText());
    account(*connection);
}

// Counts what waits for one peer after it changed: the peer's backlog, the total, and whether
// the peer holds the sender back. A peer far behind does so only while it keeps taking data; one
// that has taken nothing for a while is left to run into its bound.
void PeerLink::account(Connection& connection)
{
    const qint64 bytes = connection.outbox.bytes() + bytesInSocket(connection);
    m_totalBacklog += bytes - connection.backlog;
    connection.backlog = bytes;
    const bool draining = m_scheduler.now() - connection.lastProgress < drainingWithinSeconds;
    const bool wasHoldingBack = connection.holdingBack;
    if (!draining || bytes <= congestionBytes / 2)
        connection.holdingBack = false;
    else if (bytes >= congestionBytes)
        connection.holdingBack = true;
    // While a peer is far behind, look again as time passes even if no socket event comes.
    if (bytes >= congestionBytes / 2 && !m_congestionCheck)
        m_congestionCheck = m_scheduler.schedule(this, drainingWithinSeconds / 4, [this] {
            m_congestionCheck.reset();
            for (const auto& each : m_connections)
                account(*each);
        });
    if (connection.holdingBack != wasHoldingBack)
        publishCongestion();
}

void PeerLink::publishCongestion()
{
    const bool congested = std::any_of(m_connections.begin(), m_connections.end(),
                                       [](const auto& connection) { return connection->holdingBack; });
    if (congested != m_congested) {
        m_congested = congested;
        emit congestedChanged(congested);
    }
}

// When all backlogs together pass their bound, the peer furthest behind goes first.
void PeerLink::enforceTotalBacklog()
{
    for (const auto& connection : m_connections)
        account(*connection); // sockets may have drained since they were last counted
    while (m_totalBacklog > maximumTotalBacklogBytes && !m_connections.empty())
        dropSlowPeer(*std::max_element(m_connections.begin(), m_connections.end(),
                                       [](const auto& a, const auto& b) { return a->backlog < b->backlog; }));
}

void PeerLink::dropSlowPeer(const std::shared_ptr<Connection>& connection)
{
    if (onSlowPeer)
        onSlowPeer(connection->name);
    closeConnection(connection, QWebSocketProtocol::CloseCodePolicyViolated, QStringLiteral("Peer is not keeping up"));
}

// ---- what the controller tells the link

void PeerLink::markHelloVerified(const QString& peer)
{
    if (const auto connection = openConnectionNamed(peer)) {
        connection->helloVerified = true;
        if (connection->helloLimit)
            connection->helloLimit->cancel();
    }
}

void PeerLink::setAuthorized(const QString& peer, bool authorized)
{
    if (const auto connection = openConnectionNamed(peer))
        connection->authorized = authorized;
}

bool PeerLink::admits(const QHostAddress& address) const
{
    const auto waiting = std::count_if(m_connections.begin(), m_connections.end(), [&](const auto& connection) {
        return !connection->authorized && connection->remoteAddress == address;
    });
    return waiting < maximumUnauthorizedPerAddress;
}

QByteArray PeerLink::peerPublicKey(const QString& peer) const
{
    const auto connection = openConnectionNamed(peer);
    if (!connection)
        return {};
    return rawPublicKeyOfCertificateKey(connection->socket->sslConfiguration().peerCertificate().publicKey().toDer());
}

std::shared_ptr<PeerLink::Connection> PeerLink::openConnectionNamed(const QString& name) const
{
    for (const auto& connection : m_connections)
        if (connection->open && connection->name == name && connection->socket)
            return connection;
    return nullptr;
}

std::shared_ptr<PeerLink::Connection> PeerLink::connectionFor(const QObject* socket) const
{
    for (const auto& connection : m_connections)
        if (connection->tls == socket || connection->socket == socket)
            return connection;
    return nullptr;
}

void PeerLink::refreshConnectedPeers()
{
    QStringList names;
    for (const auto& connection : m_connections)
        if (connection->open && !names.contains(connection->name))
            names.append(connection->name);
    updateProperty(this, m_connectedPeers, names, &PeerLink::connectedPeersChanged);
}

void PeerLink::setStatusText(const QString& text) { updateProperty(this, m_statusText, text, &PeerLink::statusTextChanged); }

QString PeerLink::idleStatus() const
{
    return m_mode == PeerLinkMode::Host ? QStringLiteral("Available on local network") : QStringLiteral("Looking for bridges…");
}

} // namespace nimbrel
