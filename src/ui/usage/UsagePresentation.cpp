#include "UsagePresentation.h"

#include "platform/DateFormatting.h"
#include "platform/TextFormatting.h"
#include "workspace/CodexWorkspace.h"

#include <QStringList>

#include <algorithm>
#include <cmath>

namespace nimbrel {

AccountUsageFacts AccountUsageFacts::of(const CodexWorkspace& workspace)
{
    return {workspace.engineReady(), workspace.isLoadingUsage(), workspace.accountUsage(),
            workspace.usageError()};
}

QString usageTint(double remainingPercent)
{
    if (remainingPercent <= 10)
        return QStringLiteral("red");
    if (remainingPercent <= 25)
        return QStringLiteral("orange");
    return QStringLiteral("cyan");
}

QString usageWindowShortName(const CodexUsageWindow& window)
{
    if (!window.durationMinutes)
        return window.id.left(1).toUpper() + window.id.mid(1);
    const double minutes = *window.durationMinutes;
    if (minutes == 10080)
        return QStringLiteral("Week");
    if (std::fmod(minutes, 1440) == 0)
        return formatLocaleNumber(minutes / 1440) + QLatin1Char('d');
    if (std::fmod(minutes, 60) == 0)
        return formatLocaleNumber(minutes / 60) + QLatin1Char('h');
    return formatLocaleNumber(minutes) + QLatin1Char('m');
}

double usageRemainingPercent(const CodexUsageWindow& window)
{
    return std::clamp(100 - window.usedPercent, 0.0, 100.0);
}

namespace {

bool isRestricted(const CodexAccountUsage& usage)
{
    if (usage.ordinaryUsageAllowed == false)
        return true;
    const std::optional<CodexUsageBucket> primary = usage.primaryBucket();
    return primary && primary->restrictionMessage();
}

bool needsRefresh(const AccountUsageFacts& facts, double now)
{
    return facts.usage->isStale(now) || facts.usageError;
}

QString windowsLeft(const CodexUsageBucket& bucket)
{
    QStringList parts;
    for (const CodexUsageWindow& window : bucket.windows)
        parts.append(usageWindowShortName(window) + QLatin1Char(' ') +
                     formatLocalePercent(usageRemainingPercent(window)));
    return parts.join(QStringLiteral(" · ")) + QStringLiteral(" left");
}

} // namespace

QString usageStatusText(const AccountUsageFacts& facts, double now, bool compact)
{
    if (!facts.engineReady)
        return QStringLiteral("Disconnected");
    if (!facts.usage)
        return facts.isLoadingUsage ? QStringLiteral("Loading…") : QStringLiteral("View limits");
    if (isRestricted(*facts.usage))
        return QStringLiteral("Usage restricted");
    if (needsRefresh(facts, now))
        return QStringLiteral("Refresh needed");
    const std::optional<double> lowest = facts.usage->lowestRemainingPercent();
    if (!lowest)
        return QStringLiteral("View details");
    if (compact)
        return formatLocalePercent(*lowest) + QStringLiteral(" left");
    return windowsLeft(*facts.usage->primaryBucket());
}

QString usageStatusTint(const AccountUsageFacts& facts, double now)
{
    if (!facts.usage)
        return QStringLiteral("cyan");
    if (isRestricted(*facts.usage))
        return QStringLiteral("red");
    if (needsRefresh(facts, now))
        return QStringLiteral("orange");
    const std::optional<double> lowest = facts.usage->lowestRemainingPercent();
    return lowest ? usageTint(*lowest) : QStringLiteral("cyan");
}

UsageResetLine usageResetLine(std::optional<double> resetsAt, double now)
{
    if (!resetsAt)
        return {QStringLiteral("Reset time not reported"), {}};
    if (*resetsAt <= now)
        return {QStringLiteral("Reset time passed · awaiting a fresh reading"),
                QStringLiteral("orange")};
    return {QStringLiteral("Resets ") + formatRelativeDuration(*resetsAt - now) +
                QStringLiteral(" from now · ") + formatAbbreviatedDateShortTime(*resetsAt),
            {}};
}

std::optional<UsageValueRow> usageCreditsRow(const CodexUsageBucket& bucket)
{
    if (bucket.unlimitedCredits)
        return UsageValueRow{QStringLiteral("Credit allowance"), QStringLiteral("Unlimited")};
    if (bucket.creditBalance)
        return UsageValueRow{QStringLiteral("Credit balance"), *bucket.creditBalance};
    if (!bucket.hasCredits)
        return std::nullopt;
    return UsageValueRow{QStringLiteral("Credits"),
                         *bucket.hasCredits ? QStringLiteral("Available · balance not reported")
                                            : QStringLiteral("None available")};
}

std::optional<IndividualAllowance> individualAllowance(const CodexUsageBucket& bucket)
{
    if (!bucket.individualLimit)
        return std::nullopt;
    const JSONValue& limit = *bucket.individualLimit;
    const JSONValue* remaining = limit.find("remainingPercent");
    const std::optional<double> share = remaining ? remaining->numberValue() : std::nullopt;
    if (!share || !std::isfinite(*share))
        return std::nullopt;
    IndividualAllowance allowance;
    allowance.remainingPercent = std::clamp(*share, 0.0, 100.0);
    const JSONValue* used = limit.find("used");
    const JSONValue* of = limit.find("limit");
    if (used && used->isString() && of && of->isString())
        allowance.caption = *used->stringValue() + QStringLiteral(" used of ") +
                            *of->stringValue() + QStringLiteral(" · reported units");
    if (const JSONValue* resetsAt = limit.find("resetsAt"))
        allowance.resetsAt = resetsAt->numberValue();
    return allowance;
}

std::optional<ContextHeadroom> contextHeadroom(const CodexSessionUsage& usage)
{
    if (!usage.contextWindow || !usage.last.total || *usage.contextWindow <= 0)
        return std::nullopt;
    const double window = *usage.contextWindow;
    const double remaining = std::max(0.0, window - *usage.last.total);
    return ContextHeadroom{remaining, window, std::clamp(remaining * 100 / window, 0.0, 100.0)};
}

std::vector<UsageValueRow> tokenTotalRows(const CodexTokenCounts& total)
{
    auto row = [](const char* title, std::optional<double> count) {
        return UsageValueRow{QString::fromUtf8(title),
                             count ? formatLocaleNumber(*count) : QStringLiteral("Not reported")};
    };
    std::vector<UsageValueRow> rows{row("Total tokens", total.total), row("Input", total.input),
                                    row("Cached input · included in input", total.cachedInput)};
    if (total.cacheWriteInput && *total.cacheWriteInput > 0)
        rows.push_back(row("Cache-write input", total.cacheWriteInput));
    rows.push_back(row("Output", total.output));
    rows.push_back(row("Reasoning · included in output", total.reasoningOutput));
    return rows;
}

} // namespace nimbrel
