#include "usage/UsageRecords.h"

#include <QFile>
#include <QLocale>

#include <gtest/gtest.h>

using namespace nimbrel;

namespace {

JSONValue json(std::string_view text)
{
    return JSONValue::decode(text).value();
}

QStringList bucketIds(const CodexAccountUsage& usage)
{
    QStringList ids;
    for (const auto& bucket : usage.buckets)
        ids.append(bucket.id);
    return ids;
}

} // namespace

TEST(UsageParsers, BucketsComeFromBothSnapshotsInDisplayOrder)
{
    EXPECT_FALSE(parseAccountUsage(json(R"({"rateLimitsByLimitId":{"a":{}}})"), 0));
    EXPECT_FALSE(parseAccountUsage(json(R"({"rateLimits":[]})"), 0));

    const auto onlyDefault = parseAccountUsage(json(R"({"rateLimits":{}})"), 5).value();
    ASSERT_EQ(onlyDefault.buckets.size(), 1u);
    EXPECT_EQ(onlyDefault.buckets[0],
              (CodexUsageBucket{"codex", "Codex", {}, {}, {}, {}, false, {}, {}, {}}));
    EXPECT_EQ(onlyDefault.updatedAt, 5);

    const char* map =
        R"("rateLimitsByLimitId":{"zeta":{},"alpha":{"limitName":"From map"},"codex":{}})";
    auto withSnapshot = [&](const char* snapshot) {
        return parseAccountUsage(
                   json(std::string("{") + map + R"(,"rateLimits":)" + snapshot + "}"), 0)
            .value();
    };
    EXPECT_EQ(bucketIds(withSnapshot("{}")), QStringList({"codex", "alpha", "zeta"}));
    EXPECT_EQ(bucketIds(withSnapshot(R"({"limitId":"beta"})")),
              QStringList({"codex", "alpha", "beta", "zeta"}));
    const auto alphaTwice = withSnapshot(R"({"limitId":"alpha","limitName":"From snapshot"})");
    EXPECT_EQ(alphaTwice.buckets[1].name, "From map");
    EXPECT_EQ(parseAccountUsage(json(R"({"rateLimits":{"limitId":"x"}})"), 0)->buckets[0].id, "x");

    EXPECT_TRUE(compareUsageBucketKeys("codex", "Alpha"));
    EXPECT_FALSE(compareUsageBucketKeys("codex", "codex"));
    EXPECT_TRUE(compareUsageBucketKeys("Zeta", "alpha"));
    EXPECT_FALSE(compareUsageBucketKeys("beta", "codex"));
}

