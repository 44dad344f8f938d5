#include "workspace/SessionParsers.h"
#include "platform/TextFormatting.h"
#include "support/RandomJSON.h"
#include "usage/UsageRecords.h"

#include <QFile>
#include <QLocale>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace nimbrel;
using ::testing::ElementsAre;

namespace {

JSONValue json(std::string_view text)
{
    return JSONValue::decode(text).value();
}

JSONValue dataFile(const char* name)
{
    QFile file(QStringLiteral(TEST_DATA_DIR "/") + QLatin1String(name));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name;
    return JSONValue::decode(file.readAll().toStdString()).value();
}

QString repeated(const QString& piece, int count)
{
    return piece.repeated(count);
}

CodexThread thread(const JSONValue& value)
{
    return parseThread(value).value();
}

QStringList ids(const std::vector<TranscriptEntry>& entries)
{
    QStringList list;
    for (const auto& entry : entries)
        list.append(entry.id);
    return list;
}

} // namespace

TEST(SessionParsers, ThreadTitlesPreviewsAndFallbacks)
{
    EXPECT_FALSE(parseThread(json(R"({"name":"x"})")));
    EXPECT_FALSE(parseThread(json(R"({"id":7})")));
    EXPECT_FALSE(parseThread(json(R"([{"id":"a"}])")));

    const CodexThread bare = thread(json(R"({"id":""})"));
    EXPECT_EQ(bare, (CodexThread{"", "Untitled Codex session", "", "", "unknown", "unknown", 0,
                                 std::nullopt, std::nullopt}));
    EXPECT_EQ(thread(json(R"({"id":"t","name":"","preview":""})")).title, "Untitled Codex session");

    const QString exact500 = repeated("a", 500), exact160 = repeated("b", 160);
    auto withPreview = [](const QString& preview, const QString& name = {}) {
        return JSONValue::object({{"id", "t"}, {"preview", preview}, {"name", name}});
    };
    EXPECT_EQ(thread(withPreview(exact500)).preview, exact500);
    EXPECT_EQ(thread(withPreview(exact500 + "c")).preview, exact500 + "…");
    EXPECT_EQ(thread(withPreview("p", exact160)).title, exact160);
    EXPECT_EQ(thread(withPreview("p", exact160 + "c")).title, exact160 + "…");
    // No name, a 600-character preview: the title is cut from the full preview.
    const CodexThread long600 = thread(withPreview(repeated("x", 600)));
    EXPECT_EQ(long600.title, repeated("x", 160) + "…");
    EXPECT_EQ(long600.preview, repeated("x", 500) + "…");
    // White space is kept as it is.
    EXPECT_EQ(thread(withPreview("  spaced  ")).title, "  spaced  ");

    // Cuts count user-perceived characters and never split one.
    for (const QString& cluster : {QStringLiteral("🇳🇴"), QStringLiteral("e\u0301"),
                                   QStringLiteral("👩‍👩‍👧"), QStringLiteral("é")}) {
        const CodexThread cut = thread(withPreview(repeated(cluster, 501)));
        EXPECT_EQ(cut.preview, repeated(cluster, 500) + "…") << cluster.toStdString();
        EXPECT_EQ(cut.title, repeated(cluster, 160) + "…");
        EXPECT_EQ(thread(withPreview(repeated(cluster, 500))).preview, repeated(cluster, 500));
    }

    auto field = [](const char* extra) {
        return thread(json(std::string(R"({"id":"t",)") + extra + "}"));
    };
    EXPECT_EQ(field(R"("status":{"type":"active"})").status, "active");
    EXPECT_EQ(field(R"("status":"idle")").status, "idle");
    EXPECT_EQ(field(R"("status":{})").status, "unknown");
    EXPECT_EQ(field(R"("status":{"type":3})").status, "unknown");
    EXPECT_EQ(field(R"("source":{"kind":"sub","n":1})").source, R"({"kind":"sub","n":1})");
    EXPECT_EQ(field(R"("source":null)").source, "null");
    EXPECT_EQ(field(R"("source":"vscode")").source, "vscode");
    EXPECT_EQ(field(R"("updatedAt":"2025-01-01")").updatedAt, 0);
    EXPECT_EQ(field(R"("updatedAt":1700000000123)").updatedAt, 1700000000123.0);
    EXPECT_EQ(field(R"("model":"m","reasoningEffort":5)").model, QStringLiteral("m"));
    EXPECT_EQ(field(R"("model":"m","reasoningEffort":5)").reasoningEffort, std::nullopt);
}

