#include "UsageStatusButtonViewModel.h"

#include "ui/usage/UsagePresentation.h"
#include "workspace/CodexWorkspace.h"

#include <utility>

namespace nimbrel {

UsageStatusButtonViewModel::UsageStatusButtonViewModel(CodexWorkspace& workspace,
                                                       Scheduler& scheduler,
                                                       std::optional<QString> threadID,
                                                       bool compact, QObject* parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_scheduler(scheduler)
    , m_threadID(std::move(threadID))
    , m_compact(compact)
    , m_clock(scheduler, ViewClock::usageInterval)
{
    for (auto signal : {&CodexWorkspace::engineReadyChanged, &CodexWorkspace::isLoadingUsageChanged,
                        &CodexWorkspace::accountUsageChanged, &CodexWorkspace::usageErrorChanged})
        connect(&workspace, signal, this, &UsageStatusButtonViewModel::changed);
    connect(&m_clock, &ViewClock::ticked, this, &UsageStatusButtonViewModel::changed);
}

QString UsageStatusButtonViewModel::statusText() const
{
    return usageStatusText(AccountUsageFacts::of(m_workspace), m_clock.now(), m_compact);
}

QString UsageStatusButtonViewModel::tint() const
{
    return usageStatusTint(AccountUsageFacts::of(m_workspace), m_clock.now());
}

QVariantMap UsageStatusButtonViewModel::texts()
{
    return {{"word", QStringLiteral("Usage")},
            {"symbol", QStringLiteral("power-profile-balanced-symbolic")},
            {"chevron", QStringLiteral("go-next-symbolic")},
            {"hint", QStringLiteral("View account allowances, reset times, and session tokens")}};
}

QString UsageStatusButtonViewModel::identifier() const
{
    return m_threadID ? QStringLiteral("usage-details") : QStringLiteral("account-usage-details");
}

void UsageStatusButtonViewModel::present()
{
    if (m_sheet)
        return;
    m_sheet = new CodexUsageViewModel(m_workspace, m_scheduler, m_threadID, this);
    emit presentedChanged();
}

void UsageStatusButtonViewModel::dismiss()
{
    if (!m_sheet)
        return;
    // The sheet's view may still read it until this event is done.
    std::exchange(m_sheet, nullptr)->deleteLater();
    emit presentedChanged();
}

} // namespace nimbrel
