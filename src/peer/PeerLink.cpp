#include "PeerLink.h"

#include "peer/LinkCertificate.h"
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

#include <unistd.h>

namespace nimbrel {

namespace {

constexpr qsizetype maximumRequestHeaderBytes = 16 * 1024;

// The name a connecting peer gives in its upgrade request, or nothing when the request is not one
// this link serves (another path, no name, or a name that is empty or too long).
std::optional<QString> peerNameFromRequest(const QByteArray& header)
{
    const qsizetype lineEnd = header.indexOf("\r\n");
    const QList<QByteArray> requestLine = header.left(lineEnd).split(' ');
    if (requestLine.size() != 3 || requestLine[0] != "GET")
        return std::nullopt;
    const QUrl url(QString::fromLatin1(requestLine[1]));
    if (!url.isValid() || url.path() != PeerLink::resourcePath)
        return std::nullopt;
    const QString name = QUrlQuery(url).queryItemValue(QStringLiteral("name"), QUrl::FullyDecoded);
    const int characters = characterCount(name);
    if (characters < 1 || characters > PeerLink::maximumNameCharacters)
        return std::nullopt;
    return name;
}

} // namespace

// The listening socket; past the connection limit it closes new connections before any TLS.
class PeerLink::Server : public QSslServer {
public:
    Server(PeerLink* link) : QSslServer(link), m_link(link) {}

protected:
    void incomingConnection(qintptr descriptor) override
    {
        if (static_cast<int>(m_link->m_connections.size()) >= maximumConnections) {
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
    QPointer<QSslSocket> tls;      // host mode, until the WebSocket takes over
    QPointer<QWebSocket> socket;   // once upgraded (host) or from the start (client)
    QString name;                  // empty until the peer has said it
    QHostAddress remoteAddress;
    quint16 remotePort = 0;
    bool open = false;
    double lastHeard = 0;
    TaskHandle handshakeLimit;
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
    for (const auto& connection : m_connections) {
        if (connection->handshakeLimit)
            connection->handshakeLimit->cancel();
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
        setStatusText(QStringLiteral("Looking for Macs…"));
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
    emit listening(QStringLiteral("wss://%1:%2%3").arg(host).arg(listeningPort()).arg(resourcePath));
    m_discovery->publish(m_localName, serviceType, listeningPort(), {QStringLiteral("version=1")});
}

// ---- host mode: from TCP to WebSocket

void PeerLink::acceptHandshake(QSslSocket* socket)
{
    auto connection = std::make_shared<Connection>();
    connection->tls = socket;
    connection->remoteAddress = socket->peerAddress();
    connection->remotePort = socket->peerPort();
    m_connections.push_back(connection);
    setStatusText(QStringLiteral("Securing connection…"));
    std::weak_ptr<Connection> weak = connection;
    connection->handshakeLimit = m_scheduler.schedule(this, handshakeLimitSeconds, [weak] {
        if (auto expired = weak.lock(); expired && !expired->open) {
            if (expired->socket)
                expired->socket->abort();
            else if (expired->tls)
                expired->tls->abort();
        }
    });
    connect(socket, &QAbstractSocket::disconnected, this, [this, connection] { closed(connection); });
    connect(socket, &QSslSocket::errorOccurred, this, [this, connection](QAbstractSocket::SocketError) {
        if (!connection->socket)
            closed(connection);
    });
}

void PeerLink::readUpgradeRequest(const std::shared_ptr<Connection>& connection)
{
    QSslSocket* socket = connection->tls;
    if (!socket || connection->socket || !connection->name.isEmpty())
        return;
    const QByteArray buffered = socket->peek(maximumRequestHeaderBytes + 1);
    const qsizetype headerEnd = buffered.indexOf("\r\n\r\n");
    if (headerEnd < 0 && buffered.size() <= maximumRequestHeaderBytes)
        return; // wait for the rest of the request
    const std::optional<QString> name = headerEnd < 0 ? std::nullopt : peerNameFromRequest(buffered.left(headerEnd));
    if (!name) {
        disconnect(socket, &QIODevice::readyRead, this, nullptr);
        socket->write("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
        socket->disconnectFromHost();
        return;
    }
    connection->name = *name;
    disconnect(socket, &QIODevice::readyRead, this, nullptr);
    m_upgrader->handleConnection(socket);
}

void PeerLink::adoptWebSocket(QWebSocket* socket)
{
    std::shared_ptr<Connection> connection;
    for (const auto& candidate : m_connections)
        if (!candidate->socket && candidate->tls && candidate->remotePort == socket->peerPort()
            && candidate->remoteAddress == socket->peerAddress())
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
    connection->name = peerName.isEmpty() ? QStringLiteral("%1:%2").arg(address.toString()).arg(port) : peerName;
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
}

void PeerLink::opened(const std::shared_ptr<Connection>& connection)
{
    if (connection->open)
        return;
    connection->open = true;
    connection->lastHeard = m_scheduler.now();
    if (connection->handshakeLimit)
        connection->handshakeLimit->cancel();
    refreshConnectedPeers();
    setStatusText(QStringLiteral("Connected to ") + connection->name);
    if (onConnected)
        onConnected(connection->name);
}

void PeerLink::closed(const std::shared_ptr<Connection>& connection)
{
    const auto position = std::find(m_connections.begin(), m_connections.end(), connection);
    if (position == m_connections.end())
        return; // already closed
    m_connections.erase(position);
    connection->open = false;
    if (connection->handshakeLimit)
        connection->handshakeLimit->cancel();
    if (connection->socket) {
        QObject::disconnect(connection->socket, nullptr, this, nullptr);
        connection->socket->deleteLater();
    }
    if (connection->tls && !connection->socket) {
        QObject::disconnect(connection->tls, nullptr, this, nullptr);
        connection->tls->deleteLater();
    }
    refreshConnectedPeers();
    setStatusText(idleStatus());
    // A peer that never said its name raises nothing.
    if (!connection->name.isEmpty() && onDisconnected)
        onDisconnected(connection->name);
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
    bool sent = false;
    for (const auto& connection : m_connections)
        if (connection->open && connection->name == peer && connection->socket) {
            connection->socket->sendTextMessage(QString::fromUtf8(data));
            sent = true;
        }
    if (!sent)
        return QStringLiteral("%1 is not connected.").arg(peer);
    return std::nullopt;
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
    return m_mode == PeerLinkMode::Host ? QStringLiteral("Available on local network") : QStringLiteral("Looking for Macs…");
}

} // namespace nimbrel