TEST(SessionParsers, ModelOptionsAndApprovalPrompts)
{
    const JSONValue page = dataFile("model-list-page.json");
    std::vector<CodexModelOption> models;
    for (const JSONValue& value : page["data"]->items())
        if (auto model = parseModelOption(value))
            models.push_back(*model);
    ASSERT_EQ(models.size(), 2u);
    EXPECT_EQ(models[0].id, "gpt-5-codex");
    EXPECT_TRUE(models[0].isDefault);
    EXPECT_EQ(models[0].supportedReasoningEfforts,
              (std::vector<CodexReasoningEffortOption>{
                  {"low", "Fast answers"}, {"medium", "Balanced"}, {"high", ""}}));
    EXPECT_EQ(models[1], (CodexModelOption{"gpt-5-mini", "gpt-5-mini", "", "medium", {}, false}));

    const JSONValue params =
        json(R"({"command":"rm -rf build","cwd":"/w","reason":"Clean the build","threadId":"t1"})");
    const ApprovalPrompt command =
        makeApprovalPrompt("L1", "item/commandExecution/requestApproval", params);
    EXPECT_EQ(command, (ApprovalPrompt{"L1",
                                       "item/commandExecution/requestApproval",
                                       "Run this command?",
                                       "Clean the build",
                                       "rm -rf build",
                                       "/w",
                                       "t1",
                                       {},
                                       std::nullopt}));
    EXPECT_EQ(makeApprovalPrompt("L", "item/commandExecution/requestApproval", json("{}")).detail,
              "Codex needs your approval before running a command on this computer.");
    const ApprovalPrompt files =
        makeApprovalPrompt("L2", "item/fileChange/requestApproval", params);
    EXPECT_EQ(files.title, "Apply file changes?");
    EXPECT_EQ(files.detail, "Codex needs your approval before modifying files.");
    EXPECT_EQ(files.command, QStringLiteral("rm -rf build"));
    EXPECT_EQ(makeApprovalPrompt("L", "x/commandExecution+fileChange", params).title,
              "Run this command?");
    const ApprovalPrompt other =
        makeApprovalPrompt("L3", "item/permissions/requestApproval", json("[1]"));
    EXPECT_EQ(other, (ApprovalPrompt{"L3",
                                     "item/permissions/requestApproval",
                                     "Grant additional access?",
                                     "Codex is requesting additional permissions.",
                                     std::nullopt,
                                     std::nullopt,
                                     std::nullopt,
                                     {},
                                     std::nullopt}));
    EXPECT_EQ(makeApprovalPrompt("L", "m", json(R"({"reason":"Needs network"})")).detail,
              "Needs network");
    EXPECT_EQ(makeApprovalPrompt("L", "CommandExecution", params).title,
              "Grant additional access?");
}

