#include "PeerLink.h"

#include "peer/CockpitFiles.h"
#include "peer/ControlFrameCounter.h"
#include "peer/LinkCertificate.h"
#include "peer/PeerOutbox.h"
#include "peer/StrangerAdmission.h"
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
// What a connection's socket reads ahead before the upgrade: a whole request head and a little
// more.
constexpr qint64 upgradeReadBufferBytes = 4 * maximumRequestHeaderBytes;

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
    if (characters < 1 || characters > PeerLink::maximumNameCharacters ||
        hasControlCharacters(name))
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
    if (::getpeername(static_cast<int>(descriptor), reinterpret_cast<sockaddr*>(&storage),
                      &length) != 0)
        return std::nullopt;
    return sourceAddress(QHostAddress(reinterpret_cast<const sockaddr*>(&storage)));
}

} // namespace

// The listening socket; past the limits it closes new connections before any TLS, and it starts
// TLS on a connection when the link says so.
class PeerLink::Server : public QSslServer {
public:
    Server(PeerLink* link)
        : QSslServer(link)
        , m_link(link)
    {
    }

    // The socket of the descriptor, its TLS handshake begun.
    QSslSocket* startTls(qintptr descriptor)
    {
        QSslServer::incomingConnection(descriptor);
        for (QSslSocket* socket : findChildren<QSslSocket*>(Qt::FindDirectChildrenOnly))
            if (socket->socketDescriptor() == descriptor && !m_link->connectionFor(socket))
                return socket;
        return nullptr;
    }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        const std::optional<QHostAddress> source = sourceAddressOf(descriptor);
        if (!source || !m_link->admit(descriptor, *source))
            ::close(static_cast<int>(descriptor));
    }

private:
    PeerLink* m_link;
};

struct PeerLink::Connection {
    quint64 id = 0;              // never reused within the link
    QPointer<QSslSocket> tls;    // host mode: the TLS socket, under the WebSocket once upgraded
    QPointer<QWebSocket> socket; // once upgraded (host) or from the start (client)
    qintptr descriptor = -1;     // host mode: the accepted socket, until TLS starts on it
    TaskHandle tlsStart;         // host mode: when its address may start another handshake
    QString name;                // empty until the peer has said it
    QHostAddress remoteAddress;
    quint16 remotePort = 0;
    double acceptedAt = 0;
    int fileRequests = 0;
    bool open = false;
    bool announced = false; // onConnected ran, so onDisconnected will
    bool awaitingPairing = false;
    bool authorized = false;
    int unauthorizedMessages = 0;
    // A stranger's control frames, followed through what the WebSocket reads: the bytes it had to
    // read, and those it left of them last time. Not counted once authorised, or where the
    // stream could not be followed.
    bool countingFrames = false;
    ControlFrameCounter frames;
    QByteArray toRead, leftUnread;
    TokenBucket controlBudget{controlFramesPerSecond, controlFramesPerSecond};
    double lastHeard = 0;
    TaskHandle handshakeLimit;
    TaskHandle helloLimit;
    PeerOutbox outbox;       // messages waiting for room in the socket
    qint64 backlog = 0;      // outbox and socket, as last counted (see account)
    double lastProgress = 0; // when the peer's side last took data, or data began to wait
    bool holdingBack = false;
};

PeerLinkSettings PeerLinkSettings::fromEnvironment()
{
    PeerLinkSettings settings;
    if (const QString address = qEnvironmentVariable("NIMBREL_LINK_ADDRESS"); !address.isEmpty())
        settings.address = QHostAddress(address);
    bool ok = false;
    if (const uint port = qEnvironmentVariable("NIMBREL_LINK_PORT").toUInt(&ok);
        ok && port <= 65535)
        settings.port = static_cast<quint16>(port);
    if (const qint64 bytes = qEnvironmentVariable("NIMBREL_PEER_BACKLOG_BYTES").toLongLong(&ok); ok)
        settings.peerBacklogBytes = std::clamp(bytes, PeerLink::minimumPeerBacklogBytes,
                                               PeerLink::maximumPeerBacklogBytes);
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
    return firstCharacters(displayName + QLatin1Char('-') + randomUUIDText().left(4),
                           maximumNameCharacters);
}

