#pragma once

#include "peer/TokenBucket.h"
#include "platform/Scheduler.h"

#include <QHostAddress>
#include <QObject>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QStringList>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

class QSslServer;
class QSslSocket;
class QWebSocket;
class QWebSocketServer;
typedef struct evp_pkey_st EVP_PKEY;

namespace nimbrel {

class ServiceDiscovery;
struct LinkCertificate;
struct WebResponse;

enum class PeerLinkMode { Host, Client };

// Where host mode listens: every interface on port 48215, unless NIMBREL_LINK_ADDRESS and
// NIMBREL_LINK_PORT say otherwise (port 0 picks a free one). NIMBREL_PEER_BACKLOG_BYTES lowers the
// backlog an authorised peer may hold (at least a mebibyte), for a machine short of memory or a test
// that needs a slow peer dropped soon.
struct PeerLinkSettings {
    QHostAddress address = QHostAddress::Any;
    quint16 port = 48215;
    qint64 peerBacklogBytes = 32 * 1024 * 1024; // PeerLink::maximumPeerBacklogBytes
    static PeerLinkSettings fromEnvironment();
};

// The nearby transport: WebSocket over TLS 1.3, found through DNS-SD. One BridgeMessage is one
// WebSocket message. Peers are known by the display name they give when they connect; a name
// belongs to one connection at a time. It knows nothing of pairing: a connection grants no rights.
// What it is told of a connection's pairing and authorisation serves only its limits: strangers
// (connections not authorised) hold a part of the slots, a few per address, send small messages
// and few of them, have a small backlog, hold nobody back, and stay only while they pair. What it
// holds for a peer, in and out, is bounded. Everything it publishes and calls runs on the thread
// that owns it.
class PeerLink : public QObject {
    Q_OBJECT
    Q_PROPERTY(QStringList discoveredPeers READ discoveredPeers NOTIFY discoveredPeersChanged)
    Q_PROPERTY(QStringList connectedPeers READ connectedPeers NOTIFY connectedPeersChanged)
    Q_PROPERTY(QString statusText READ statusText NOTIFY statusTextChanged)

public:
    static constexpr int maximumConnections = 64;
    // Connections not authorised yet (opening, fetching the page, greeting, waiting to pair) hold
    // at most this many of the slots; past it a newcomer takes the place of the oldest of them, so
    // the rest stay for authorised devices.
    static constexpr int maximumUnauthorizedConnections = 48;
    // Unauthorised connections from one address (IPv6 addresses whole, as a network's hosts share
    // its /64); at the limit the address's next connection is refused, or takes the place of one
    // of its own idle file connections.
    static constexpr int maximumUnauthorizedPerAddress = 8;
    // TLS handshakes a stranger's address may start: a burst as large as a page load needs, then a
    // few a second; past them a new connection waits in the link, untouched, for its turn.
    static constexpr double handshakeBurst = 16;
    static constexpr double handshakesPerSecond = 8;
    // Control frames (ping, pong, close) a stranger may send, which the link answers on its own:
    // a burst and then this many a second, past which it is closed with 1008.
    static constexpr double controlFramesPerSecond = 10;
    // Both one frame and one message, once authorised; before that a hello or a pairing message
    // is all a peer has to send.
    static constexpr qint64 maximumMessageBytes = 16 * 1024 * 1024;
    static constexpr qint64 maximumUnauthorizedMessageBytes = 64 * 1024;
    // What a stranger's socket reads ahead of the WebSocket: one whole largest frame and a little.
    static constexpr qint64 unauthorizedReadBufferBytes = 2 * maximumUnauthorizedMessageBytes;
    // Messages a connection may send before it is authorised.
    static constexpr int maximumUnauthorizedMessages = 64;
    // Data sent and not yet taken by the peer's side of the connection.
    static constexpr qint64 maximumPeerBacklogBytes = 32 * 1024 * 1024;
    static constexpr qint64 minimumPeerBacklogBytes = 1024 * 1024;
    static constexpr qint64 maximumUnauthorizedBacklogBytes = 256 * 1024;
    static constexpr qint64 maximumTotalBacklogBytes = 128 * 1024 * 1024;
    // How much of a peer's backlog is handed to its socket at a time; the rest waits in the link.
    static constexpr qint64 socketShareBytes = 256 * 1024;
    // An authorised peer this far behind that is still taking data holds the sender back (see
    // congested).
    static constexpr qint64 congestionBytes = 512 * 1024;
    static constexpr double drainingWithinSeconds = 1;
    // How long an open connection may stay unauthorised without asking to pair.
    static constexpr double helloLimitSeconds = 10;
    static constexpr double closingGraceSeconds = 5;
    static constexpr int maximumNameCharacters = 63;
    // From the TCP accept to the WebSocket's upgrade, and between the page's files.
    static constexpr double handshakeLimitSeconds = 10;
    // The page's files: responses waiting in one connection before it reads another request, the
    // requests one connection may make, and how long it may stay without upgrading.
    static constexpr qint64 maximumQueuedResponseBytes = 256 * 1024;
    static constexpr int maximumFileRequests = 32;
    static constexpr double fileConnectionLifetimeSeconds = 30;
    // How long a connection that fetched files may wait for its next request.
    static constexpr double fileIdleLimitSeconds = 5;
    static constexpr double pingIntervalSeconds = 20;
    static constexpr double silenceLimitSeconds = 60;
    static inline const QString serviceType = QStringLiteral("_sarvane._tcp");
    static inline const QString resourcePath = QStringLiteral("/sarvane");