TEST(SessionParsers, EveryTranscriptItemTypeFromATurnsPage)
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    const JSONValue page = dataFile("turns-page.json");
    const auto entries = entriesFromTurns(page["data"]->items());
    ASSERT_EQ(entries.size(), 17u);
    struct Expected {
        TranscriptKind kind;
        const char* title;
        const char* text;
        std::optional<QString> status;
    };
    const Expected expected[] = {
        {TranscriptKind::User, "You", "Tidy the repository", std::nullopt},
        {TranscriptKind::Assistant, "Codex update", "Looking around first.", std::nullopt},
        {TranscriptKind::Command, "$ git status", "clean", "completed"},
        {TranscriptKind::FileChange, "File changes",
         "README.md\n@@ -1 +1 @@\n-old\n+new\n\n\n\nLICENSE", "completed"},
        {TranscriptKind::Reasoning, "Thinking summary", "one\n\ntwo", std::nullopt},
        {TranscriptKind::System, "Plan", "1. Read\n2. Tidy", std::nullopt},
        {TranscriptKind::Command, "github • search_issues",
         "Input\n{\"q\":\"flaky\"}\n\nOutput\n3 issues\nissue 12\n[image "
         "content]\n\nResult\n{\"count\":3}",
         "completed"},
        {TranscriptKind::Command, "Codex tool", "Output\ndone\n\nError\ntool crashed", "failed"},
        {TranscriptKind::Command, "Web search", "qt6 qprocess\na\nb\nhttps://doc.qt.io",
         std::nullopt},
        {TranscriptKind::Command, "Viewing image", "/tmp/shot.png", std::nullopt},
        {TranscriptKind::System, "Waiting", "Pause for 1.5 seconds", std::nullopt},
        {TranscriptKind::System, "Compacting conversation",
         "Codex is condensing earlier context for the next steps.", std::nullopt},
        {TranscriptKind::Command, "shell", "null", "completed"},
        {TranscriptKind::System, "Codex agents", "Review the diff", "inProgress"},
        {TranscriptKind::System, "Codex agents", "", std::nullopt},
        {TranscriptKind::Assistant, "Final response", "Done.", std::nullopt},
        {TranscriptKind::Assistant, "Codex", "Interrupted.", std::nullopt},
    };
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(entries[i].kind, expected[i].kind);
        EXPECT_EQ(entries[i].title, QString::fromUtf8(expected[i].title));
        EXPECT_EQ(entries[i].text, QString::fromUtf8(expected[i].text));
        EXPECT_EQ(entries[i].status, expected[i].status);
        EXPECT_TRUE(entries[i].progressMessages.isEmpty());
    }
    EXPECT_EQ(entries[1].phase, QStringLiteral("commentary"));
    EXPECT_EQ(ids(entries).first(), "u1");

    // The platform's number format follows the locale.
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(parseTranscriptItem(json(R"({"type":"sleep","durationMs":2500})"))->text,
              "Pause for 2,5 seconds");
    EXPECT_EQ(parseTranscriptItem(json(R"({"type":"sleep"})"))->text, "Pause for 0 seconds");
    QLocale::setDefault(QLocale::c());

    // Items the parser refuses, and made-up ids for items without one.
    EXPECT_FALSE(parseTranscriptItem(json(R"({"type":"hookPrompt","id":"h"})")));
    EXPECT_FALSE(parseTranscriptItem(json(R"({"type":5})")));
    EXPECT_FALSE(parseTranscriptItem(json(R"("userMessage")")));
    const auto first = parseTranscriptItem(json(R"({"type":"plan"})"));
    const auto second = parseTranscriptItem(json(R"({"type":"plan"})"));
    EXPECT_EQ(first->id.size(), 36);
    EXPECT_NE(first->id, second->id);
    EXPECT_EQ(parseTranscriptItem(json(R"({"type":"webSearch","action":"search"})"))->text, "");
    EXPECT_EQ(parseTranscriptItem(json(R"({"type":"commandExecution"})"))->title, "$ Command");
    EXPECT_EQ(parseTranscriptItem(json(R"({"type":"mcpToolCall"})"))->title, "MCP • tool");
    EXPECT_EQ(
        parseTranscriptItem(json(R"({"type":"functionCallOutput","output":{"a":[1]}})"))->text,
        R"({"a":[1]})");
    EXPECT_EQ(parseTranscriptItem(json(R"({"type":"functionCallOutput"})"))->text, "");
    EXPECT_EQ(toolCallText(
                  json(R"({"arguments":null,"error":"boom","result":{"structuredContent":null}})")),
              "Error\nboom");
    EXPECT_EQ(toolCallText(json(R"({"error":{"code":1}})")), "Error\n{\"code\":1}");
    EXPECT_EQ(toolCallText(json(R"({})")), "");
}

TEST(SessionParsers, ItemsPagesArriveNewestFirst)
{
    const auto entries = entriesFromItemsPage(dataFile("items-page.json"));
    EXPECT_THAT(ids(entries), ElementsAre("i1", "i2", "i3", "i4"));
    EXPECT_EQ(entries[0].text, "Why does login fail?\nIt is flaky.");
    EXPECT_EQ(entries[1].text, "Looking at the test runner.\n\nThe clock is mocked late.");
    EXPECT_TRUE(entriesFromItemsPage(json(R"({"data":{}})")).empty());
    EXPECT_TRUE(entriesFromItemsPage(json("[]")).empty());
}

TEST(SessionParsers, ActivitiesGroupIntoBlocks)
{
    auto entry = [](const char* id, TranscriptKind kind, std::optional<QString> phase = {},
                    std::optional<QString> status = {}) {
        TranscriptEntry e;
        e.id = id;
        e.kind = kind;
        e.phase = phase;
        e.status = status;
        return e;
    };
    const std::vector<TranscriptEntry> entries = {
        entry("cmd0", TranscriptKind::Command), // an activity with no block before it opens one
        entry("u", TranscriptKind::User),
        entry("r", TranscriptKind::Reasoning),
        entry("c", TranscriptKind::Assistant, "commentary"),
        entry("s", TranscriptKind::System, {}, "completed"),
        entry("fail", TranscriptKind::System, {}, "failed"),
        entry("cmd", TranscriptKind::Command),
        entry("f", TranscriptKind::FileChange),
        entry("final", TranscriptKind::Assistant, "final_answer"),
        entry("stop", TranscriptKind::System, {}, "interrupted"),
        entry("plain", TranscriptKind::System),
    };
    const auto blocks = groupTranscriptBlocks(entries);
    std::vector<QStringList> shape;
    for (const auto& block : blocks)
        shape.push_back(ids(block.entries));
    EXPECT_THAT(shape,
                ElementsAre(QStringList{"cmd0"}, QStringList{"u"}, QStringList{"r", "c", "s"},
                            QStringList{"fail"}, QStringList{"cmd", "f"}, QStringList{"final"},
                            QStringList{"stop"}, QStringList{"plain"}));
    EXPECT_EQ(blocks[2].id(), "r");
    EXPECT_TRUE(groupTranscriptBlocks({}).empty());

    TranscriptEntry progress = entry("p", TranscriptKind::Command);
    progress.progressMessages = {"step 1", "", "step 2"};
    progress.text = "done";
    EXPECT_EQ(progress.combinedText(), "step 1\n\nstep 2\n\ndone");
}

