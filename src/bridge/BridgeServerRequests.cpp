// The engine's approvals and questions: held under local ids, shown here, offered to every
// authorised peer, answered once by whoever answers first, dropped when no longer wanted.
#include "bridge/BridgeController.h"

#include "platform/TextFormatting.h"
#include "workspace/SessionParsers.h"

#include <QPointer>

#include <algorithm>

namespace nimbrel {

namespace {

BridgeMessage eventOf(const QString& method, JSONValue body)
{
    return BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Event, std::nullopt, method,
                         std::move(body)};
}

// Tells every peer that a held request is no longer open, by its local id: answered here or by a
// peer, or resolved by the engine itself.
BridgeMessage resolvedEvent(const PendingServerRequest& pending)
{
    std::vector<std::pair<std::string, JSONValue>> body;
    if (const JSONValue* threadID = pending.params.find("threadId");
        threadID && threadID->isString())
        body.emplace_back("threadId", *threadID);
    body.emplace_back("requestId", pending.localID);
    return eventOf(QStringLiteral("sarvane/serverRequestResolved"),
                   JSONValue::object(std::move(body)));
}

} // namespace

const QStringList& BridgeController::approvalMethods()
{
    static const QStringList methods{QStringLiteral("item/commandExecution/requestApproval"),
                                     QStringLiteral("item/fileChange/requestApproval")};
    return methods;
}

const QStringList& BridgeController::heldMethods()
{
    static const QStringList methods =
        approvalMethods() + QStringList{permissionsMethod, elicitationMethod};
    return methods;
}

namespace {

// What the engine is told for a decision of this computer's sheet or console.
JSONValue decisionResponse(const QString& method, const JSONValue& params, const QString& decision)
{
    if (method == BridgeController::permissionsMethod)
        return permissionsResponse(params, decision);
    if (method == BridgeController::elicitationMethod)
        return JSONValue::object({{"action", decision == QLatin1String("accept")   ? "accept"
                                             : decision == QLatin1String("cancel") ? "cancel"
                                                                                   : "decline"}});
    return JSONValue::object({{"decision", decision}});
}

} // namespace

// ---- arrival

void BridgeController::handleServerRequest(const JSONValue& id, const QString& method,
                                           const JSONValue& params)
{
    if (method == questionMethod) {
        const std::optional<PendingUserInputRequests::Pending> entry =
            m_pendingUserInput.add(id, params);
        if (!entry) {
            m_appServer->respondError(id, QStringLiteral("The question request is malformed."));
            return;
        }
        emit pendingUserInputChanged();
        m_workspace->addUserInputPrompt(entry->request);
        broadcast(PendingUserInputRequests::questionEvent(*entry));
        return;
    }
    if (!heldMethods().contains(method)) {
        m_appServer->respondError(id, QStringLiteral("Nimbrel Bridge does not implement ") +
                                          method + QLatin1Char('.'));
        appendLog(QStringLiteral("Codex asked for ") + loggableText(method) +
                  QStringLiteral(", which this bridge does not handle; it was refused."));
        return;
    }
    if (method == elicitationMethod) {
        const Result<ElicitationRequest, QString> request = parseElicitation(params);
        if (!request.ok()) {
            m_appServer->respondError(id, QStringLiteral("The elicitation request is malformed: ") +
                                              request.error() + QLatin1Char('.'));
            appendLog(QStringLiteral("A tool server's request for input was refused: ") +
                      loggableText(request.error()) + QLatin1Char('.'));
            return;
        }
    }
    // Whatever is granted must have been seen: a request not readable in full is refused.
    if (method == permissionsMethod && !requestedPermissionLines(params)) {
        m_appServer->respondError(id, unreadableGrantsText);
        appendLog(QStringLiteral("Codex asked for more access that could not be shown in full; it "
                                 "was refused."));
        return;
    }
    const PendingServerRequest pending{randomUUIDText(), id, method, params};
    m_pendingServerRequests.push_back(pending);
    ApprovalPrompt prompt = makeApprovalPrompt(pending.localID, method, params);
    if (!m_approval) {
        setApproval(std::move(prompt));
    } else {
        m_queuedApprovals.push_back(std::move(prompt));
        emit queuedApprovalsChanged();
    }
    // Every peer hears of every approval at once; the queue is only how this computer shows them.
    broadcast(pending.offer());
}

