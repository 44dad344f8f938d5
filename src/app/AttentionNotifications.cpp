#include "AttentionNotifications.h"

#include "bridge/BridgeController.h"
#include "platform/DesktopNotifications.h"
#include "platform/TextFormatting.h"
#include "ui/setup/NotificationPreference.h"

namespace nimbrel {

namespace {

const QString kTurnKeyPrefix = QStringLiteral("turn:");

QString withSession(const QString& session, const QString& text)
{
    if (session.isEmpty())
        return text;
    return text.isEmpty() ? session : session + QLatin1Char('\n') + text;
}

} // namespace

NotificationText approvalNotificationText(const ApprovalPrompt& approval, const QString& session)
{
    if (approval.method.contains(QLatin1String("commandExecution")))
        return {QStringLiteral("Codex asks to run a command"),
                withSession(session, loggableText(approval.command.value_or(QString())))};
    if (approval.method.contains(QLatin1String("fileChange")))
        return {QStringLiteral("Codex asks to change files"), withSession(session, {})};
    if (approval.elicitation)
        return {loggableText(approval.title), withSession(session, loggableText(approval.detail))};
    return {QStringLiteral("Codex asks for more access"),
            withSession(session, loggableText(approval.detail))};
}

NotificationText questionNotificationText(const UserInputRequest& request, const QString& session)
{
    QString asked;
    if (!request.questions.empty()) {
        const UserInputQuestion& first = request.questions.front();
        asked = loggableText(first.question.isEmpty() ? first.header : first.question);
    }
    return {request.questions.size() > 1 ? QStringLiteral("Codex has questions")
                                         : QStringLiteral("Codex has a question"),
            withSession(session, asked)};
}

NotificationText turnEndedNotificationText(const QString& status, const QString& session)
{
    const QString summary = status == QLatin1String("failed") ? QStringLiteral("Turn failed")
                            : status == QLatin1String("interrupted")
                                ? QStringLiteral("Turn stopped")
                                : QStringLiteral("Turn finished");
    return {summary, session.isEmpty() ? QStringLiteral("A Codex session") : session};
}

AttentionNotifications::AttentionNotifications(BridgeController& controller, UserDefaults& defaults,
                                               DesktopNotifications& notifications, Window window,
                                               QObject* parent)
    : QObject(parent)
    , m_controller(controller)
    , m_defaults(defaults)
    , m_notifications(notifications)
    , m_window(std::move(window))
{
    connect(&controller, &BridgeController::approvalChanged, this,
            &AttentionNotifications::refreshRequests);
    connect(&controller, &BridgeController::queuedApprovalsChanged, this,
            &AttentionNotifications::refreshRequests);
    connect(&controller, &BridgeController::pendingUserInputChanged, this,
            &AttentionNotifications::refreshRequests);
    connect(&controller.workspace(), &CodexWorkspace::turnEnded, this,
            &AttentionNotifications::handleTurnEnded);
    connect(&notifications, &DesktopNotifications::activated, this, [this](const QString& key) {
        if (const auto request = m_openRequests.find(key); request != m_openRequests.end()) {
            // A copy: the window's own code runs before this returns and may change the requests.
            const QString threadID = request->second;
            m_window.bringForward(threadID);
        } else if (key.startsWith(kTurnKeyPrefix)) {
            m_window.bringForward(key.mid(kTurnKeyPrefix.size()));
        }
    });
}

bool AttentionNotifications::mayNotify() const
{
    return NotificationPreference::enabled(m_defaults) && !m_controller.workspace().isDemoMode();
}

QString AttentionNotifications::sessionTitle(const std::optional<QString>& threadID) const
{
    if (!threadID || threadID->isEmpty())
        return {};
    const std::optional<CodexThread> thread = m_controller.workspace().threadForID(*threadID);
    return thread && !thread->title.isEmpty() ? loggableText(thread->title)
                                              : QStringLiteral("A Codex session");
}

void AttentionNotifications::refreshRequests()
{
    // Every request open now, with what its notification would say.
    std::map<QString, std::pair<QString, NotificationText>> open;
    auto addApproval = [&](const ApprovalPrompt& approval) {
        const QString session = sessionTitle(approval.threadID);
        open[QStringLiteral("approval:") + approval.id] = {
            approval.threadID.value_or(QString()), approvalNotificationText(approval, session)};
    };
    if (m_controller.approval())
        addApproval(*m_controller.approval());
    for (const ApprovalPrompt& approval : m_controller.queuedApprovals())
        addApproval(approval);
    for (const auto& pending : m_controller.pendingUserInput().requests) {
        const UserInputRequest& request = pending.request;
        open[QStringLiteral("question:") + request.id] = {
            request.threadID, questionNotificationText(request, sessionTitle(request.threadID))};
    }

    for (auto known = m_openRequests.begin(); known != m_openRequests.end();) {
        if (open.count(known->first)) {
            ++known;
            continue;
        }
        m_notifications.withdraw(known->first);
        known = m_openRequests.erase(known);
    }
    const bool notify = mayNotify() && !m_window.isActive();
    for (const auto& [key, request] : open) {
        if (!m_openRequests.emplace(key, request.first).second)
            continue; // known before: notified then or not at all
        if (notify)
            m_notifications.show(key, request.second.summary, request.second.body);
    }
}

void AttentionNotifications::handleTurnEnded(const QString& threadID, const QString& status)
{
    if (!mayNotify() || (m_window.isActive() && m_window.shows(threadID)))
        return;
    const NotificationText text = turnEndedNotificationText(status, sessionTitle(threadID));
    m_notifications.show(kTurnKeyPrefix + threadID, text.summary, text.body);
}

} // namespace nimbrel
