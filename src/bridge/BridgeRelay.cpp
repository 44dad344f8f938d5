// What an authorised peer may ask of the engine, and the engine's events fanned out to peers.
#include "bridge/BridgeController.h"

#include "platform/TextFormatting.h"

#include <QPointer>

namespace nimbrel {

const std::set<QString>& BridgeController::allowedEngineMethods()
{
    static const std::set<QString> methods{
        QStringLiteral("thread/list"),
        QStringLiteral("thread/read"),
        QStringLiteral("thread/turns/list"),
        QStringLiteral("thread/items/list"),
        QStringLiteral("thread/start"),
        QStringLiteral("thread/resume"),
        QStringLiteral("turn/start"),
        QStringLiteral("turn/steer"),
        QStringLiteral("turn/interrupt"),
        QStringLiteral("model/list"),
        QStringLiteral("account/read"),
        QStringLiteral("account/rateLimits/read"),
        // Beyond the relay the protocol began with: session actions from a phone.
        QStringLiteral("thread/name/set"),
        QStringLiteral("thread/archive"),
        QStringLiteral("thread/unarchive"),
        QStringLiteral("thread/fork"),
    };
    return methods;
}

namespace {

QString megabytes(qint64 bytes)
{
    return QString::number(static_cast<double>(bytes) / (1024 * 1024), 'f', 1) +
           QStringLiteral(" MB");
}

// An engine reply to a peer's request, only while the peer's name still belongs to that connection;
// in its place an error where it is larger than the peer may hold (one message, and what its
// backlog has room for), so a large page of history never closes the peer's link.
void sendReply(BridgeController& controller, const BridgeMessage& reply, const QString& peer,
               quint64 connection)
{
    PeerLink& link = controller.link();
    std::optional<QString> error;
    if (connection == 0 || link.connectionID(peer) != connection) {
        error = peer + QStringLiteral(" is not connected.");
    } else if (auto encoded = encodeBridgeMessage(reply); !encoded.ok()) {
        error = encoded.error();
    } else {
        const qint64 room = std::min(PeerLink::maximumMessageBytes,
                                     PeerLink::maximumPeerBacklogBytes - link.backlog(peer));
        const qint64 size = encoded.value().size();
        if (size <= room) {
            error = link.send(encoded.value(), peer);
        } else {
            controller.appendLog(QStringLiteral("A reply to ") + loggableText(peer) +
                                 QStringLiteral(" was too large to send: ") + megabytes(size));
            error = controller.sendToPeer(
                BridgeMessage{
                    bridgeProtocolVersion, BridgeMessageKind::Error, reply.id, std::nullopt,
                    JSONValue(QStringLiteral("The reply is too large to send to this "
                                             "device (%1; it may take %2 at a time).")
                                  .arg(megabytes(size), megabytes(std::max<qint64>(room, 0))))},
                peer);
        }
    }
    if (error)
        controller.appendLog(QStringLiteral("Could not reply to ") + loggableText(peer) +
                             QStringLiteral(": ") + *error);
}

} // namespace

void BridgeController::handleRequest(const BridgeMessage& message, const QString& peer)
{
    auto refuse = [&](const char* text) {
        sendToPeer(BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Error, message.id,
                                 std::nullopt, JSONValue(text)},
                   peer);
    };
    if (!isAuthorized(peer))
        return refuse("Pair this device first.");
    if (!message.id || !message.method || !allowedEngineMethods().count(*message.method))
        return refuse("That method is not available through Nimbrel.");

    const JSONValue params = message.body.value_or(JSONValue::object({}));
    QPointer<BridgeController> self(this);
    const QString id = *message.id;
    const quint64 connection = m_link->connectionID(peer);
    m_appServer->request(
        *message.method, params,
        [self, id, peer, connection](const AppServerClient::RequestResult& outcome) {
            if (!self)
                return;
            const BridgeMessage reply =
                outcome.ok() ? BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Response, id,
                                             std::nullopt, outcome.value()}
                             : BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Error, id,
                                             std::nullopt, JSONValue(outcome.error().text())};
            sendReply(*self, reply, peer, connection);
        });
}

void BridgeController::handleNotification(const QString& method, const JSONValue& params)
{
    expireUserInput(method, params);
    withdrawResolvedApproval(method, params);
    if (method == QLatin1String("account/login/completed"))
        handleSignInCompleted(params);
    m_workspace->handleNotification(method, params);
    broadcast(BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Event, std::nullopt, method,
                            params});
}

} // namespace nimbrel