// ---- approvals

void BridgeController::respondToApproval(const QString& decision)
{
    if (!m_approval)
        return;
    // A form is answered with its content (answerElicitation); its defaults stand in here.
    if (m_approval->elicitation && !m_approval->elicitation->isURL &&
        decision == QLatin1String("accept")) {
        answerElicitation(decision, {});
        return;
    }
    const std::optional<PendingServerRequest> pending = takePendingServerRequest(m_approval->id);
    if (!pending)
        return;
    showNextApproval();
    m_appServer->respond(pending->serverID,
                         decisionResponse(pending->method, pending->params, decision));
    broadcast(resolvedEvent(*pending));
}

QString BridgeController::answerElicitation(const QString& action, const QVariantMap& values)
{
    if (!m_approval || !m_approval->elicitation)
        return QStringLiteral("No request for input is waiting.");
    JSONValue response = JSONValue::object({{"action", action}});
    if (action == QLatin1String("accept")) {
        std::map<QString, QString> typed;
        for (auto value = values.begin(); value != values.end(); ++value)
            typed[value.key()] = value.value().toString();
        const Result<JSONValue, QString> content =
            elicitationContent(*m_approval->elicitation, typed);
        if (!content.ok())
            return content.error();
        response = m_approval->elicitation->isURL
                       ? JSONValue::object({{"action", "accept"}})
                       : JSONValue::object({{"action", "accept"}, {"content", content.value()}});
    } else if (action != QLatin1String("decline") && action != QLatin1String("cancel")) {
        return QStringLiteral("Answer with accept, decline or cancel.");
    }
    const std::optional<PendingServerRequest> pending = takePendingServerRequest(m_approval->id);
    if (!pending)
        return QStringLiteral("No request for input is waiting.");
    showNextApproval();
    m_appServer->respond(pending->serverID, response);
    broadcast(resolvedEvent(*pending));
    return {};
}

std::optional<PendingServerRequest>
BridgeController::takePendingServerRequest(const QString& localID)
{
    const auto found = std::find_if(
        m_pendingServerRequests.begin(), m_pendingServerRequests.end(),
        [&](const PendingServerRequest& pending) { return pending.localID == localID; });
    if (found == m_pendingServerRequests.end())
        return std::nullopt;
    PendingServerRequest taken = std::move(*found);
    m_pendingServerRequests.erase(found);
    return taken;
}

void BridgeController::showNextApproval()
{
    if (m_queuedApprovals.empty())
        return setApproval(std::nullopt);
    ApprovalPrompt next = std::move(m_queuedApprovals.front());
    m_queuedApprovals.erase(m_queuedApprovals.begin());
    emit queuedApprovalsChanged();
    setApproval(std::move(next));
}

void BridgeController::setApproval(std::optional<ApprovalPrompt> prompt)
{
    if (m_approval == prompt)
        return;
    m_approval = std::move(prompt);
    emit approvalChanged();
}

void BridgeController::handleServerResponse(const BridgeMessage& message, const QString& peer)
{
    if (message.method == questionMethod)
        return answerQuestionFromPeer(message, peer);
    if (!isAuthorized(peer) || !message.id)
        return;
    // Taking the entry out is what makes the first answer win.
    const std::optional<PendingServerRequest> pending = takePendingServerRequest(*message.id);
    if (!pending)
        return;
    removeApprovalPrompt(pending->localID);
    // The answer passes to the engine as the peer wrote it.
    m_appServer->respond(pending->serverID, message.body.value_or(decisionResponse(
                                                pending->method, pending->params, "decline")));
    broadcast(resolvedEvent(*pending));
}

void BridgeController::removeApprovalPrompt(const QString& localID)
{
    if (m_approval && m_approval->id == localID)
        showNextApproval();
    else if (std::erase_if(m_queuedApprovals,
                           [&](const ApprovalPrompt& prompt) { return prompt.id == localID; }) > 0)
        emit queuedApprovalsChanged();
}