TEST(UsageParsers, RealisticReadingWithEveryField)
{
    QFile file(QStringLiteral(TEST_DATA_DIR "/rate-limits.json"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const auto usage =
        parseAccountUsage(JSONValue::decode(file.readAll().toStdString()).value(), 1763800000)
            .value();
    EXPECT_EQ(bucketIds(usage), QStringList({"codex", "alpha", "zeta"}));
    const CodexUsageBucket& codex = usage.buckets[0];
    EXPECT_EQ(codex.windows,
              (std::vector<CodexUsageWindow>{{"primary", 12, 300, 1763803600},
                                             {"secondary", 0, 10080, std::nullopt}}));
    EXPECT_EQ(codex.plan, QStringLiteral("Pro Lite"));
    EXPECT_EQ(codex.reachedReason, std::nullopt);
    EXPECT_FALSE(codex.unlimitedCredits);
    const CodexUsageBucket& alpha = usage.buckets[1];
    EXPECT_EQ(alpha.name, "alpha");
    EXPECT_EQ(alpha.windows, (std::vector<CodexUsageWindow>{{"primary", 100, 90, std::nullopt}}));
    EXPECT_EQ(alpha.restrictionMessage(),
              QStringLiteral("Your workspace usage limit has been reached."));
    EXPECT_EQ(alpha.individualLimit, json(R"({"resetsAt":1763900000})"));
    const CodexUsageBucket& zeta = usage.buckets[2];
    EXPECT_TRUE(zeta.windows.empty()); // usedPercent given as text
    EXPECT_EQ(zeta.creditBalance, std::nullopt);
    EXPECT_EQ(usage.resetCredits, 2.0);
    EXPECT_EQ(usage.ordinaryUsageAllowed, true);
    EXPECT_EQ(usage.primaryBucket()->id, "codex");
    EXPECT_EQ(usage.lowestRemainingPercent(), 88.0);

    const CodexUsageBucket fromSnapshot = parseUsageBucket(
        "codex",
        json(
            R"({"planType":"team_plus","credits":{"balance":"12.50","hasCredits":true,"unlimited":true}})"));
    EXPECT_EQ(fromSnapshot.plan, QStringLiteral("Team Plus"));
    EXPECT_EQ(fromSnapshot.creditBalance, QStringLiteral("12.50"));
    EXPECT_EQ(fromSnapshot.hasCredits, true);
    EXPECT_TRUE(fromSnapshot.unlimitedCredits);
    EXPECT_EQ(parseUsageBucket("b", json(R"({"planType":"unknown"})")).plan, std::nullopt);
    EXPECT_EQ(parseUsageBucket("b", json(R"("text")")),
              (CodexUsageBucket{"b", "b", {}, {}, {}, {}, false, {}, {}, {}}));
}

TEST(UsageParsers, WindowsLabelsAndPlans)
{
    auto window = [](const char* text) {
        return parseUsageWindow("primary", &static_cast<const JSONValue&>(json(text)));
    };
    EXPECT_EQ(window(R"({"usedPercent":137})")->usedPercent, 100);
    EXPECT_EQ(window(R"({"usedPercent":-3})")->usedPercent, 0);
    EXPECT_FALSE(window(R"({"usedPercent":"50"})"));
    EXPECT_FALSE(window(R"({})"));
    EXPECT_FALSE(parseUsageWindow("primary", nullptr));
    EXPECT_EQ(window(R"({"usedPercent":5,"resetsAt":0,"windowDurationMins":-60})"),
              (CodexUsageWindow{"primary", 5, std::nullopt, std::nullopt}));

    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    auto label = [](std::optional<double> minutes, const char* id = "primary") {
        return CodexUsageWindow{id, 0, minutes, {}}.label();
    };
    EXPECT_EQ(label(std::nullopt), "Primary allowance");
    EXPECT_EQ(label(std::nullopt, "secondary"), "Secondary allowance");
    EXPECT_EQ(label(10080), "Weekly allowance");
    EXPECT_EQ(label(2880), "2-day allowance");
    EXPECT_EQ(label(300), "5-hour allowance");
    EXPECT_EQ(label(90), "90-minute allowance");
    EXPECT_EQ(label(1440 * 1500), "1,500-day allowance");
    EXPECT_EQ(label(60.5), "60.5-minute allowance");
    QLocale::setDefault(QLocale::c());

    EXPECT_EQ(usagePlanName("unknown"), std::nullopt);
    EXPECT_EQ(usagePlanName("ent26"), QStringLiteral("Enterprise"));
    EXPECT_EQ(usagePlanName("self_serve_business_usage_based"),
              QStringLiteral("Business usage-based"));
    EXPECT_EQ(usagePlanName("PLUS"), QStringLiteral("Plus"));
    EXPECT_EQ(usagePlanName("team_plus"), QStringLiteral("Team Plus"));
}

TEST(UsageParsers, RestrictionsPrimaryBucketAndStaleness)
{
    CodexUsageBucket bucket;
    bucket.reachedReason = "rate_limit_reached";
    bucket.spendControlReached = false;
    EXPECT_EQ(bucket.restrictionMessage(),
              QStringLiteral("Codex reports that a usage limit has been reached."));
    bucket.spendControlReached = true;
    EXPECT_EQ(bucket.restrictionMessage(),
              QStringLiteral("Your account's spending limit has been reached."));
    bucket.spendControlReached.reset();
    bucket.reachedReason = "something_new";
    EXPECT_EQ(bucket.restrictionMessage(),
              QStringLiteral("Codex reports an account usage restriction."));
    bucket.reachedReason.reset();
    EXPECT_EQ(bucket.restrictionMessage(), std::nullopt);

    const auto two =
        parseAccountUsage(
            json(
                R"({"rateLimits":{},"rateLimitsByLimitId":{"alpha":{"primary":{"usedPercent":1}},"beta":{}}})"),
            0)
            .value();
    EXPECT_FALSE(two.primaryBucket());
    EXPECT_FALSE(two.lowestRemainingPercent());
    const auto single =
        parseAccountUsage(
            json(
                R"({"rateLimits":{"limitId":"alpha","primary":{"usedPercent":30},"secondary":{"usedPercent":60}}})"),
            0)
            .value();
    EXPECT_EQ(single.primaryBucket()->id, "alpha");
    EXPECT_EQ(single.lowestRemainingPercent(), 40.0);

    CodexAccountUsage usage =
        parseAccountUsage(json(R"({"rateLimits":{"primary":{"usedPercent":1,"resetsAt":2000}}})"),
                          1000)
            .value();
    EXPECT_FALSE(usage.isStale(1120.0));
    EXPECT_TRUE(usage.isStale(1120.5));
    usage.updatedAt = 1990;
    EXPECT_FALSE(usage.isStale(1999.9));
    EXPECT_TRUE(usage.isStale(2000));
    usage = parseAccountUsage(json(R"({"rateLimits":{"individualLimit":{"resetsAt":1050}}})"), 1000)
                .value();
    EXPECT_FALSE(usage.isStale(1049));
    EXPECT_TRUE(usage.isStale(1050));
}

TEST(UsageParsers, SessionTokenUsage)
{
    const JSONValue payload = json(
        R"({"total":{"totalTokens":0,"inputTokens":1200,"cachedInputTokens":-1,"outputTokens":"9"},
                                       "last":{"totalTokens":300,"reasoningOutputTokens":12.5,"cacheWriteInputTokens":4},
                                       "modelContextWindow":0})");
    const CodexSessionUsage usage = parseSessionUsage(payload, 77).value();
    EXPECT_EQ(usage.total,
              (CodexTokenCounts{0, 1200, std::nullopt, std::nullopt, std::nullopt, std::nullopt}));
    EXPECT_EQ(usage.last,
              (CodexTokenCounts{300, std::nullopt, std::nullopt, 4, std::nullopt, 12.5}));
    EXPECT_EQ(usage.contextWindow, std::nullopt);
    EXPECT_EQ(usage.updatedAt, 77);
    EXPECT_EQ(usage.payload, payload);
    EXPECT_EQ(parseSessionUsage(json(R"({"total":{},"last":{},"modelContextWindow":272000})"), 0)
                  ->contextWindow,
              272000.0);
    EXPECT_FALSE(parseSessionUsage(json(R"({"total":{"totalTokens":5}})"), 0));
    EXPECT_FALSE(parseSessionUsage(json(R"({"total":{},"last":[]})"), 0));
}
