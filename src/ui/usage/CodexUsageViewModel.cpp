#include "CodexUsageViewModel.h"

#include "platform/DateFormatting.h"
#include "platform/TextFormatting.h"
#include "ui/usage/UsagePresentation.h"
#include "workspace/CodexWorkspace.h"

namespace nimbrel {

namespace {

const QList<QByteArray> rowRoles{"rowType",         "text", "detail", "amount", "tint",
                                 "accessibleValue", "busy"};

// Rows in the order shown, built block by block.
class UsageRows {
public:
    void heading(const QString& key, const QString& title, bool busy = false)
    {
        add(key, QStringLiteral("heading"), title, {}, 0, {}, {}, busy);
    }
    void line(const QString& key, const QString& text) { add(key, QStringLiteral("line"), text); }
    void caption(const QString& key, const QString& text)
    {
        add(key, QStringLiteral("caption"), text);
    }
    void notice(const QString& key, const QString& text)
    {
        add(key, QStringLiteral("notice"), text, {}, 0, QStringLiteral("orange"));
    }
    void bucket(const QString& key, const QString& name, const std::optional<QString>& plan)
    {
        add(key, QStringLiteral("bucket"), name, plan.value_or(QString()));
    }
    // A percentage bar: the title, the share left large and in its tint, and a bar of it.
    void bar(const QString& key, const QString& title, double remaining)
    {
        add(key, QStringLiteral("bar"), title,
            formatLocalePercent(remaining) + QStringLiteral(" left"), remaining,
            usageTint(remaining),
            formatLocaleNumber(remaining) + QStringLiteral(" percent remaining"));
    }
    void reset(const QString& key, const UsageResetLine& reset)
    {
        add(key, QStringLiteral("reset"), reset.text, {}, 0, reset.tint);
    }
    void value(const QString& key, const UsageValueRow& row)
    {
        add(key, QStringLiteral("value"), row.title, row.value);
    }
    void divider(const QString& key) { add(key, QStringLiteral("divider"), {}); }