// The engine no longer waits for an approval it has resolved itself (its turn was interrupted):
// it leaves this computer's window and is offered to no one who comes later.
void BridgeController::withdrawResolvedApproval(const QString& method, const JSONValue& params)
{
    const JSONValue* requestID = params.find("requestId");
    if (method != QLatin1String("serverRequest/resolved") || !requestID)
        return;
    const JSONValue* threadID = params.find("threadId");
    const auto found = std::find_if(m_pendingServerRequests.begin(), m_pendingServerRequests.end(),
                                    [&](const PendingServerRequest& pending) {
                                        const JSONValue* askedIn = pending.params.find("threadId");
                                        return pending.serverID == *requestID &&
                                               (!threadID || !askedIn || *askedIn == *threadID);
                                    });
    if (found == m_pendingServerRequests.end())
        return;
    const PendingServerRequest withdrawn = *found;
    m_pendingServerRequests.erase(found);
    removeApprovalPrompt(withdrawn.localID);
    broadcast(resolvedEvent(withdrawn));
}

// ---- questions

void BridgeController::answerQuestionFromPeer(const BridgeMessage& message, const QString& peer)
{
    if (!isAuthorized(peer) || !message.id)
        return;
    const QString id = *message.id;
    const quint64 connection = m_link->connectionID(peer);
    QPointer<BridgeController> self(this);
    answerUserInput(id, message.body.value_or(JSONValue()),
                    [self, id, peer, connection](const std::optional<AppServerError>& error) {
                        if (!self)
                            return;
                        self->sendToConnection(
                            error
                                ? BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Error, id,
                                                std::nullopt, JSONValue(error->text())}
                                : BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Response,
                                                id, std::nullopt, JSONValue::object({})},
                            peer, connection);
                    });
}

void BridgeController::answerUserInput(const QString& requestID, const JSONValue& response,
                                       CodexWorkspace::AnswerCompletion completion)
{
    const std::optional<PendingUserInputRequests::Pending> entry =
        m_appServerReady ? m_pendingUserInput.beginAnswer(requestID, response) : std::nullopt;
    if (!entry) {
        completion(AppServerError::server(questionClosedText));
        return;
    }
    QPointer<BridgeController> self(this);
    m_appServer->respond(entry->serverID, response,
                         [self, requestID, completion](const std::optional<AppServerError>& error) {
                             if (!self)
                                 return;
                             // A failed write leaves the question open for anyone to answer again.
                             if (error)
                                 self->m_pendingUserInput.endAnswer(requestID);
                             else
                                 self->finishUserInput(requestID);
                             completion(error);
                         });
}

// The question leaves, and everyone hears of it once: this computer's window and every peer.
void BridgeController::finishUserInput(const QString& requestID)
{
    const std::optional<PendingUserInputRequests::Pending> entry =
        m_pendingUserInput.remove(requestID);
    if (!entry)
        return;
    emit pendingUserInputChanged();
    const JSONValue body = JSONValue::object(
        {{"threadId", entry->request.threadID}, {"requestId", entry->request.id}});
    const QString method = QStringLiteral("sarvane/userInputResolved");
    m_workspace->handleNotification(method, body);
    broadcast(eventOf(method, body));
}

// The engine has ended these questions itself, so it is told nothing.
void BridgeController::expireUserInput(const QString& method, const JSONValue& params)
{
    QStringList closed;
    for (const PendingUserInputRequests::Pending& entry : m_pendingUserInput.requests)
        if (closesQuestion(entry, method, params))
            closed.append(entry.request.id);
    for (const QString& id : closed)
        finishUserInput(id);
}

// ---- for the views

namespace {

QVariantMap approvalVariant(const ApprovalPrompt& prompt)
{
    return QVariantMap{{"id", prompt.id},
                       {"method", prompt.method},
                       {"access", prompt.access},
                       {"title", prompt.title},
                       {"detail", prompt.detail},
                       {"command", prompt.command.value_or(QString())},
                       {"cwd", prompt.cwd.value_or(QString())}};
}

} // namespace

QVariantMap BridgeController::approvalMap() const
{
    return m_approval ? approvalVariant(*m_approval) : QVariantMap();
}

QVariantList BridgeController::queuedApprovalList() const
{
    QVariantList list;
    for (const ApprovalPrompt& prompt : m_queuedApprovals)
        list.append(approvalVariant(prompt));
    return list;
}

} // namespace nimbrel