    // tlsKey: the device's signing key for the certificate, or null for a fresh key of this run.
    PeerLink(PeerLinkMode mode, const QString& displayName, Scheduler& scheduler,
             EVP_PKEY* tlsKey = nullptr, PeerLinkSettings settings = {}, QObject* parent = nullptr);
    ~PeerLink() override;

    // TLS 1.3 only, with no verification of the self-signed peer: what both sides of the link use.
    static QSslConfiguration tlsConfiguration();

    // The display name, "-" and four characters of a UUID, cut to 63 user-perceived characters.
    static QString localNameFor(const QString& displayName);

    std::function<void(const QByteArray& data, const QString& peer)> onData;
    std::function<void(const QString& peer)> onConnected;
    std::function<void(const QString& peer)> onDisconnected;
    // A peer whose backlog passed its bound, or the peer with the largest backlog when all of them
    // together passed theirs; it is closed with 1008 and its onDisconnected follows.
    std::function<void(const QString& peer)> onSlowPeer;

    // Host mode: makes the certificate over this key (the device's signing key). Before start.
    void useTlsKey(EVP_PKEY* key);
    // Host mode: serves this certificate, with its key. Before start.
    void useCertificate(const LinkCertificate& certificate);
    // Host mode listens and advertises; client mode browses.
    void start();
    // One message to one connected peer; an error text where it cannot be handed over.
    std::optional<QString> send(const QByteArray& data, const QString& peer);
    // Client mode: connects to a host, known to this side as peerName (address:port if empty).
    void connectTo(const QHostAddress& address, quint16 port, const QString& peerName = {});

    // Host mode: the peer waits for the user to decide its pairing, so it may stay past the hello
    // limit; when the wait ends without authorisation, it has the hello limit again to ask anew.
    void setAwaitingPairing(const QString& peer, bool awaiting);
    // Host mode: authorised connections may send and hold larger messages, do not count against
    // the limits of strangers, and may hold the sender back.
    void setAuthorized(const QString& peer, bool authorized);
    // The open connection that has this name now: a number no other connection of this link has
    // had or will have, 0 where none is open.
    quint64 connectionID(const QString& peer) const;
    // Where the open connection of this name comes from.
    QHostAddress peerAddress(const QString& peer) const;
    // Bytes sent to the peer that its side has not taken yet.
    qint64 backlog(const QString& peer) const;
    // When the link last heard from the open connection of this name (a message or a pong), in the
    // scheduler's time; nullopt where none is open.
    std::optional<double> lastHeard(const QString& peer) const;
    // The backlogs of all connections together.
    qint64 totalBacklog() const { return m_totalBacklog; }
    // True while an authorised peer that is still taking data is far behind: whoever feeds the
    // link should wait. A peer that takes nothing holds nobody back; it runs into its bound
    // instead.
    bool congested() const { return m_congested; }
    // Client mode: the raw P-256 key of the certificate the host showed (empty if none or another
    // kind), to compare with the key of its hello.
    QByteArray peerPublicKey(const QString& peer) const;

