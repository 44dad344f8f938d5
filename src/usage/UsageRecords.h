#pragma once

#include "peer/JSONValue.h"

#include <QString>

#include <optional>
#include <vector>

namespace nimbrel {

struct CodexUsageWindow {
    QString id;                            // "primary" or "secondary"
    double usedPercent = 0;                // clamped to 0...100
    std::optional<double> durationMinutes; // > 0 when present
    std::optional<double> resetsAt;        // seconds since 1970, > 0 when present

    // "Weekly allowance", "5-hour allowance", "Primary allowance", …
    QString label() const;

    friend bool operator==(const CodexUsageWindow&, const CodexUsageWindow&) = default;
};

// One named limit of the account.
struct CodexUsageBucket {
    QString id;
    QString name;
    std::vector<CodexUsageWindow> windows; // primary, then secondary; invalid ones left out
    std::optional<QString> plan;
    std::optional<QString> creditBalance;
    std::optional<bool> hasCredits;
    bool unlimitedCredits = false;
    std::optional<QString> reachedReason;
    std::optional<bool> spendControlReached;
    std::optional<JSONValue> individualLimit; // always an object when present

    // The sentence for a reached limit, if one is reached.
    std::optional<QString> restrictionMessage() const;

    friend bool operator==(const CodexUsageBucket&, const CodexUsageBucket&) = default;
};

// One allowance reading.
struct CodexAccountUsage {
    std::vector<CodexUsageBucket> buckets; // "codex" first, then by plain text
    std::optional<double> resetCredits;
    std::optional<bool> ordinaryUsageAllowed;
    double updatedAt = 0; // seconds since 1970: when the reading arrived

    // The bucket that stands for the account: "codex", else the only one.
    std::optional<CodexUsageBucket> primaryBucket() const;
    std::optional<double> lowestRemainingPercent() const;
    bool isStale(double now) const;

    friend bool operator==(const CodexAccountUsage&, const CodexAccountUsage&) = default;
};

struct CodexTokenCounts {
    std::optional<double> total;
    std::optional<double> input;
    std::optional<double> cachedInput;
    std::optional<double> cacheWriteInput;
    std::optional<double> output;
    std::optional<double> reasoningOutput;

    friend bool operator==(const CodexTokenCounts&, const CodexTokenCounts&) = default;
};

// The token usage of one thread.
struct CodexSessionUsage {
    CodexTokenCounts total;
    CodexTokenCounts last;
    std::optional<double> contextWindow;
    double updatedAt = 0;
    JSONValue payload; // the engine's object, passed on to peers unchanged

    friend bool operator==(const CodexSessionUsage&, const CodexSessionUsage&) = default;
};

// Allowance readings older than this count as stale.
constexpr double usageStaleAfterSeconds = 120.0;

std::optional<CodexAccountUsage> parseAccountUsage(const JSONValue& result, double receivedAt);
CodexUsageBucket parseUsageBucket(const QString& key, const JSONValue& value);
std::optional<CodexUsageWindow> parseUsageWindow(const QString& id, const JSONValue* value);
std::optional<CodexSessionUsage> parseSessionUsage(const JSONValue& value, double readAt);
CodexTokenCounts parseTokenCounts(const JSONValue& value);
std::optional<QString> usagePlanName(const QString& planType);
bool compareUsageBucketKeys(const QString& left, const QString& right);

} // namespace nimbrel
