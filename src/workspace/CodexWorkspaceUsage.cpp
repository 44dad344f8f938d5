// The account's allowances and each session's token usage, kept current by rationed readings: at
// most one reading in flight, at most one delayed reading waiting, and the periodic one once a
// minute.
#include "workspace/CodexWorkspace.h"

#include "platform/Property.h"
#include "workspace/SessionParsers.h"

#include <QPointer>

namespace nimbrel {

namespace {

void cancel(TaskHandle& task)
{
    if (task) {
        task->cancel();
        task.reset();
    }
}

} // namespace

void CodexWorkspace::refreshUsage()
{
    if (!m_engineReady || m_isDemoMode)
        return;
    if (m_isLoadingUsage) {
        m_usageRefreshPending = true;
        return;
    }
    const QUuid attempt = QUuid::createUuid();
    m_usageRequestID = attempt;
    m_lastUsageAttempt = m_scheduler.now();
    updateProperty(this, m_isLoadingUsage, true, &CodexWorkspace::isLoadingUsageChanged);
    setUsageError(std::nullopt);
    cancel(m_usageTimeoutTask);
    m_usageTimeoutTask = m_scheduler.schedule(this, m_historyRequestTimeout, [this, attempt] {
        if (m_usageRequestID != attempt)
            return;
        m_usageTimeoutTask.reset();
        m_usageRequestID.reset();
        updateProperty(this, m_isLoadingUsage, false, &CodexWorkspace::isLoadingUsageChanged);
        setUsageError(QStringLiteral(
            "Usage refresh timed out. Check that Codex runs on this computer and try again."));
        // A refresh that waited for this attempt is dropped: the periodic path reads next.
        m_usageRefreshPending = false;
    });
    QPointer<CodexWorkspace> self(this);
    request(QStringLiteral("account/rateLimits/read"), JSONValue::object({}),
            [self, attempt](const WorkspaceResult& outcome) {
                if (self)
                    self->handleUsageReply(outcome, attempt);
            });
}

void CodexWorkspace::handleUsageReply(const WorkspaceResult& outcome, const QUuid& attempt)
{
    if (m_usageRequestID != attempt || !m_engineReady || m_isDemoMode)
        return;
    cancel(m_usageTimeoutTask);
    m_usageRequestID.reset();
    updateProperty(this, m_isLoadingUsage, false, &CodexWorkspace::isLoadingUsageChanged);
    if (!outcome.ok()) {
        setUsageError(
            QStringLiteral("Couldn't refresh usage. Check this computer's Codex sign-in and "
                           "update Codex and Nimbrel Bridge, then try again."));
    } else if (std::optional<CodexAccountUsage> reading =
                   parseAccountUsage(outcome.value(), m_scheduler.date())) {
        updateProperty(this, m_accountUsage, std::move(reading),
                       &CodexWorkspace::accountUsageChanged);
    } else {
        setUsageError(QStringLiteral("Codex didn't return an account allowance. Update Codex on "
                                     "this computer and try again."));
    }
    if (m_usageRefreshPending) {
        m_usageRefreshPending = false;
        scheduleUsageRefresh();
    }
}

// Any number of calls within the wait come to one reading.
void CodexWorkspace::scheduleUsageRefresh()
{
    if (!m_engineReady || m_isDemoMode || m_usageRefreshTask)
        return;
    m_usageRefreshTask = m_scheduler.schedule(this, usageRefreshDelaySeconds, [this] {
        m_usageRefreshTask.reset();
        refreshUsage();
    });
}

// The readings belong to the engine that gave them.
void CodexWorkspace::resetUsage()
{
    cancel(m_usageRefreshTask);
    cancel(m_usageTimeoutTask);
    m_usageRequestID.reset();
    m_lastUsageAttempt.reset();
    m_usageRefreshPending = false;
    updateProperty(this, m_isLoadingUsage, false, &CodexWorkspace::isLoadingUsageChanged);
    updateProperty(this, m_accountUsage, std::nullopt, &CodexWorkspace::accountUsageChanged);
    setUsageError(std::nullopt);
    changeSessionsWhere(
        [](const CodexSessionState& session) { return session.tokenUsage.has_value(); },
        [](CodexSessionState& session) { session.tokenUsage.reset(); });
}

void CodexWorkspace::refreshUsageIfDue()
{
    if (!m_lastUsageAttempt ||
        m_scheduler.now() - *m_lastUsageAttempt >= usageRefreshSpacingSeconds)
        refreshUsage();
}

void CodexWorkspace::handleTokenUsage(const QString& threadID, const JSONValue& params)
{
    const JSONValue* stamp = params.find("sarvaneUpdatedAt");
    const double readAt = stamp && stamp->isNumber() ? *stamp->numberValue() : m_scheduler.date();
    const JSONValue* usage = params.find("tokenUsage");
    if (!m_engineReady || !usage)
        return;
    std::optional<CodexSessionUsage> reading = parseSessionUsage(*usage, readAt);
    if (!reading)
        return;
    changeSession(threadID,
                  [&](CodexSessionState& session) { session.tokenUsage = std::move(reading); });
}

void CodexWorkspace::setUsageError(const std::optional<QString>& error)
{
    updateProperty(this, m_usageError, error, &CodexWorkspace::usageErrorChanged);
}

} // namespace nimbrel
