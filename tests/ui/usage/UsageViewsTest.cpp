#include "platform/TextFormatting.h"
#include "support/ScriptedWorkspace.h"
#include "ui/usage/UsagePresentation.h"
#include "ui/usage/UsageStatusButtonViewModel.h"

#include <QLocale>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

CodexUsageWindow window(double usedPercent)
{
    return {QStringLiteral("primary"), usedPercent, 300, std::nullopt};
}

CodexAccountUsage reading(const char* result)
{
    return parseAccountUsage(JSONValue::decode(result).value(), 0).value();
}

const char* fiveHourAndWeek = R"({"rateLimits":{"limitId":"codex",
    "primary":{"usedPercent":30,"windowDurationMins":300},
    "secondary":{"usedPercent":12,"windowDurationMins":10080}}})";

// The value of role in the row of key, or an invalid value when no row has that key.
QVariant rowValue(RecordListModel* rows, const QString& key, const QByteArray& role)
{
    const int row = rows->rowOf(key);
    return row < 0 ? QVariant() : rows->value(row, role);
}

} // namespace

TEST(UsagePresentation, SharesRoundForTheEyeButTintByTheirValue)
{
    EXPECT_EQ(formatLocalePercent(usageRemainingPercent(window(99.6))), "0%");
    EXPECT_EQ(usageTint(usageRemainingPercent(window(99.6))), "red");
    EXPECT_EQ(usageTint(25.0), "orange");
    EXPECT_EQ(usageTint(25.1), "cyan");
    EXPECT_EQ(usageTint(10.0), "red");
    EXPECT_EQ(usageTint(10.1), "orange");

    CodexSessionUsage session;
    session.contextWindow = 1000;
    session.last.total = 750;
    EXPECT_EQ(contextHeadroom(session), (ContextHeadroom{250, 1000, 25}));
    EXPECT_EQ(usageTint(contextHeadroom(session)->remainingPercent), "orange");
    session.last.total = 1200;
    EXPECT_EQ(contextHeadroom(session)->remainingPercent, 0);
    session.contextWindow.reset();
    EXPECT_FALSE(contextHeadroom(session));

    EXPECT_TRUE(usageResetLine(1000 + 2 * 3600 + 14 * 60 + 30, 1000)
                    .text.startsWith("Resets 2 hours, 14 minutes from now · "));
    EXPECT_EQ(usageResetLine(1000, 1000).tint, "orange");
    EXPECT_EQ(usageResetLine(std::nullopt, 1000).text, "Reset time not reported");
}

TEST(UsagePresentation, StatusTextFollowsItsTableInOrder)
{
    const double now = 60;
    AccountUsageFacts facts{false, true, reading(fiveHourAndWeek), std::nullopt};
    EXPECT_EQ(usageStatusText(facts, now, false), "Disconnected");
    facts = {true, true, std::nullopt, std::nullopt};
    EXPECT_EQ(usageStatusText(facts, now, false), "Loading…");
    facts.isLoadingUsage = false;
    EXPECT_EQ(usageStatusText(facts, now, false), "View limits");
    EXPECT_EQ(usageStatusTint(facts, now), "cyan");

    facts.usage = reading(fiveHourAndWeek);
    EXPECT_EQ(usageStatusText(facts, now, false), "5h 70% · Week 88% left");
    EXPECT_EQ(usageStatusText(facts, now, true), "70% left");
    EXPECT_EQ(usageStatusText(facts, 121, false), "Refresh needed");
    EXPECT_EQ(usageStatusTint(facts, 121), "orange");
    facts.usageError = QStringLiteral("Couldn't refresh usage.");
    EXPECT_EQ(usageStatusText(facts, now, false), "Refresh needed");

    facts = {true, false, reading(R"({"rateLimits":{"limitId":"a"},"rateLimitsByLimitId":{
        "a":{"primary":{"usedPercent":5}},"b":{"primary":{"usedPercent":50}}}})"),
             std::nullopt};
    EXPECT_EQ(facts.usage->buckets.size(), 2u);
    EXPECT_EQ(usageStatusText(facts, now, false), "View details");
    facts.usage->ordinaryUsageAllowed = false;
    EXPECT_EQ(usageStatusText(facts, now, false), "Usage restricted");
    EXPECT_EQ(usageStatusTint(facts, now), "red");
}

TEST(UsagePresentation, CreditsIndividualAllowanceAndTokenRows)
{
    CodexUsageBucket bucket;
    bucket.creditBalance = QStringLiteral("12.50");
    bucket.unlimitedCredits = true;
    EXPECT_EQ(usageCreditsRow(bucket), (UsageValueRow{"Credit allowance", "Unlimited"}));
    bucket = {};
    bucket.hasCredits = false;
    EXPECT_EQ(usageCreditsRow(bucket), (UsageValueRow{"Credits", "None available"}));

    bucket.individualLimit =
        JSONValue::decode(R"({"remainingPercent":140,"used":3,"limit":10})").value();
    EXPECT_EQ(individualAllowance(bucket), (IndividualAllowance{100, std::nullopt, std::nullopt}));
    bucket.individualLimit =
        JSONValue::decode(R"({"remainingPercent":40,"used":"3","limit":"10"})").value();
    EXPECT_EQ(individualAllowance(bucket)->caption, "3 used of 10 · reported units");
    bucket.individualLimit = JSONValue::decode(R"({"used":"3","limit":"10"})").value();
    EXPECT_FALSE(individualAllowance(bucket));

    CodexTokenCounts total{1200, 1000, 0, 0, 200, std::nullopt};
    auto titles = [](const std::vector<UsageValueRow>& rows) {
        QStringList shown;
        for (const UsageValueRow& row : rows)
            shown.append(row.title + QLatin1Char('=') + row.value);
        return shown.join(QLatin1Char(';'));
    };
    EXPECT_EQ(titles(tokenTotalRows(total)),
              "Total tokens=1,200;Input=1,000;Cached input · included in input=0;Output=200;"
              "Reasoning · included in output=Not reported");
    total.cacheWriteInput = 5;
    EXPECT_EQ(tokenTotalRows(total)[3], (UsageValueRow{"Cache-write input", "5"}));
}