TEST(SessionParsers, ThreadListPageAndNoParserFailsOnAnyValue)
{
    std::vector<CodexThread> threads;
    const JSONValue page = dataFile("thread-list-page.json");
    for (const JSONValue& value : page.find("data")->items())
        if (auto parsed = parseThread(value))
            threads.push_back(*parsed);
    ASSERT_EQ(threads.size(), 3u);
    EXPECT_EQ(threads[0].status, "active");
    EXPECT_EQ(threads[1].title, "Add a dark mode toggle to the settings page");
    EXPECT_EQ(threads[1].source, R"({"type":"subAgent","parent":"thr_01"})");
    EXPECT_EQ(threads[2].updatedAt, 0);

    // Random values with the parsers' own keys at every level: wrong types, nulls, long strings.
    test::RandomJSON random(4242);
    random.keys = {"id",
                   "name",
                   "preview",
                   "cwd",
                   "source",
                   "status",
                   "type",
                   "updatedAt",
                   "model",
                   "displayName",
                   "supportedReasoningEfforts",
                   "reasoningEffort",
                   "isDefault",
                   "content",
                   "text",
                   "changes",
                   "path",
                   "diff",
                   "summary",
                   "query",
                   "action",
                   "queries",
                   "url",
                   "pattern",
                   "durationMs",
                   "output",
                   "arguments",
                   "result",
                   "structuredContent",
                   "contentItems",
                   "resource",
                   "error",
                   "message",
                   "items",
                   "data",
                   "item",
                   "phase",
                   "command",
                   "reason",
                   "rateLimits",
                   "rateLimitsByLimitId",
                   "limitId",
                   "primary",
                   "secondary",
                   "usedPercent",
                   "windowDurationMins",
                   "resetsAt",
                   "credits",
                   "balance",
                   "individualLimit",
                   "total",
                   "last",
                   "modelContextWindow",
                   "totalTokens",
                   "userMessage",
                   "plan",
                   "agentMessage",
                   "commandExecution",
                   "fileChange",
                   "reasoning",
                   "mcpToolCall",
                   "sleep",
                   "webSearch",
                   "functionCallOutput",
                   "dynamicToolCall",
                   "rateLimitResetCredits",
                   "availableCount",
                   "planType",
                   "mode",
                   "requestedSchema",
                   "properties",
                   "required",
                   "enum",
                   "enumNames",
                   "oneOf",
                   "anyOf",
                   "const",
                   "title",
                   "default",
                   "permissions",
                   "fileSystem",
                   "network",
                   "enabled",
                   "entries",
                   "read",
                   "write"};
    random.maximumDepth = 5;
    random.longStringBytes = 100000;
    for (int i = 0; i < 4000; ++i) {
        const JSONValue value = random.value();
        (void)parseThread(value);
        (void)parseModelOption(value);
        (void)makeApprovalPrompt("id", "item/commandExecution/requestApproval", value);
        (void)makeApprovalPrompt("id", "item/permissions/requestApproval", value);
        (void)permissionsResponse(value, "acceptForSession");
        if (const auto form = parseElicitation(value); form.ok())
            (void)elicitationContent(form.value(), {{"a", "1"}, {"title", "x, y"}});
        (void)parseTranscriptItem(value);
        (void)toolCallText(value);
        const JSONValue turns[] = {value};
        (void)groupTranscriptBlocks(entriesFromTurns(turns));
        (void)entriesFromItemsPage(value);
        if (auto usage = parseAccountUsage(value, 0)) {
            (void)usage->primaryBucket();
            (void)usage->lowestRemainingPercent();
            (void)usage->isStale(1e9);
            for (const auto& bucket : usage->buckets) {
                (void)bucket.restrictionMessage();
                for (const auto& window : bucket.windows)
                    (void)window.label();
            }
        }
        (void)parseSessionUsage(value, 0);
    }
    // Deep nesting reaches the parsers without harm.
    const JSONValue deep =
        JSONValue::decode(std::string(500, '[') + "{\"type\":\"plan\"}" + std::string(500, ']'))
            .value();
    const JSONValue deepTurns[] = {deep};
    EXPECT_TRUE(entriesFromTurns(deepTurns).empty());
}