PeerLink::PeerLink(PeerLinkMode mode, const QString& displayName, Scheduler& scheduler,
                   EVP_PKEY* tlsKey, PeerLinkSettings settings, QObject* parent)
    : QObject(parent)
    , m_mode(mode)
    , m_localName(localNameFor(displayName))
    , m_scheduler(scheduler)
    , m_settings(settings)
{
    if (mode == PeerLinkMode::Host)
        useTlsKey(tlsKey);
}

void PeerLink::useTlsKey(EVP_PKEY* key)
{
    if (auto certificate = makeLinkCertificate(key, m_localName))
        useCertificate(*certificate);
}

void PeerLink::useCertificate(const LinkCertificate& certificate)
{
    m_certificate = QSslCertificate(certificate.certificatePem, QSsl::Pem);
    m_privateKeyPem = certificate.privateKeyPem;
}

PeerLink::~PeerLink()
{
    if (m_keepAlive)
        m_keepAlive->cancel();
    if (m_congestionCheck)
        m_congestionCheck->cancel();
    for (const auto& connection : m_connections) {
        for (const TaskHandle& task :
             {connection->handshakeLimit, connection->helloLimit, connection->tlsStart})
            if (task)
                task->cancel();
        if (connection->descriptor >= 0)
            ::close(static_cast<int>(connection->descriptor));
        if (connection->socket)
            QObject::disconnect(connection->socket, nullptr, this, nullptr);
        if (connection->tls)
            QObject::disconnect(connection->tls, nullptr, this, nullptr);
    }
}

quint16 PeerLink::listeningPort() const
{
    return m_server ? m_server->serverPort() : 0;
}

