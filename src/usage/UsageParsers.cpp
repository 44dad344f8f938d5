#include "usage/UsageRecords.h"

#include "platform/TextFormatting.h"

#include <QStringList>

#include <algorithm>
#include <cmath>
#include <map>

namespace nimbrel {

namespace {

std::optional<double> numberAt(const JSONValue& value, std::string_view key)
{
    const JSONValue* found = value.find(key);
    return found ? found->numberValue() : std::nullopt;
}

std::optional<bool> boolAt(const JSONValue& value, std::string_view key)
{
    const JSONValue* found = value.find(key);
    return found ? found->boolValue() : std::nullopt;
}

std::optional<QString> textAt(const JSONValue& value, std::string_view key)
{
    const JSONValue* found = value.find(key);
    return found ? found->stringValue() : std::nullopt;
}

// The object under key; an empty object behaves like a missing one.
const JSONValue* objectAt(const JSONValue& value, std::string_view key)
{
    const JSONValue* found = value.find(key);
    return found && found->isObject() && !found->members().empty() ? found : nullptr;
}

std::optional<double> positiveFinite(std::optional<double> number)
{
    return number && std::isfinite(*number) && *number > 0 ? number : std::nullopt;
}

std::optional<double> nonNegativeFinite(std::optional<double> number)
{
    return number && std::isfinite(*number) && *number >= 0 ? number : std::nullopt;
}

} // namespace

bool compareUsageBucketKeys(const QString& left, const QString& right)
{
    const QString codex = QStringLiteral("codex");
    if (left == codex)
        return right != codex;
    if (right == codex)
        return false;
    return left < right;
}

std::optional<QString> usagePlanName(const QString& planType)
{
    if (planType == QLatin1String("unknown"))
        return std::nullopt;
    static const std::map<QString, QString> known{
        {QStringLiteral("prolite"), QStringLiteral("Pro Lite")},
        {QStringLiteral("self_serve_business_prolite"), QStringLiteral("Business Pro Lite")},
        {QStringLiteral("self_serve_business_usage_based"), QStringLiteral("Business usage-based")},
        {QStringLiteral("ent26"), QStringLiteral("Enterprise")},
        {QStringLiteral("enterprise_cbp_automation"), QStringLiteral("Enterprise automation")},
        {QStringLiteral("enterprise_cbp_usage_based"), QStringLiteral("Enterprise usage-based")},
    };
    if (auto found = known.find(planType); found != known.end())
        return found->second;
    QStringList words = QString(planType).replace(QLatin1Char('_'), QLatin1Char(' ')).split(QLatin1Char(' '));
    for (QString& word : words)
        if (!word.isEmpty())
            word = word.left(1).toUpper() + word.mid(1).toLower();
    return words.join(QLatin1Char(' '));
}

std::optional<CodexUsageWindow> parseUsageWindow(const QString& id, const JSONValue* value)
{
    if (!value || !value->isObject())
        return std::nullopt;
    const std::optional<double> used = numberAt(*value, "usedPercent");
    if (!used || !std::isfinite(*used))
        return std::nullopt;
    return CodexUsageWindow{id, std::clamp(*used, 0.0, 100.0), positiveFinite(numberAt(*value, "windowDurationMins")),
                            positiveFinite(numberAt(*value, "resetsAt"))};
}

CodexUsageBucket parseUsageBucket(const QString& key, const JSONValue& value)
{
    CodexUsageBucket bucket;
    bucket.id = key;
    const std::optional<QString> limitName = textAt(value, "limitName");
    bucket.name = limitName && !limitName->isEmpty() ? *limitName
                  : key == QLatin1String("codex")    ? QStringLiteral("Codex")
                                                     : key;
    for (const char* window : {"primary", "secondary"})
        if (auto parsed = parseUsageWindow(QString::fromLatin1(window), value.find(window)))
            bucket.windows.push_back(*parsed);
    if (!value.isObject())
        return bucket;
    if (auto planType = textAt(value, "planType"))
        bucket.plan = usagePlanName(*planType);
    if (const JSONValue* credits = objectAt(value, "credits")) {
        bucket.creditBalance = textAt(*credits, "balance");
        bucket.hasCredits = boolAt(*credits, "hasCredits");
        bucket.unlimitedCredits = boolAt(*credits, "unlimited").value_or(false);
    }
    bucket.reachedReason = textAt(value, "rateLimitReachedType");
    bucket.spendControlReached = boolAt(value, "spendControlReached");
    if (const JSONValue* individual = value.find("individualLimit"); individual && individual->isObject())
        bucket.individualLimit = *individual;
    return bucket;
}

std::optional<CodexAccountUsage> parseAccountUsage(const JSONValue& result, double receivedAt)
{
    const JSONValue* snapshot = result.find("rateLimits");
    if (!snapshot || !snapshot->isObject())
        return std::nullopt;
    std::vector<std::pair<QString, JSONValue>> entries;
    if (const JSONValue* byLimit = result.find("rateLimitsByLimitId"); byLimit && byLimit->isObject())
        for (const JSONMember& member : byLimit->members())
            entries.emplace_back(QString::fromUtf8(member.name().data(), static_cast<qsizetype>(member.name().size())), member.value);
    const std::optional<QString> limitId = textAt(*snapshot, "limitId");
    if (entries.empty()) {
        entries.emplace_back(limitId.value_or(QStringLiteral("codex")), *snapshot);
    } else if (limitId && std::none_of(entries.begin(), entries.end(), [&](const auto& e) { return e.first == *limitId; })) {
        entries.emplace_back(*limitId, *snapshot);
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const auto& a, const auto& b) { return compareUsageBucketKeys(a.first, b.first); });

