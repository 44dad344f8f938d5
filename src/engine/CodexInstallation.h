#pragma once

#include "platform/Scheduler.h"

#include <QString>

#include <functional>
#include <optional>
#include <vector>

class QObject;

namespace nimbrel {

// Where the Codex command-line tool lies on this computer and how it came there.
struct CodexInstallation {
    enum class Source { Homebrew, Npm, Standalone, Custom, Path };

    QString executablePath; // the candidate made standard: what is run and shown
    QString resolvedPath;   // the same with symbolic links resolved: only for classifying
    Source source = Source::Path;

    friend bool operator==(const CodexInstallation&, const CodexInstallation&) = default;
};

// "Homebrew", "npm", "Standalone installer", "Custom path" or "Shell PATH".
QString codexSourceText(CodexInstallation::Source source);

struct CodexCandidate {
    QString path;
    bool custom = false;
    friend bool operator==(const CodexCandidate&, const CodexCandidate&) = default;
};

// Where to look, and in which order: the custom path, PATH, the fixed places, the home folder's
// places, then the Node version managers' installs, newest name first.
std::vector<CodexCandidate> codexCandidates(const std::optional<QString>& preferredPath,
                                            const std::optional<QString>& pathVariable, const QString& homePath);

CodexInstallation::Source classifyCodexInstallation(const QString& executablePath, const QString& resolvedPath,
                                                    bool custom);

// The first executable candidate, each path tried once (the first occurrence and its flag stand).
std::optional<CodexInstallation> discoverCodex(const std::optional<QString>& preferredPath,
                                               const std::optional<QString>& pathVariable, const QString& homePath);
// The same over this process's PATH and home folder.
std::optional<CodexInstallation> discoverCodex(const std::optional<QString>& preferredPath);

// The version line of `codex --version` output, which may hold warnings before it: the first line
// that starts with "codex" and a version number, else the last line with a version number, else the
// last line that is not blank; colour sequences removed, trimmed.
QString codexVersionLine(const QString& output);

// Runs `<executable> --version` without blocking; completion gets its version line, or nothing
// when the tool could not be run, failed, wrote something that is not UTF-8 or ran past the limit.
// Completion runs once, on context's thread.
void readCodexVersion(const QString& executablePath, Scheduler& scheduler, QObject* context,
                      std::function<void(std::optional<QString>)> completion);

constexpr double codexVersionLimitSeconds = 10.0;

} // namespace nimbrel
