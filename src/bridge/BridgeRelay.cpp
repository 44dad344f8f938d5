// What an authorised peer may ask of the engine, and the engine's events fanned out to peers.
#include "bridge/BridgeController.h"

#include "platform/TextFormatting.h"
#include "workspace/SessionParsers.h"

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

void BridgeController::handleRequest(const BridgeMessage& message, const QString& peer)
{
    auto refuse = [&](const char* text) {
        sendToPeer(BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Error, message.id,
                                 std::nullopt, JSONValue(text)},
                   peer);
    };
    if (!isAuthorized(peer))
        return refuse("Pair this device first.");
    if (message.id && message.method == setSessionModeMethod)
        return setSessionModeFromPeer(message, peer);
    if (!message.id || !message.method || !allowedEngineMethods().count(*message.method))
        return refuse("That method is not available through Nimbrel.");

    JSONValue params = message.body.value_or(JSONValue::object({}));
    const QString method = *message.method;
    // A session runs in its one mode whoever continues it: a request that names none carries the
    // session's; one that names its own changes the session's, and everyone hears of it.
    const bool carriesMode = modeMethods().contains(method) && params.isObject();
    const QString threadID =
        carriesMode ? stringAt(params, "threadId").value_or(QString()) : QString();
    const std::optional<PermissionMode> asked =
        carriesMode ? permissionModeIn(params) : std::nullopt;
    if (carriesMode && !asked && !threadID.isEmpty())
        if (const std::optional<PermissionMode> kept = m_workspace->sessionMode(threadID))
            params = withPermissionMode(params, *kept, method == QLatin1String("turn/start"));
    QPointer<BridgeController> self(this);
    const QString id = *message.id;
    const quint64 connection = m_link->connectionID(peer);
    m_appServer->request(
        method, params,
        [self, id, peer, connection, carriesMode, method, threadID,
         asked](const AppServerClient::RequestResult& outcome) {
            if (!self)
                return;
            if (carriesMode && outcome.ok())
                self->m_workspace->noteSessionModeReply(method, threadID, asked, outcome.value());
            const BridgeMessage reply =
                outcome.ok() ? BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Response, id,
                                             std::nullopt, outcome.value()}
                             : BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Error, id,
                                             std::nullopt, JSONValue(outcome.error().text())};
            if (auto error = self->sendToConnection(reply, peer, connection))
                self->appendLog(QStringLiteral("Could not reply to ") + loggableText(peer) +
                                QStringLiteral(": ") + *error);
        });
}

const QStringList& BridgeController::modeMethods()
{
    static const QStringList methods{QStringLiteral("thread/start"),
                                     QStringLiteral("thread/resume"), QStringLiteral("thread/fork"),
                                     QStringLiteral("turn/start")};
    return methods;
}

// A peer's change of a session's mode, made in its header: recorded, then announced to all.
void BridgeController::setSessionModeFromPeer(const BridgeMessage& message, const QString& peer)
{
    const JSONValue body = message.body.value_or(JSONValue());
    const QString threadID = stringAt(body, "threadId").value_or(QString());
    const std::optional<PermissionMode> mode =
        permissionModeFromKey(stringAt(body, "mode").value_or(QString()));
    const bool valid = !threadID.isEmpty() &&
                       threadID.size() <= CodexWorkspace::maximumThreadIDLength && mode &&
                       *mode != PermissionMode::Custom;
    if (valid)
        m_workspace->recordSessionMode(threadID, *mode);
    sendToPeer(valid ? BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Response, message.id,
                                     std::nullopt, JSONValue::object({})}
                     : BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Error, message.id,
                                     std::nullopt,
                                     JSONValue("Choose full-access, ask or read-only for a "
                                               "session by its threadId.")},
               peer);
}

BridgeMessage BridgeController::sessionModeEvent(const QString& threadID) const
{
    const std::optional<PermissionMode> mode = m_workspace->sessionMode(threadID);
    return BridgeMessage{
        bridgeProtocolVersion, BridgeMessageKind::Event, std::nullopt, sessionModeEventMethod,
        JSONValue::object({{"threadId", threadID},
                           {"mode", mode ? JSONValue(permissionModeKey(*mode)) : JSONValue()}})};
}

BridgeMessage BridgeController::sessionModesEvent() const
{
    std::vector<std::pair<std::string, JSONValue>> modes;
    for (const auto& [threadID, mode] : m_workspace->sessionModes())
        modes.emplace_back(threadID.toStdString(), permissionModeKey(mode));
    return BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Event, std::nullopt,
                         sessionModesEventMethod,
                         JSONValue::object({{"modes", JSONValue::object(std::move(modes))}})};
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