    CodexAccountUsage usage;
    for (const auto& [key, value] : entries)
        usage.buckets.push_back(parseUsageBucket(key, value));
    if (const JSONValue* credits = result.find("rateLimitResetCredits"); credits && credits->isObject())
        usage.resetCredits = nonNegativeFinite(numberAt(*credits, "availableCount"));
    usage.ordinaryUsageAllowed = boolAt(result, "ordinaryUsageAllowed");
    usage.updatedAt = receivedAt;
    return usage;
}

CodexTokenCounts parseTokenCounts(const JSONValue& value)
{
    return CodexTokenCounts{
        nonNegativeFinite(numberAt(value, "totalTokens")),     nonNegativeFinite(numberAt(value, "inputTokens")),
        nonNegativeFinite(numberAt(value, "cachedInputTokens")), nonNegativeFinite(numberAt(value, "cacheWriteInputTokens")),
        nonNegativeFinite(numberAt(value, "outputTokens")),    nonNegativeFinite(numberAt(value, "reasoningOutputTokens")),
    };
}

std::optional<CodexSessionUsage> parseSessionUsage(const JSONValue& value, double readAt)
{
    const JSONValue* total = value.find("total");
    const JSONValue* last = value.find("last");
    if (!total || !total->isObject() || !last || !last->isObject())
        return std::nullopt;
    return CodexSessionUsage{parseTokenCounts(*total), parseTokenCounts(*last),
                             positiveFinite(numberAt(value, "modelContextWindow")), readAt, value};
}

// ---- derived readings

QString CodexUsageWindow::label() const
{
    if (!durationMinutes)
        return id == QLatin1String("primary") ? QStringLiteral("Primary allowance") : QStringLiteral("Secondary allowance");
    const double minutes = *durationMinutes;
    if (minutes == 10080)
        return QStringLiteral("Weekly allowance");
    if (std::fmod(minutes, 1440) == 0)
        return formatLocaleNumber(minutes / 1440) + QStringLiteral("-day allowance");
    if (std::fmod(minutes, 60) != 0)
        return formatLocaleNumber(minutes) + QStringLiteral("-minute allowance");
    return formatLocaleNumber(minutes / 60) + QStringLiteral("-hour allowance");
}

std::optional<QString> CodexUsageBucket::restrictionMessage() const
{
    if (spendControlReached == true)
        return QStringLiteral("Your account's spending limit has been reached.");
    if (!reachedReason)
        return std::nullopt;
    static const std::map<QString, QString> texts{
        {QStringLiteral("rate_limit_reached"), QStringLiteral("Codex reports that a usage limit has been reached.")},
        {QStringLiteral("workspace_owner_credits_depleted"), QStringLiteral("The workspace's credits are depleted.")},
        {QStringLiteral("workspace_member_credits_depleted"), QStringLiteral("Your workspace credits are depleted.")},
        {QStringLiteral("workspace_owner_usage_limit_reached"), QStringLiteral("The workspace's usage limit has been reached.")},
        {QStringLiteral("workspace_member_usage_limit_reached"), QStringLiteral("Your workspace usage limit has been reached.")},
    };
    if (auto found = texts.find(*reachedReason); found != texts.end())
        return found->second;
    return QStringLiteral("Codex reports an account usage restriction.");
}

std::optional<CodexUsageBucket> CodexAccountUsage::primaryBucket() const
{
    for (const CodexUsageBucket& bucket : buckets)
        if (bucket.id == QLatin1String("codex"))
            return bucket;
    if (buckets.size() == 1)
        return buckets.front();
    return std::nullopt;
}

std::optional<double> CodexAccountUsage::lowestRemainingPercent() const
{
    const std::optional<CodexUsageBucket> primary = primaryBucket();
    if (!primary || primary->windows.empty())
        return std::nullopt;
    double lowest = 100;
    for (const CodexUsageWindow& window : primary->windows)
        lowest = std::min(lowest, 100 - window.usedPercent);
    return lowest;
}

bool CodexAccountUsage::isStale(double now) const
{
    if (now - updatedAt > usageStaleAfterSeconds)
        return true;
    for (const CodexUsageBucket& bucket : buckets) {
        for (const CodexUsageWindow& window : bucket.windows)
            if (window.resetsAt && *window.resetsAt <= now)
                return true;
        if (bucket.individualLimit)
            if (auto resetsAt = numberAt(*bucket.individualLimit, "resetsAt"); resetsAt && now >= *resetsAt)
                return true;
    }
    return false;
}

} // namespace nimbrel