class UsageViewsTest : public ScriptedWorkspace {
protected:
    void answerUsage(const char* result)
    {
        engine.last("account/rateLimits/read").completion(JSONValue::decode(result).value());
    }
};

TEST_F(UsageViewsTest, AReadingGoesStaleByTheClockAlone)
{
    UsageStatusButtonViewModel button(workspace, scheduler, std::nullopt, false);
    button.present();
    CodexUsageViewModel* sheet = button.sheet();
    ASSERT_TRUE(sheet);
    EXPECT_FALSE(sheet->refreshEnabled());
    EXPECT_EQ(button.statusText(), "Loading…");
    answerUsage(fiveHourAndWeek);
    EXPECT_TRUE(sheet->refreshEnabled());
    EXPECT_EQ(button.accessibleName(), "Usage, 5h 70% · Week 88% left");
    EXPECT_EQ(button.tint(), "cyan");
    EXPECT_EQ(rowValue(sheet->accountRows(), "bucket/5/codex/window/primary", "detail"),
              "70% left");
    EXPECT_FALSE(rowValue(sheet->accountRows(), "stale", "text").isValid());

    advance(90);
    EXPECT_EQ(button.statusText(), "5h 70% · Week 88% left");
    advance(60);
    EXPECT_EQ(button.statusText(), "Refresh needed");
    EXPECT_EQ(button.tint(), "orange");
    EXPECT_TRUE(rowValue(sheet->accountRows(), "stale", "text")
                    .toString()
                    .startsWith("Last reported values."));

    workspace.setEngineReady(false, {});
    EXPECT_EQ(button.statusText(), "Disconnected");
    EXPECT_FALSE(sheet->refreshEnabled());
    EXPECT_EQ(rowValue(sheet->accountRows(), "error", "text"),
              "Connect to Codex on this computer to read your account allowance.");
    button.dismiss();
    EXPECT_FALSE(button.isPresented());
}

TEST_F(UsageViewsTest, SessionBlockShowsContextHeadroomAndTotals)
{
    CodexUsageViewModel sheet(workspace, scheduler, QStringLiteral("thr_1"));
    EXPECT_EQ(rowValue(sheet.sessionRows(), "unreported", "rowType"), "line");
    notify("thread/tokenUsage/updated", R"({"threadId":"thr_1","tokenUsage":{
        "total":{"totalTokens":900,"inputTokens":700,"cachedInputTokens":0,"outputTokens":200},
        "last":{"totalTokens":96000},"modelContextWindow":128000}})");
    EXPECT_EQ(rowValue(sheet.sessionRows(), "context", "detail"), "25% left");
    EXPECT_EQ(rowValue(sheet.sessionRows(), "context", "tint"), "orange");
    EXPECT_EQ(rowValue(sheet.sessionRows(), "contextTokens", "text"),
              "32,000 of 128,000 tokens remaining");
    EXPECT_FALSE(rowValue(sheet.sessionRows(), "total/Cache-write input", "text").isValid());
    EXPECT_EQ(rowValue(sheet.sessionRows(), "total/Cached input · included in input", "detail"),
              "0");

    // A third of the window left: the share keeps the decimal format's three fraction digits.
    notify("thread/tokenUsage/updated", R"({"threadId":"thr_1","tokenUsage":{
        "total":{"totalTokens":2},"last":{"totalTokens":2},"modelContextWindow":3}})");
    EXPECT_EQ(rowValue(sheet.sessionRows(), "context", "detail"), "33% left");
    EXPECT_EQ(rowValue(sheet.sessionRows(), "context", "accessibleValue"),
              QLocale().toString(33.333, 'f', 3) + " percent remaining");
}

TEST(UsagePresentation, NumbersHaveAtMostThreeFractionDigitsInTheLocalesForm)
{
    struct Case {
        QLocale::Language language;
        double value;
        const char* text;
    };
    const Case cases[] = {
        {QLocale::English, 100.0 / 3, "33.333"}, {QLocale::English, 2.5, "2.5"},
        {QLocale::English, 0.0004, "0"},         {QLocale::English, 1234567, "1,234,567"},
        {QLocale::English, 2.9996, "3"},         {QLocale::German, 100.0 / 3, "33,333"},
        {QLocale::German, 1234.5, "1.234,5"},
    };
    const QLocale before;
    for (const Case& c : cases) {
        QLocale::setDefault(QLocale(c.language));
        EXPECT_EQ(formatLocaleNumber(c.value), c.text) << c.value;
    }
    QLocale::setDefault(before);
}
