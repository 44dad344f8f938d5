#include "engine/CodexInstallation.h"
#include "support/EventLoop.h"
#include "support/FakeEngine.h"
#include "support/TemporaryHome.h"
#include "support/VirtualScheduler.h"

#include <QObject>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;
using Source = CodexInstallation::Source;

namespace {

QStringList paths(const std::vector<CodexCandidate>& candidates)
{
    QStringList list;
    for (const auto& candidate : candidates)
        list.append(candidate.path);
    return list;
}

} // namespace

TEST(CodexInstallation, CandidatesComeInTheFixedOrder)
{
    TemporaryHome home;
    for (const char* name : {"9", "22", "v18.1.0", "10"})
        home.makeFile(QStringLiteral(".nvm/versions/node/%1/bin/codex").arg(QLatin1String(name)));
    home.makeFile(QStringLiteral(".local/share/fnm/node-versions/v20/installation/bin/codex"));
    const QString h = home.path();

    const auto candidates = codexCandidates(QStringLiteral("/custom/codex"), QStringLiteral("/a::/b:"), h);
    EXPECT_EQ(candidates.front(), (CodexCandidate{QStringLiteral("/custom/codex"), true}));
    EXPECT_EQ(paths(candidates), QStringList({
        "/custom/codex", "/a/codex", "/b/codex", "/opt/homebrew/bin/codex", "/usr/local/bin/codex",
        h + "/.local/bin/codex", h + "/.codex/bin/codex", h + "/.volta/bin/codex", h + "/.npm-global/bin/codex",
        h + "/.asdf/shims/codex", h + "/.local/share/mise/shims/codex",
        // Names descend as plain text, not as versions.
        h + "/.nvm/versions/node/v18.1.0/bin/codex", h + "/.nvm/versions/node/9/bin/codex",
        h + "/.nvm/versions/node/22/bin/codex", h + "/.nvm/versions/node/10/bin/codex",
        h + "/.local/share/fnm/node-versions/v20/installation/bin/codex",
    }));
    for (std::size_t i = 1; i < candidates.size(); ++i)
        EXPECT_FALSE(candidates[i].custom);

    // No custom path, no PATH, no version managers: the fixed places only.
    EXPECT_EQ(codexCandidates(QString(), std::nullopt, QStringLiteral("/nowhere")).size(), 8u);
    EXPECT_EQ(codexCandidates(std::nullopt, QString(), QStringLiteral("/nowhere")).size(), 8u);
}

TEST(CodexInstallation, HomeContainingFnmSwitchesTheNvmLayout)
{
    TemporaryHome base;
    const QString home = base.filePath(QStringLiteral("fnm-user"));
    base.makeFile(QStringLiteral("fnm-user/.nvm/versions/node/v1/bin/codex"));
    const auto list = paths(codexCandidates(std::nullopt, std::nullopt, home));
    EXPECT_TRUE(list.contains(home + "/.nvm/versions/node/v1/installation/bin/codex"));
}

TEST(CodexInstallation, ClassifiesBothPathsWithoutCase)
{
    EXPECT_EQ(classifyCodexInstallation("/opt/homebrew/bin/codex", "/opt/homebrew/lib/node_modules/@openai/codex/bin/codex.js", false), Source::Npm);
    EXPECT_EQ(classifyCodexInstallation("/x/HomeBrew/bin/codex", "/x/HomeBrew/bin/codex", true), Source::Homebrew);
    EXPECT_EQ(classifyCodexInstallation("/x/HOMEBREW/codex", "/y", false), Source::Homebrew);
    EXPECT_EQ(classifyCodexInstallation("/usr/local/bin/codex", "/usr/local/Caskroom/codex/1/codex", false), Source::Homebrew);
    EXPECT_EQ(classifyCodexInstallation("/usr/local/bin/codex", "/usr/local/Cellar/codex/1/bin/codex", false), Source::Homebrew);
    EXPECT_EQ(classifyCodexInstallation("/h/.local/bin/codex", "/h/.local/bin/codex", true), Source::Standalone);
    EXPECT_EQ(classifyCodexInstallation("/h/.codex/bin/codex", "/h/.codex/bin/codex", false), Source::Standalone);
    EXPECT_EQ(classifyCodexInstallation("/tools/codex", "/tools/codex", true), Source::Custom);
    EXPECT_EQ(classifyCodexInstallation("/tools/codex", "/tools/codex", false), Source::Path);
    EXPECT_EQ(codexSourceText(Source::Standalone), "Standalone installer");
    EXPECT_EQ(codexSourceText(Source::Path), "Shell PATH");
}

