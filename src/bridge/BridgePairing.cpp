// How a connected peer becomes authorised: signed hellos, pairing by code, trust and forgetting.
#include "bridge/BridgeController.h"

#include "platform/HostName.h"
#include "platform/TextFormatting.h"

#include <QVariantMap>

#include <algorithm>

namespace nimbrel {

namespace {

BridgeMessage messageOf(BridgeMessageKind kind, std::optional<QString> id = std::nullopt,
                        std::optional<QString> method = std::nullopt,
                        std::optional<JSONValue> body = std::nullopt)
{
    return BridgeMessage{bridgeProtocolVersion, kind, std::move(id), std::move(method),
                         std::move(body)};
}

} // namespace

// ---- the connection's life

void BridgeController::handleConnected(const QString& peer)
{
    if (!m_identity) {
        appendLog(QStringLiteral("Cannot pair: secure Keychain identity is unavailable."));
        return;
    }
    auto hello = m_identity->makeHello(hostDisplayName(QStringLiteral("Nimbrel Bridge")));
    if (!hello.ok()) {
        appendLog(QStringLiteral("Could not start secure handshake: ") + hello.error());
        return;
    }
    m_localHellos[peer] = hello.value();
    if (auto error =
            sendToPeer(messageOf(BridgeMessageKind::Hello, {}, {}, hello.value().toBody()), peer))
        appendLog(QStringLiteral("Could not start secure handshake: ") + *error);
}

void BridgeController::handleDisconnected(const QString& peer)
{
    setAuthorized(peer, false);
    removePairingRequests([&](const PairingRequest& request) { return request.peer == peer; });
    m_localHellos.erase(peer);
    m_remoteHellos.erase(peer);
    m_askedToPair.erase(peer);
    if (const auto unlogged = m_unloggedMalformed.find(peer);
        unlogged != m_unloggedMalformed.end()) {
        const int more = unlogged->second;
        m_unloggedMalformed.erase(unlogged);
        if (more > 0)
            appendStrangerLog(QStringLiteral("…and %1 more from ").arg(more) + loggableText(peer));
    }
}

// ---- receiving

void BridgeController::handleData(const QByteArray& data, const QString& peer)
{
    auto decoded = decodeBridgeMessage(
        std::string_view(data.constData(), static_cast<std::size_t>(data.size())));
    std::optional<QString> failure;
    if (!decoded.ok()) {
        failure = decoded.error();
    } else {
        const BridgeMessage& message = decoded.value();
        if (message.version != bridgeProtocolVersion) {
            failure = sendToPeer(messageOf(BridgeMessageKind::Error, {}, {},
                                           JSONValue("Incompatible protocol version.")),
                                 peer);
        } else {
            switch (message.kind) {
            case BridgeMessageKind::Hello:
                failure = handleHello(message.body, peer);
                break;
            case BridgeMessageKind::PairingRequest:
                handlePairingRequest(peer);
                break;
            case BridgeMessageKind::Request:
                handleRequest(message, peer);
                break;
            case BridgeMessageKind::ServerResponse:
                handleServerResponse(message, peer);
                break;
            case BridgeMessageKind::Ping:
                failure = sendToPeer(
                    messageOf(BridgeMessageKind::Response, message.id, {}, JSONValue("pong")),
                    peer);
                break;
            default:
                break; // kinds only the bridge sends
            }
        }
    }
    if (failure)
        logMalformedMessage(peer, *failure);
}

// A connection's malformed messages: each one where it is authorised; from a stranger the first,
// and how many more followed when it goes.
void BridgeController::logMalformedMessage(const QString& peer, const QString& error)
{
    const QString line = QStringLiteral("Rejected malformed message from ") + loggableText(peer) +
                         QStringLiteral(": ") + loggableText(error);
    if (isAuthorized(peer)) {
        appendLog(line);
        return;
    }
    const auto [unlogged, first] = m_unloggedMalformed.try_emplace(peer, 0);
    if (first)
        appendStrangerLog(line);
    else
        ++unlogged->second;
}

std::optional<QString> BridgeController::handleHello(const std::optional<JSONValue>& body,
                                                     const QString& peer)
{
    if (!body)
        return AppServerError::invalidResponse().text();
    auto read = HelloPayload::fromBody(*body);
    if (!read.ok())
        return read.error();
    const HelloPayload& hello = read.value();
    if (!verify(hello))
        return QStringLiteral("Handshake signature did not verify.");
    // A connection authorised as one device stays that device: another identity ends its rights.
    if (const auto device = m_authorizedDevices.find(peer);
        device != m_authorizedDevices.end() && device->second != hello.deviceID) {
        setAuthorized(peer, false);
        return QStringLiteral("Handshake identity changed.");
    }
    m_remoteHellos[peer] = hello;
    const std::optional<TrustedPeer> trusted = m_trustStore.peer(hello.deviceID);
    // An unknown device waits to pair; a known id with another key gets nothing and hears nothing.
    if (!trusted || trusted->publicKey != hello.publicKey)
        return std::nullopt;
    setAuthorized(peer, true, hello.deviceID);
    if (const auto local = m_localHellos.find(peer); local != m_localHellos.end())
        if (auto error = sendToPeer(
                messageOf(BridgeMessageKind::PairingAccepted, {}, {}, local->second.toBody()),
                peer))
            return error;
    sendInitialState(peer);
    appendLog(QStringLiteral("Authenticated ") + loggableText(hello.displayName) +
              QStringLiteral(" from ") + m_link->peerAddress(peer).toString() + QLatin1Char('.'));
    return std::nullopt;
}

void BridgeController::handlePairingRequest(const QString& peer)
{
    const auto local = m_localHellos.find(peer);
    const auto remote = m_remoteHellos.find(peer);
    if (local == m_localHellos.end() || remote == m_remoteHellos.end())
        return;
    // A device already trusted, under any key, does not pair again until it is forgotten.
    if (m_trustStore.peer(remote->second.deviceID))
        return;
    // Copies: ending an older request below may reach back into the tables.
    const HelloPayload localHello = local->second, remoteHello = remote->second;
    const quint64 connection = m_link->connectionID(peer);
    // One request a connection: while it waits, asking again changes nothing; once it has been
    // decided or has expired, the connection is refused.
    if (pairingRequestWithID(peer))
        return;
    const auto asked = m_askedToPair.find(peer);
    if (asked != m_askedToPair.end() && asked->second == connection) {
        sendToConnection(messageOf(BridgeMessageKind::PairingRejected), peer, connection);
        return;
    }
    m_askedToPair[peer] = connection;
    const QString address = m_link->peerAddress(peer).toString();
    const double now = m_scheduler.now();
    if (m_pairingHistories.size() > 256)
        std::erase_if(m_pairingHistories,
                      [&](const auto& entry) { return isSpent(entry.second, now); });
    PairingHistory& history = m_pairingHistories[address];
    if (!mayRequestPairing(history, now)) {
        refusePairingRequest(peer, now < history.pausedUntil
                                       ? QStringLiteral("too many of its requests were refused.")
                                       : QStringLiteral("it asked again too soon."));
        return;
    }
    history = afterPairingRequest(history, now);

    // Only the newest few wait; the oldest is ended, and its device told so, before another
    // is shown.
    while (static_cast<int>(m_pairingRequests.size()) >= maximumPairingRequests) {
        const PairingRequest oldest = m_pairingRequests.front();
        sendToConnection(messageOf(BridgeMessageKind::PairingRejected), oldest.peer,
                         oldest.connection);
        removePairingRequests([&](const PairingRequest& other) { return other.id == oldest.id; });
        m_link->setAwaitingPairing(oldest.peer, false);
        appendStrangerLog(QStringLiteral("Pairing request from ") +
                          loggableText(oldest.remoteHello.displayName) +
                          QStringLiteral(" ended: newer requests came."));
    }
    const QString code = pairingCode(localHello, remoteHello);
    PairingRequest request{peer, peer, connection, code, localHello, remoteHello, address};
    m_pairingRequests.push_back(request);
    m_link->setAwaitingPairing(peer, true);
    m_pairingLimits[peer] =
        m_scheduler.schedule(this, pairingRequestLimitSeconds,
                             [this, peer, connection] { expirePairingRequest(peer, connection); });
    emit pairingRequestsChanged();
    appendStrangerLog(QStringLiteral("Pairing requested by ") +
                      loggableText(request.remoteHello.displayName) +
                      QStringLiteral(". Compare code ") + code + QLatin1Char('.'));
}

// A request that does not reach the window: the device hears no at once.
void BridgeController::refusePairingRequest(const QString& peer, const QString& why)
{
    sendToPeer(messageOf(BridgeMessageKind::PairingRejected), peer);
    const auto remote = m_remoteHellos.find(peer);
    appendStrangerLog(
        QStringLiteral("Refused pairing with ") +
        loggableText(remote != m_remoteHellos.end() ? remote->second.displayName : peer) +
        QStringLiteral(": ") + why);
}

// A rejection or an expiry counts against the address it came from.
void BridgeController::notePairingEnded(const PairingRequest& request)
{
    PairingHistory& history = m_pairingHistories[request.address];
    history = afterPairingEnded(history, m_scheduler.now());
}

// ---- the user's decisions

void BridgeController::approvePairing(PairingRequest request)
{
    // A request outlives no connection; one of a connection that has gone is stale.
    if (m_link->connectionID(request.peer) != request.connection)
        return;
    if (auto error = m_trustStore.trust(request.remoteHello)) {
        appendLog(QStringLiteral("Pairing failed: ") + *error);
        return;
    }
    rebuildTrustedPeers();
    setAuthorized(request.peer, true, request.remoteHello.deviceID);
    if (auto error = sendToPeer(
            messageOf(BridgeMessageKind::PairingAccepted, {}, {}, request.localHello.toBody()),
            request.peer)) {
        appendLog(QStringLiteral("Pairing failed: ") + *error);
        return;
    }
    removePairingRequests([&](const PairingRequest& other) { return other.id == request.id; });
    // The user knows the address now: another device there may ask at once, and this connection
    // may ask again should the device be forgotten.
    m_pairingHistories.erase(request.address);
    m_askedToPair.erase(request.peer);
    sendInitialState(request.peer);
    appendLog(QStringLiteral("Paired ") + loggableText(request.remoteHello.displayName) +
              QStringLiteral(" from ") + m_link->peerAddress(request.peer).toString() +
              QLatin1Char('.'));
}

void BridgeController::rejectPairing(PairingRequest request)
{
    if (m_link->connectionID(request.peer) != request.connection)
        return;
    sendToPeer(messageOf(BridgeMessageKind::PairingRejected), request.peer);
    removePairingRequests([&](const PairingRequest& other) { return other.id == request.id; });
    m_link->setAwaitingPairing(request.peer, false);
    notePairingEnded(request);
    appendLog(QStringLiteral("Rejected pairing from ") +
              loggableText(request.remoteHello.displayName) + QLatin1Char('.'));
}

// Nobody decided in time: the peer hears no, and has the hello limit to ask again or leave.
void BridgeController::expirePairingRequest(const QString& id, quint64 connection)
{
    const std::optional<PairingRequest> request = pairingRequestWithID(id);
    if (!request || request->connection != connection)
        return;
    sendToConnection(messageOf(BridgeMessageKind::PairingRejected), request->peer, connection);
    removePairingRequests([&](const PairingRequest& other) { return other.id == id; });
    m_link->setAwaitingPairing(request->peer, false);
    notePairingEnded(*request);
    appendLog(QStringLiteral("Pairing request from ") +
              loggableText(request->remoteHello.displayName) +
              QStringLiteral(" expired: nobody compared its code within two minutes."));
}

void BridgeController::forgetPeer(TrustedPeer peer)
{
    if (auto error = m_trustStore.remove(peer.deviceID)) {
        appendLog(QStringLiteral("Could not forget device: ") + *error);
        return;
    }
    rebuildTrustedPeers();
    // Every connection this device authorised; a connection's hello cannot change its device.
    QStringList ending;
    for (const auto& [name, device] : m_authorizedDevices)
        if (device == peer.deviceID)
            ending.append(name);
    for (const QString& name : ending)
        setAuthorized(name, false);
    appendLog(QStringLiteral("Forgot ") + loggableText(peer.displayName) + QLatin1Char('.'));
}

std::optional<PairingRequest> BridgeController::pairingRequestWithCode(const QString& code) const
{
    const auto found =
        std::find_if(m_pairingRequests.begin(), m_pairingRequests.end(),
                     [&](const PairingRequest& request) { return request.code == code; });
    return found == m_pairingRequests.end() ? std::nullopt : std::optional(*found);
}

std::optional<PairingRequest> BridgeController::pairingRequestWithID(const QString& id) const
{
    const auto found =
        std::find_if(m_pairingRequests.begin(), m_pairingRequests.end(),
                     [&](const PairingRequest& request) { return request.id == id; });
    return found == m_pairingRequests.end() ? std::nullopt : std::optional(*found);
}

std::optional<TrustedPeer> BridgeController::trustedPeerWithID(const QString& deviceID) const
{
    const auto found =
        std::find_if(m_trustedPeers.begin(), m_trustedPeers.end(),
                     [&](const TrustedPeer& peer) { return peer.deviceID == deviceID; });
    return found == m_trustedPeers.end() ? std::nullopt : std::optional(*found);
}

// ---- catching a newly authorised peer up

void BridgeController::sendInitialState(const QString& peer)
{
    // Made whole before any of it goes: a send that drops a slow peer reaches back into this
    // object.
    std::vector<BridgeMessage> messages{engineStatusEvent(), sessionModesEvent()};
    if (m_appServerReady) {
        for (const auto& [id, session] : m_workspace->sessions()) {
            if (!session.tokenUsage)
                continue;
            messages.push_back(messageOf(
                BridgeMessageKind::Event, {}, QStringLiteral("thread/tokenUsage/updated"),
                JSONValue::object({{"threadId", id},
                                   {"tokenUsage", session.tokenUsage->payload},
                                   {"sarvaneUpdatedAt", session.tokenUsage->updatedAt}})));
        }
        // What still waits for an answer can be answered by the newcomer too, the first answer
        // winning as ever; what is being answered is not offered.
        for (const PendingUserInputRequests::Pending& entry : m_pendingUserInput.requests)
            if (!entry.isSubmitting)
                messages.push_back(PendingUserInputRequests::questionEvent(entry));
        for (const PendingServerRequest& pending : m_pendingServerRequests)
            messages.push_back(pending.offer());
    }
    for (const BridgeMessage& message : messages)
        sendToPeer(message, peer);
}

// ---- bookkeeping

void BridgeController::rebuildTrustedPeers()
{
    std::vector<TrustedPeer> peers;
    for (const auto& [id, peer] : m_trustStore.peers())
        peers.push_back(peer);
    // Plain comparison of the text, not the locale's order.
    std::stable_sort(peers.begin(), peers.end(), [](const TrustedPeer& a, const TrustedPeer& b) {
        return a.displayName < b.displayName;
    });
    if (peers != m_trustedPeers) {
        m_trustedPeers = std::move(peers);
        emit trustedPeersChanged();
    }
}

void BridgeController::setAuthorized(const QString& peer, bool authorized, const QString& deviceID)
{
    m_link->setAuthorized(peer, authorized);
    const bool changed = authorized ? m_authorizedDevices.insert_or_assign(peer, deviceID).second
                                    : m_authorizedDevices.erase(peer) > 0;
    if (changed)
        emit authorizedPeerNamesChanged();
}

QStringList BridgeController::authorizedPeerNames() const
{
    QStringList names;
    for (const auto& [name, device] : m_authorizedDevices)
        names.append(name);
    return names;
}

void BridgeController::removePairingRequests(
    const std::function<bool(const PairingRequest&)>& matches)
{
    std::vector<QString> removed;
    for (const PairingRequest& request : m_pairingRequests)
        if (matches(request))
            removed.push_back(request.id);
    if (removed.empty())
        return;
    std::erase_if(m_pairingRequests, matches);
    for (const QString& id : removed)
        if (const auto limit = m_pairingLimits.find(id); limit != m_pairingLimits.end()) {
            if (limit->second)
                limit->second->cancel();
            m_pairingLimits.erase(limit);
        }
    emit pairingRequestsChanged();
}

QVariantList BridgeController::pairingRequestList() const
{
    QVariantList list;
    for (const PairingRequest& request : m_pairingRequests)
        list.append(QVariantMap{{"id", request.id},
                                {"peer", request.peer},
                                {"code", request.code},
                                {"displayName", request.remoteHello.displayName}});
    return list;
}

QVariantList BridgeController::trustedPeerList() const
{
    QVariantList list;
    for (const TrustedPeer& peer : m_trustedPeers)
        list.append(QVariantMap{{"deviceID", peer.deviceID},
                                {"displayName", peer.displayName},
                                {"publicKey", peer.publicKey},
                                {"pairedAt", peer.pairedAt}});
    return list;
}

} // namespace nimbrel