std::optional<std::pair<QHostAddress, quint16>>
PeerLink::discoveredAddress(const QString& name) const
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
        setStatusText((m_mode == PeerLinkMode::Host ? QStringLiteral("Advertising failed: ")
                                                    : QStringLiteral("Discovery failed: ")) +
                      error);
    });
    if (m_mode == PeerLinkMode::Client) {
        connect(m_discovery, &ServiceDiscovery::serviceFound, this,
                [this](const QString& name, const QString& address, quint16 port) {
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
                auto read = [this, connection] { readUpgradeRequest(connection); };
                connect(next, &QIODevice::readyRead, this, read);
                // Responses that waited for the peer to take them: read on once it has.
                auto* tls = static_cast<QSslSocket*>(next);
                connect(tls, &QSslSocket::encryptedBytesWritten, this, read);
                connect(tls, &QIODevice::bytesWritten, this, read);
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
    emit listening(QStringLiteral("wss://") + host + QLatin1Char(':') +
                   QString::number(listeningPort()) + resourcePath);
    m_discovery->publish(m_localName, serviceType, listeningPort(), {QStringLiteral("version=1")});
}

// ---- host mode: from TCP to WebSocket

// Whether a new connection from address is served (see admitConnection); it is counted from the
// TCP accept on, including peers that never start TLS. Its handshake starts when its address has
// one left to start.
bool PeerLink::admit(qintptr descriptor, const QHostAddress& address)
{
    std::vector<Stranger> strangers;
    std::vector<std::shared_ptr<Connection>> held;
    for (const auto& connection : m_connections)
        if (!connection->authorized) {
            strangers.push_back({connection->remoteAddress, connection->awaitingPairing,
                                 isIdleFileConnection(*connection)});
            held.push_back(connection);
        }
    const Admission admission = admitConnection(
        strangers, static_cast<int>(m_connections.size()), address,
        {maximumConnections, maximumUnauthorizedConnections, maximumUnauthorizedPerAddress});
    if (!admission.admitted)
        return false;
    if (admission.replacing)
        closeConnection(held[*admission.replacing], QWebSocketProtocol::CloseCodePolicyViolated,
                        QStringLiteral("Too many connections"));

    auto connection = std::make_shared<Connection>();
    connection->id = ++m_lastConnectionID;
    connection->descriptor = descriptor;
    connection->remoteAddress = address;
    connection->acceptedAt = m_scheduler.now();
    m_connections.push_back(connection);
    setStatusText(QStringLiteral("Securing connection…"));
    armHandshakeLimit(connection, handshakeLimitSeconds);

    const double now = m_scheduler.now();
    if (m_handshakeBudgets.size() > 256)
        std::erase_if(m_handshakeBudgets,
                      [&](const auto& entry) { return entry.second.fullAt(now); });
    auto [budget, added] = m_handshakeBudgets.try_emplace(
        address.toString(), TokenBucket{handshakeBurst, handshakesPerSecond, handshakeBurst, now});
    const double wait = budget->second.reserve(now);
    if (wait <= 0) {
        startHandshake(connection);
    } else {
        std::weak_ptr<Connection> weak = connection;
        connection->tlsStart = m_scheduler.schedule(this, wait, [this, weak] {
            if (auto waiting = weak.lock())
                startHandshake(waiting);
        });
    }
    return true;
}

void PeerLink::startHandshake(const std::shared_ptr<Connection>& connection)
{
    const qintptr descriptor = connection->descriptor;
    if (descriptor < 0 || !m_server)
        return;
    connection->descriptor = -1;
    QSslSocket* socket = m_server->startTls(descriptor);
    if (!socket) {
        closed(connection);
        return;
    }
    acceptHandshake(connection, socket);
}

void PeerLink::acceptHandshake(const std::shared_ptr<Connection>& connection, QSslSocket* socket)
{
    connection->tls = socket;
    connection->remotePort = socket->peerPort();
    // Until the upgrade, what the peer sends waits in the kernel rather than in the bridge.
    socket->setReadBufferSize(upgradeReadBufferBytes);
    connect(socket, &QAbstractSocket::disconnected, this,
            [this, connection] { closed(connection); });
    connect(socket, &QSslSocket::errorOccurred, this,
            [this, connection](QAbstractSocket::SocketError) {
                if (!connection->socket)
                    closed(connection);
            });
}

void PeerLink::armHandshakeLimit(const std::shared_ptr<Connection>& connection, double seconds)
{
    if (connection->handshakeLimit)
        connection->handshakeLimit->cancel();
    std::weak_ptr<Connection> weak = connection;
    connection->handshakeLimit = m_scheduler.schedule(this, seconds, [this, weak] {
        if (auto expired = weak.lock(); expired && !expired->open) {
            if (expired->socket)
                expired->socket->abort();
            else if (expired->tls)
                expired->tls->abort();
            else
                closed(expired); // its handshake never started
        }
    });
}

void PeerLink::readUpgradeRequest(const std::shared_ptr<Connection>& connection)
{
    QSslSocket* socket = connection->tls;
    while (socket && !connection->socket && connection->name.isEmpty()) {
        // A peer that asks and does not take the answers is not read until it does.
        if (bytesInSocket(*connection) > maximumQueuedResponseBytes)
            return;
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
            response =
                cockpitResponse(*request, connection->fileRequests + 1 < maximumFileRequests);
        if (!response.bytes.isEmpty()) {
            socket->read(headerEnd + 4);
            if (!serveFile(connection, response))
                return;
            continue;
        }
        UpgradeRequest upgrade = upgradeRequestOf(*request);
        // A name belongs to the connection that has it, from its upgrade until it closes.
        if (upgrade.refusal.isEmpty() &&
            std::any_of(m_connections.begin(), m_connections.end(),
                        [&](const auto& other) { return other->name == upgrade.name; }))
            upgrade.refusal = "409 Conflict";
        stopReadingRequests(socket);
        if (!upgrade.refusal.isEmpty()) {
            socket->write(webRefusal(upgrade.refusal).bytes);
            socket->disconnectFromHost();
            return;
        }
        connection->name = upgrade.name;
        // Before the WebSocket's own reading of each piece: what it is about to read.
        connect(socket, &QIODevice::readyRead, this,
                [this, connection] { beforeFrames(connection); });
        socket->setReadBufferSize(unauthorizedReadBufferBytes);
        m_upgrader->handleConnection(socket);
        return;
    }
}

void PeerLink::stopReadingRequests(QSslSocket* socket)
{
    disconnect(socket, &QIODevice::readyRead, this, nullptr);
    disconnect(socket, &QSslSocket::encryptedBytesWritten, this, nullptr);
    disconnect(socket, &QIODevice::bytesWritten, this, nullptr);
}

// Writes one response to a request for a file; false where the connection ends with it. A
// connection that keeps asking lives no longer for it: its lifetime counts from its accept.
bool PeerLink::serveFile(const std::shared_ptr<Connection>& connection, const WebResponse& response)
{
    QSslSocket* socket = connection->tls;
    socket->write(response.bytes);
    ++connection->fileRequests;
    const double left = connection->acceptedAt + fileConnectionLifetimeSeconds - m_scheduler.now();
    if (!response.keepOpen || left <= 0) {
        stopReadingRequests(socket);
        socket->disconnectFromHost();
        return false;
    }
    armHandshakeLimit(connection, std::min(fileIdleLimitSeconds, left));
    return true;
}

void PeerLink::adoptWebSocket(QWebSocket* socket)
{
    std::shared_ptr<Connection> connection;
    for (const auto& candidate : m_connections)
        if (!candidate->socket && candidate->tls && candidate->remotePort == socket->peerPort() &&
            candidate->remoteAddress == sourceAddress(socket->peerAddress()))
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
    // A client waits for the upgrade's answer before it sends frames; from here on the frames it
    // sends are followed.
    if (connection->tls && connection->open) {
        if (connection->tls->bytesAvailable() > 0)
            closeConnection(connection, QWebSocketProtocol::CloseCodeProtocolError,
                            QStringLiteral("Frames before the upgrade"));
        else
            connection->countingFrames = !connection->authorized;
    }
}

// A connection before its upgrade that has fetched files and now waits with nothing asked and
// nothing to take: a browser's spare connection, which makes room when its address needs it.
bool PeerLink::isIdleFileConnection(const Connection& connection) const
{
    return !connection.socket && connection.tls && connection.name.isEmpty() &&
           connection.fileRequests > 0 && connection.tls->bytesAvailable() == 0 &&
           bytesInSocket(connection) == 0;
}

// Just before the WebSocket reads what arrived: keeps what it is about to read, when what came
// before is what it left last time, else gives up following the stream.
void PeerLink::beforeFrames(const std::shared_ptr<Connection>& connection)
{
    QSslSocket* tls = connection->tls;
    if (!connection->countingFrames || !tls)
        return;
    connection->toRead = tls->peek(tls->bytesAvailable());
    if (!connection->toRead.startsWith(connection->leftUnread))
        connection->countingFrames = false;
}

// Just after the WebSocket read: counts the control frames among what it took and what they made
// the link send. A stranger that sends too many control frames, or leaves too much unread, goes.
void PeerLink::afterFrames(const std::shared_ptr<Connection>& connection)
{
    QSslSocket* tls = connection->tls;
    if (!tls || !connection->open)
        return;
    if (connection->countingFrames) {
        const qsizetype taken = connection->toRead.size() - tls->bytesAvailable();
        if (taken < 0) {
            connection->countingFrames = false;
        } else {
            const int control = connection->frames.feed(connection->toRead.left(taken));
            connection->leftUnread = connection->toRead.mid(taken);
            connection->toRead.clear();
            const double now = m_scheduler.now();
            for (int i = 0; i < control; ++i)
                if (!connection->controlBudget.take(now)) {
                    closeConnection(connection, QWebSocketProtocol::CloseCodePolicyViolated,
                                    QStringLiteral("Too many control frames"));
                    return;
                }
        }
    }
    account(*connection);
    if (connection->backlog >
        (connection->authorized ? m_settings.peerBacklogBytes : maximumUnauthorizedBacklogBytes))
        dropSlowPeer(connection);
    else if (m_totalBacklog > maximumTotalBacklogBytes)
        enforceTotalBacklog();
}

// ---- client mode

void PeerLink::connectTo(const QHostAddress& address, quint16 port, const QString& peerName)
{
    auto connection = std::make_shared<Connection>();
    connection->id = ++m_lastConnectionID;
    connection->name = peerName.isEmpty()
                           ? address.toString() + QLatin1Char(':') + QString::number(port)
                           : peerName;
    auto* socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    socket->setSslConfiguration(tlsConfiguration());
    connect(socket, &QWebSocket::sslErrors, socket,
            [socket](const QList<QSslError>&) { socket->ignoreSslErrors(); });
    connection->socket = socket;
    m_connections.push_back(connection);
    watch(connection);
    connect(socket, &QWebSocket::connected, this, [this, connection] { opened(connection); });
    QUrl url;
    url.setScheme(QStringLiteral("wss"));
    url.setHost(address.toString());
    url.setPort(port);
    url.setPath(resourcePath);
    url.setQuery(QStringLiteral("name=") +
                 QString::fromLatin1(QUrl::toPercentEncoding(m_localName)));
    setStatusText(QStringLiteral("Securing connection…"));
    socket->open(url);
}

// ---- open connections

void PeerLink::watch(const std::shared_ptr<Connection>& connection)
{
    QWebSocket* socket = connection->socket;
    // A frame announcing more than a message may hold is refused from its header on, before any
    // of it is buffered. Set before the event loop delivers the socket's first frame. A host's
    // peers have the small limits until they are authorised.
    const qint64 limit =
        m_mode == PeerLinkMode::Host ? maximumUnauthorizedMessageBytes : maximumMessageBytes;
    socket->setMaxAllowedIncomingFrameSize(limit);
    socket->setMaxAllowedIncomingMessageSize(limit);
    auto heard = [this, connection] { connection->lastHeard = m_scheduler.now(); };
    connect(socket, &QWebSocket::textMessageReceived, this,
            [this, connection, heard](const QString& message) {
                heard();
                if (admitsMessage(connection))
                    onData(message.toUtf8(), connection->name);
            });
    connect(socket, &QWebSocket::binaryMessageReceived, this,
            [this, connection, heard](const QByteArray& message) {
                heard();
                if (admitsMessage(connection))
                    onData(message, connection->name);
            });
    connect(socket, &QWebSocket::pong, this, heard);
    connect(socket, &QWebSocket::disconnected, this, [this, connection] { closed(connection); });
    // After the WebSocket's own reading: what it read and what it answered by itself (pongs, the
    // closing handshake) count like everything else.
    if (connection->tls)
        connect(connection->tls, &QIODevice::readyRead, this,
                [this, connection] { afterFrames(connection); });
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
    if (m_mode == PeerLinkMode::Host)
        armHelloLimit(connection);
    refreshConnectedPeers();
    setStatusText(QStringLiteral("Connected to ") + connection->name);
    connection->announced = true;
    if (onConnected)
        onConnected(connection->name);
}

void PeerLink::armHelloLimit(const std::shared_ptr<Connection>& connection)
{
    if (connection->helloLimit)
        connection->helloLimit->cancel();
    std::weak_ptr<Connection> weak = connection;
    connection->helloLimit = m_scheduler.schedule(this, helloLimitSeconds, [this, weak] {
        if (auto expired = weak.lock())
            expireHello(expired);
    });
}

// A connection that is neither authorised nor waiting for the user has had its time.
void PeerLink::expireHello(const std::shared_ptr<Connection>& connection)
{
    if (!connection->authorized && !connection->awaitingPairing)
        closeConnection(connection, QWebSocketProtocol::CloseCodePolicyViolated,
                        QStringLiteral("Not paired"));
}

// Whether a message that arrived goes on to onData. Before its authorisation a host's peer may send
// a few messages only, enough to greet, ask to pair and keep the connection alive meanwhile.
bool PeerLink::admitsMessage(const std::shared_ptr<Connection>& connection)
{
    if (!onData || !connection->open)
        return false;
    if (m_mode == PeerLinkMode::Host && !connection->authorized &&
        ++connection->unauthorizedMessages > maximumUnauthorizedMessages) {
        closeConnection(connection, QWebSocketProtocol::CloseCodePolicyViolated,
                        QStringLiteral("Too many messages"));
        return false;
    }
    return true;
}

void PeerLink::closed(std::shared_ptr<Connection> connection)
{
    const auto position = std::find(m_connections.begin(), m_connections.end(), connection);
    if (position == m_connections.end())
        return; // already closed
    m_connections.erase(position);
    connection->open = false;
    for (const TaskHandle& task :
         {connection->handshakeLimit, connection->helloLimit, connection->tlsStart})
        if (task)
            task->cancel();
    if (connection->descriptor >= 0) {
        ::close(static_cast<int>(connection->descriptor));
        connection->descriptor = -1;
    }
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
    // Only a connection that was announced raises its end: a refused or failed upgrade raises
    // nothing.
    if (connection->announced && onDisconnected)
        onDisconnected(connection->name);
}

void PeerLink::closeConnection(std::shared_ptr<Connection> connection, int code,
                               const QString& reason)
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
    if (connection->backlog > (connection->authorized || m_mode == PeerLinkMode::Client
                                   ? m_settings.peerBacklogBytes
                                   : maximumUnauthorizedBacklogBytes))
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

std::optional<double> PeerLink::lastHeard(const QString& peer) const
{
    const auto connection = openConnectionNamed(peer);
    if (!connection)
        return std::nullopt;
    return connection->lastHeard;
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
    // Only a peer with rights may hold the engine back; a host's stranger runs into its bound.
    const bool mayHoldBack = connection.authorized || m_mode == PeerLinkMode::Client;
    if (!mayHoldBack || !draining || bytes <= congestionBytes / 2)
        connection.holdingBack = false;
    else if (bytes >= congestionBytes)
        connection.holdingBack = true;
    // While a peer is far behind, look again as time passes even if no socket event comes.
    if (bytes >= congestionBytes / 2 && !m_congestionCheck)
        m_congestionCheck = m_scheduler.schedule(this, drainingWithinSeconds / 4, [this] {
            m_congestionCheck.reset();
            for (const auto& each : std::vector(m_connections))
                account(*each);
        });
    if (connection.holdingBack != wasHoldingBack)
        publishCongestion();
}

void PeerLink::publishCongestion()
{
    const bool congested =
        std::any_of(m_connections.begin(), m_connections.end(),
                    [](const auto& connection) { return connection->holdingBack; });
    if (congested != m_congested) {
        m_congested = congested;
        emit congestedChanged(congested);
    }
}

// When all backlogs together pass their bound, the peer furthest behind goes first.
void PeerLink::enforceTotalBacklog()
{
    for (const auto& connection : std::vector(m_connections))
        account(*connection); // sockets may have drained since they were last counted
    while (m_totalBacklog > maximumTotalBacklogBytes && !m_connections.empty()) {
        // A copy: closing the connection erases it from the list.
        std::shared_ptr<Connection> largest =
            *std::max_element(m_connections.begin(), m_connections.end(),
                              [](const auto& a, const auto& b) { return a->backlog < b->backlog; });
        dropSlowPeer(std::move(largest));
    }
}

void PeerLink::dropSlowPeer(std::shared_ptr<Connection> connection)
{
    if (onSlowPeer)
        onSlowPeer(connection->name);
    closeConnection(connection, QWebSocketProtocol::CloseCodePolicyViolated,
                    QStringLiteral("Peer is not keeping up"));
}

// ---- what the controller tells the link

void PeerLink::setAwaitingPairing(const QString& peer, bool awaiting)
{
    const auto connection = openConnectionNamed(peer);
    if (!connection || connection->awaitingPairing == awaiting)
        return;
    connection->awaitingPairing = awaiting;
    if (awaiting) {
        if (connection->helloLimit)
            connection->helloLimit->cancel();
    } else if (!connection->authorized) {
        armHelloLimit(connection);
    }
}

void PeerLink::setAuthorized(const QString& peer, bool authorized)
{
    const auto connection = openConnectionNamed(peer);
    if (!connection || connection->authorized == authorized)
        return;
    connection->authorized = authorized;
    const qint64 limit = authorized ? maximumMessageBytes : maximumUnauthorizedMessageBytes;
    connection->socket->setMaxAllowedIncomingFrameSize(limit);
    connection->socket->setMaxAllowedIncomingMessageSize(limit);
    if (connection->tls)
        connection->tls->setReadBufferSize(authorized ? 0 : unauthorizedReadBufferBytes);
    if (authorized) {
        // Its frames are no longer followed, and cannot be again: the stream is left behind.
        connection->countingFrames = false;
        connection->awaitingPairing = false;
        connection->unauthorizedMessages = 0;
        if (connection->helloLimit)
            connection->helloLimit->cancel();
    } else {
        armHelloLimit(connection);
        account(*connection);
    }
}

quint64 PeerLink::connectionID(const QString& peer) const
{
    const auto connection = openConnectionNamed(peer);
    return connection ? connection->id : 0;
}

QHostAddress PeerLink::peerAddress(const QString& peer) const
{
    const auto connection = openConnectionNamed(peer);
    return connection ? connection->remoteAddress : QHostAddress();
}

QByteArray PeerLink::peerPublicKey(const QString& peer) const
{
    const auto connection = openConnectionNamed(peer);
    if (!connection)
        return {};
    return rawPublicKeyOfCertificateKey(
        connection->socket->sslConfiguration().peerCertificate().publicKey().toDer());
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

void PeerLink::setStatusText(const QString& text)
{
    updateProperty(this, m_statusText, text, &PeerLink::statusTextChanged);
}

QString PeerLink::idleStatus() const
{
    return m_mode == PeerLinkMode::Host ? QStringLiteral("Available on local network")
                                        : QStringLiteral("Looking for bridges…");
}

} // namespace nimbrel
