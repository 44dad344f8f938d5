#pragma once

// What the usage views show, as rules over plain values: the status line, its tint, the window
// names, reset lines, credits, the individual allowance, context headroom and token totals. Tints
// are names of the window palette's colours; an empty tint is the muted text colour.
#include "usage/UsageRecords.h"

#include <QString>

#include <optional>
#include <vector>

namespace nimbrel {

class CodexWorkspace;

// What the workspace holds about the account's allowance at one moment.
struct AccountUsageFacts {
    bool engineReady = false;
    bool isLoadingUsage = false;
    std::optional<CodexAccountUsage> usage;
    std::optional<QString> usageError;

    static AccountUsageFacts of(const CodexWorkspace& workspace);
};

// red at 10 or less, orange at 25 or less, else cyan.
QString usageTint(double remainingPercent);

// "5h", "Week", "3d", "90m", or the window's id capitalised when it names no duration.
QString usageWindowShortName(const CodexUsageWindow& window);

// The usage button's one line and its tint at now (seconds since 1970).
QString usageStatusText(const AccountUsageFacts& facts, double now, bool compact);
QString usageStatusTint(const AccountUsageFacts& facts, double now);

// A share left of a window: 100 minus the used share, kept within 0...100.
double usageRemainingPercent(const CodexUsageWindow& window);

struct UsageResetLine {
    QString text;
    QString tint;
    bool operator==(const UsageResetLine&) const = default;
};
UsageResetLine usageResetLine(std::optional<double> resetsAt, double now);

struct UsageValueRow {
    QString title;
    QString value;
    bool operator==(const UsageValueRow&) const = default;
};
std::optional<UsageValueRow> usageCreditsRow(const CodexUsageBucket& bucket);

// The individual allowance a bucket reports, when it reports a remaining share.
struct IndividualAllowance {
    double remainingPercent = 0;
    std::optional<QString> caption;
    std::optional<double> resetsAt;
    bool operator==(const IndividualAllowance&) const = default;
};
std::optional<IndividualAllowance> individualAllowance(const CodexUsageBucket& bucket);

// The room left in the context window after the latest turn.
struct ContextHeadroom {
    double remainingTokens = 0;
    double windowTokens = 0;
    double remainingPercent = 0;
    bool operator==(const ContextHeadroom&) const = default;
};
std::optional<ContextHeadroom> contextHeadroom(const CodexSessionUsage& usage);

// The session's token totals, in the order shown; a write to the cache shows only when it is above
// 0.
std::vector<UsageValueRow> tokenTotalRows(const CodexTokenCounts& total);

} // namespace nimbrel