    PeerLinkMode mode() const { return m_mode; }
    QString localName() const { return m_localName; }
    QStringList discoveredPeers() const { return m_discoveredPeers; }
    QStringList connectedPeers() const { return m_connectedPeers; }
    QString statusText() const { return m_statusText; }
    // Host mode, once listening.
    quint16 listeningPort() const;
    QSslCertificate certificate() const { return m_certificate; }
    QHostAddress listeningAddress() const { return m_settings.address; }
    // Client mode: where a discovered host was found.
    std::optional<std::pair<QHostAddress, quint16>> discoveredAddress(const QString& name) const;

signals:
    void discoveredPeersChanged();
    void connectedPeersChanged();
    void statusTextChanged();
    void listening(const QString& url);
    void congestedChanged(bool congested);

private:
    struct Connection;
    class Server;

    void listen();
    bool admit(qintptr descriptor, const QHostAddress& address);
    void startHandshake(const std::shared_ptr<Connection>& connection);
    void acceptHandshake(const std::shared_ptr<Connection>& connection, QSslSocket* socket);
    bool isIdleFileConnection(const Connection& connection) const;
    void beforeFrames(const std::shared_ptr<Connection>& connection);
    void afterFrames(const std::shared_ptr<Connection>& connection);
    void armHandshakeLimit(const std::shared_ptr<Connection>& connection, double seconds);
    void armHelloLimit(const std::shared_ptr<Connection>& connection);
    void readUpgradeRequest(const std::shared_ptr<Connection>& connection);
    bool serveFile(const std::shared_ptr<Connection>& connection, const WebResponse& response);
    void stopReadingRequests(QSslSocket* socket);
    void adoptWebSocket(QWebSocket* socket);
    void watch(const std::shared_ptr<Connection>& connection);
    void opened(const std::shared_ptr<Connection>& connection);
    // These take the connection by value: the caller's may be an element that they erase.
    void closed(std::shared_ptr<Connection> connection);
    void keepAlive();
    void expireHello(const std::shared_ptr<Connection>& connection);
    bool admitsMessage(const std::shared_ptr<Connection>& connection);
    void pump(const std::shared_ptr<Connection>& connection);
    qint64 bytesInSocket(const Connection& connection) const;
    void account(Connection& connection);
    void publishCongestion();
    void enforceTotalBacklog();
    void dropSlowPeer(std::shared_ptr<Connection> connection);
    void closeConnection(std::shared_ptr<Connection> connection, int code, const QString& reason);
    std::shared_ptr<Connection> connectionFor(const QObject* socket) const;
    std::shared_ptr<Connection> openConnectionNamed(const QString& name) const;
    void refreshConnectedPeers();
    void setStatusText(const QString& text);
    QString idleStatus() const;

    PeerLinkMode m_mode;
    QString m_localName;
    Scheduler& m_scheduler;
    PeerLinkSettings m_settings;
    QSslCertificate m_certificate;
    QByteArray m_privateKeyPem;
    Server* m_server = nullptr;
    QWebSocketServer* m_upgrader = nullptr;
    ServiceDiscovery* m_discovery = nullptr;
    std::vector<std::shared_ptr<Connection>> m_connections;
    quint64 m_lastConnectionID = 0;
    // The handshakes each address may still start, by the address's text.
    std::map<QString, TokenBucket> m_handshakeBudgets;
    std::vector<std::pair<QString, std::pair<QHostAddress, quint16>>> m_found;
    QStringList m_discoveredPeers;
    QStringList m_connectedPeers;
    QString m_statusText = QStringLiteral("Starting…");
    TaskHandle m_keepAlive;
    qint64 m_totalBacklog = 0; // the sum of the connections' counted backlogs
    bool m_congested = false;
    TaskHandle m_congestionCheck;
};

} // namespace nimbrel