TEST(CodexInstallation, DiscoversOnRealFiles)
{
    TemporaryHome home;
    const QString h = home.path();
    // Nothing executable anywhere.
    home.makeFile(QStringLiteral("bin/codex"), "#!/bin/sh\n", false);
    EXPECT_FALSE(discoverCodex(std::nullopt, h + "/bin", h));

    // A link from a Homebrew folder into an npm package is npm.
    const QString script = home.makeFile(QStringLiteral("lib/node_modules/@openai/codex/bin/codex.js"));
    home.makeLink(QStringLiteral("homebrew/bin/codex"), script);
    auto found = discoverCodex(std::nullopt, h + "/bin:" + h + "/homebrew/bin", h);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->executablePath, h + "/homebrew/bin/codex");
    EXPECT_EQ(found->resolvedPath, script);
    EXPECT_EQ(found->source, Source::Npm);

    // A custom path that is also a PATH candidate keeps its flag; a stale custom path falls through.
    const QString tools = home.makeFile(QStringLiteral("tools/codex"));
    found = discoverCodex(tools, h + "/tools", h);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->source, Source::Custom);
    found = discoverCodex(h + "/gone/codex", h + "/tools:" + h + "/tools", h);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->executablePath, tools);
    EXPECT_EQ(found->source, Source::Path);

    // The home folder's installer places, path made standard.
    home.makeFile(QStringLiteral(".local/bin/codex"));
    found = discoverCodex(h + "/./.local/bin/../bin/codex", std::nullopt, h);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->executablePath, h + "/.local/bin/codex");
    EXPECT_EQ(found->source, Source::Standalone);
}

namespace {

std::optional<std::optional<QString>> probe(VirtualScheduler& scheduler, const JSONValue& version, double advance = 0)
{
    FakeEngine engine(JSONValue::object({{"version", version}}));
    QObject context;
    std::optional<std::optional<QString>> outcome;
    readCodexVersion(FakeEngine::executablePath(), scheduler, &context, [&](std::optional<QString> v) { outcome = v; });
    if (advance > 0) {
        settle(100);
        scheduler.advance(advance);
    }
    waitFor([&] { return outcome.has_value(); });
    return outcome;
}

} // namespace

TEST(CodexInstallation, TheVersionLineStandsAloneAmongWarnings)
{
    struct Case {
        const char* output;
        const char* line;
    };
    const Case cases[] = {
        {"codex-cli 0.169.0\n", "codex-cli 0.169.0"},
        {"WARNING: proceeding, even though we could not update PATH: Permission denied (os error "
         "13)\n"
         "WARNING: failed to clean up stale arg0 temp dirs: Directory not empty (os error 39)\n"
         "codex-cli 0.169.0\n",
         "codex-cli 0.169.0"},
        {"codex-cli 0.169.0\nnote: update 0.170.1 is available\n", "codex-cli 0.169.0"},
        {"\x1b[33mwarning\x1b[0m: slow disk\n\x1b[1mcodex-cli 0.2.0\x1b[0m", "codex-cli 0.2.0"},
        {"warning: old config\n1.4.2\n", "1.4.2"},
        {"something odd\n  \n", "something odd"},
        {"", ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(codexVersionLine(QString::fromUtf8(c.output)), QString::fromUtf8(c.line))
            << c.output;
}

TEST(CodexInstallation, ReadsTheVersionOrNothing)
{
    VirtualScheduler scheduler;
    EXPECT_EQ(probe(scheduler, JSONValue::object({{"output", "  codex-cli 0.63.0\n"}})), std::optional<QString>("codex-cli 0.63.0"));
    EXPECT_EQ(probe(scheduler, JSONValue::object({{"output", ""}})), std::optional<QString>(""));
    EXPECT_EQ(probe(scheduler, JSONValue::object(
                                   {{"output", "WARNING: no PATH update\ncodex-cli 0.169.0\n"}})),
              std::optional<QString>("codex-cli 0.169.0"));
    const std::optional<std::optional<QString>> nothing(std::in_place, std::nullopt);
    EXPECT_EQ(probe(scheduler, JSONValue::object({{"output", "boom"}, {"exitCode", 2}})), nothing);
    EXPECT_EQ(probe(scheduler, JSONValue::object({{"outputHex", "c328"}})), nothing);
    // A probe that hangs is ended by the limit.
    const auto hung = probe(scheduler, JSONValue::object({{"hangSeconds", 600}}), codexVersionLimitSeconds);
    ASSERT_TRUE(hung.has_value());
    EXPECT_FALSE(hung->has_value());

    QObject context;
    std::optional<std::optional<QString>> missing;
    readCodexVersion(QStringLiteral("/nonexistent/codex"), scheduler, &context, [&](auto v) { missing = v; });
    ASSERT_TRUE(waitFor([&] { return missing.has_value(); }));
    EXPECT_FALSE(missing->has_value());
}