    QList<ListRecord> records;

private:
    void add(const QString& key, const QString& type, const QString& text,
             const QString& detail = {}, double amount = 0, const QString& tint = {},
             const QString& accessibleValue = {}, bool busy = false)
    {
        records.append({key, {type, text, detail, amount, tint, accessibleValue, busy}});
    }
};

// A bucket's rows are keyed under its id, which may hold any text: its length keeps keys apart.
QString bucketKey(const CodexUsageBucket& bucket, const char* part)
{
    return QStringLiteral("bucket/") + QString::number(bucket.id.size()) + QLatin1Char('/') +
           bucket.id + QLatin1Char('/') + QLatin1String(part);
}

void addBucket(UsageRows& rows, const CodexUsageBucket& bucket, double now)
{
    rows.bucket(bucketKey(bucket, "name"), bucket.name, bucket.plan);
    if (const std::optional<QString> restriction = bucket.restrictionMessage())
        rows.notice(bucketKey(bucket, "restriction"), *restriction);
    for (const CodexUsageWindow& window : bucket.windows) {
        const QString key = bucketKey(bucket, "window/") + window.id;
        rows.bar(key, window.label(), usageRemainingPercent(window));
        rows.reset(key + QStringLiteral("/reset"), usageResetLine(window.resetsAt, now));
    }
    if (bucket.windows.empty())
        rows.line(bucketKey(bucket, "unreported"),
                  QStringLiteral("Allowance percentages aren't reported for this account."));
    if (const std::optional<IndividualAllowance> individual = individualAllowance(bucket)) {
        rows.bar(bucketKey(bucket, "individual"), QStringLiteral("Individual allowance"),
                 individual->remainingPercent);
        if (individual->caption)
            rows.caption(bucketKey(bucket, "individual/units"), *individual->caption);
        rows.reset(bucketKey(bucket, "individual/reset"),
                   usageResetLine(individual->resetsAt, now));
    }
    if (const std::optional<UsageValueRow> credits = usageCreditsRow(bucket))
        rows.value(bucketKey(bucket, "credits"), *credits);
}

} // namespace

CodexUsageViewModel::CodexUsageViewModel(CodexWorkspace& workspace, Scheduler& scheduler,
                                         std::optional<QString> threadID, QObject* parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_threadID(std::move(threadID))
    , m_clock(scheduler, ViewClock::usageInterval)
    , m_accountRows(rowRoles)
    , m_sessionRows(rowRoles)
{
    for (auto signal : {&CodexWorkspace::engineReadyChanged, &CodexWorkspace::isLoadingUsageChanged,
                        &CodexWorkspace::accountUsageChanged, &CodexWorkspace::usageErrorChanged,
                        &CodexWorkspace::isDemoModeChanged})
        connect(&workspace, signal, this, &CodexUsageViewModel::update);
    connect(&workspace, &CodexWorkspace::sessionChanged, this, [this](const QString& id) {
        if (id == m_threadID)
            update();
    });
    connect(&m_clock, &ViewClock::ticked, this, &CodexUsageViewModel::update);
    update();
    refresh();
}

QVariantMap CodexUsageViewModel::texts()
{
    return {{"title", QStringLiteral("Usage & Limits")},
            {"refresh", QStringLiteral("Refresh")},
            {"refreshSymbol", QStringLiteral("view-refresh-symbolic")},
            {"done", QStringLiteral("Done")},
            {"demoSymbol", QStringLiteral("star-new-symbolic")},
            {"noticeSymbol", QStringLiteral("dialog-information-symbolic")}};
}

bool CodexUsageViewModel::refreshEnabled() const
{
    return m_workspace.engineReady() && !m_workspace.isLoadingUsage();
}

QString CodexUsageViewModel::demoLabel() const
{
    return m_workspace.isDemoMode() ? QStringLiteral("OFFLINE DEMO · Sample usage") : QString();
}

void CodexUsageViewModel::refresh()
{
    m_workspace.refreshUsage();
}

void CodexUsageViewModel::update()
{
    m_accountRows.setRecords(accountRecords());
    m_sessionRows.setRecords(sessionRecords());
    emit changed();
}

QList<ListRecord> CodexUsageViewModel::accountRecords() const
{
    const AccountUsageFacts facts = AccountUsageFacts::of(m_workspace);
    const double now = m_clock.now();
    UsageRows rows;
    rows.heading(QStringLiteral("title"), QStringLiteral("Account allowance"),
                 facts.isLoadingUsage);
    rows.line(QStringLiteral("shared"),
              QStringLiteral("Shared across your Codex sessions and devices."));
    if (!facts.engineReady)
        rows.notice(
            QStringLiteral("error"),
            QStringLiteral("Connect to Codex on this computer to read your account allowance."));
    else if (facts.usageError)
        rows.notice(QStringLiteral("error"), *facts.usageError);
    if (!facts.usage) {
        if (!facts.isLoadingUsage)
            rows.line(
                QStringLiteral("unavailable"),
                QStringLiteral("Usage isn't available yet. This computer's Codex sign-in must "
                               "support account allowances. API-key accounts may not report "
                               "them."));
    } else {
        const CodexAccountUsage& usage = *facts.usage;
        if (usage.isStale(now))
            rows.notice(
                QStringLiteral("stale"),
                QStringLiteral("Last reported values. A reset time has passed or this reading "
                               "is out of date; refresh to check your allowance."));
        if (usage.ordinaryUsageAllowed == false)
            rows.notice(
                QStringLiteral("restricted"),
                QStringLiteral("Codex reports that included usage is currently unavailable."));
        for (const CodexUsageBucket& bucket : usage.buckets)
            addBucket(rows, bucket, now);
        if (usage.resetCredits)
            rows.value(QStringLiteral("resetCredits"), {QStringLiteral("Available reset credits"),
                                                        formatLocaleNumber(*usage.resetCredits)});
        rows.line(QStringLiteral("updated"),
                  QStringLiteral("Updated ") + formatAbbreviatedDateTime(usage.updatedAt));
    }
    rows.caption(
        QStringLiteral("footnote"),
        QStringLiteral("Allowances refresh automatically while connected. Percentages do not "
                       "predict a number of messages or a monetary balance."));
    return rows.records;
}

QList<ListRecord> CodexUsageViewModel::sessionRecords() const
{
    if (!m_threadID)
        return {};
    UsageRows rows;
    rows.heading(QStringLiteral("title"), QStringLiteral("This session"));
    const CodexSessionState* session = m_workspace.session(*m_threadID);
    if (!session || !session->tokenUsage) {
        rows.line(
            QStringLiteral("unreported"),
            QStringLiteral("Token and context details appear when Codex reports usage for this "
                           "session. Older history may not include a reading."));
        return rows.records;
    }
    const CodexSessionUsage& usage = *session->tokenUsage;
    if (const std::optional<ContextHeadroom> headroom = contextHeadroom(usage)) {
        rows.bar(QStringLiteral("context"), QStringLiteral("Estimated context headroom"),
                 headroom->remainingPercent);
        rows.line(QStringLiteral("contextTokens"), formatLocaleNumber(headroom->remainingTokens) +
                                                       QStringLiteral(" of ") +
                                                       formatLocaleNumber(headroom->windowTokens) +
                                                       QStringLiteral(" tokens remaining"));
        rows.caption(
            QStringLiteral("contextNote"),
            QStringLiteral("Based on the latest reported context size. Codex may compact the "
                           "conversation before the window fills."));
    } else {
        rows.line(QStringLiteral("contextUnreported"),
                  QStringLiteral("Context capacity hasn't been reported."));
    }
    rows.divider(QStringLiteral("divider"));
    rows.heading(QStringLiteral("totals"), QStringLiteral("Session token totals"));
    for (const UsageValueRow& row : tokenTotalRows(usage.total))
        rows.value(QStringLiteral("total/") + row.title, row);
    rows.caption(
        QStringLiteral("totalsNote"),
        QStringLiteral("Totals accumulate across the session and include cached tokens. They "
                       "are separate from context capacity and aren't a billing estimate."));
    rows.line(QStringLiteral("updated"),
              QStringLiteral("Last token update ") + formatAbbreviatedDateTime(usage.updatedAt));
    return rows.records;
}

} // namespace nimbrel
