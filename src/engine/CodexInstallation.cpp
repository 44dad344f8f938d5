#include "CodexInstallation.h"

#include "engine/ChildEnvironment.h"
#include "engine/TerminalText.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QStringDecoder>

#include <algorithm>
#include <memory>

namespace nimbrel {

QString codexSourceText(CodexInstallation::Source source)
{
    switch (source) {
    case CodexInstallation::Source::Homebrew: return QStringLiteral("Homebrew");
    case CodexInstallation::Source::Npm: return QStringLiteral("npm");
    case CodexInstallation::Source::Standalone: return QStringLiteral("Standalone installer");
    case CodexInstallation::Source::Custom: return QStringLiteral("Custom path");
    case CodexInstallation::Source::Path: return QStringLiteral("Shell PATH");
    }
    return {};
}

std::vector<CodexCandidate> codexCandidates(const std::optional<QString>& preferredPath,
                                            const std::optional<QString>& pathVariable, const QString& homePath)
{
    std::vector<CodexCandidate> candidates;
    if (preferredPath && !preferredPath->isEmpty())
        candidates.push_back({*preferredPath, true});
    if (pathVariable)
        for (const QString& entry : pathVariable->split(QLatin1Char(':'), Qt::SkipEmptyParts))
            candidates.push_back({entry + QStringLiteral("/codex"), false});
    candidates.push_back({QStringLiteral("/opt/homebrew/bin/codex"), false});
    candidates.push_back({QStringLiteral("/usr/local/bin/codex"), false});
    for (const char* place : {"/.local/bin/codex", "/.codex/bin/codex", "/.volta/bin/codex", "/.npm-global/bin/codex",
                              "/.asdf/shims/codex", "/.local/share/mise/shims/codex"})
        candidates.push_back({homePath + QLatin1String(place), false});
    for (const char* rootName : {"/.nvm/versions/node", "/.local/share/fnm/node-versions"}) {
        const QString root = homePath + QLatin1String(rootName);
        QStringList names = QDir(root).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
        std::sort(names.begin(), names.end(), [](const QString& a, const QString& b) { return a.compare(b) < 0; });
        const QString suffix = root.contains(QStringLiteral("fnm")) ? QStringLiteral("/installation/bin/codex")
                                                                    : QStringLiteral("/bin/codex");
        for (auto name = names.crbegin(); name != names.crend(); ++name)
            candidates.push_back({root + QLatin1Char('/') + *name + suffix, false});
    }
    return candidates;
}

CodexInstallation::Source classifyCodexInstallation(const QString& executablePath, const QString& resolvedPath,
                                                    bool custom)
{
    const QString text = (executablePath + QLatin1Char(' ') + resolvedPath).toLower();
    const std::pair<const char*, CodexInstallation::Source> rows[] = {
        {"/node_modules/@openai/codex/", CodexInstallation::Source::Npm},
        {"/homebrew/", CodexInstallation::Source::Homebrew},
        {"/caskroom/", CodexInstallation::Source::Homebrew},
        {"/cellar/", CodexInstallation::Source::Homebrew},
        {"/.local/bin/", CodexInstallation::Source::Standalone},
        {"/.codex/bin/", CodexInstallation::Source::Standalone},
    };
    for (const auto& [needle, source] : rows)
        if (text.contains(QLatin1String(needle)))
            return source;
    return custom ? CodexInstallation::Source::Custom : CodexInstallation::Source::Path;
}

namespace {

bool isExecutableFile(const QString& path)
{
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

} // namespace

std::optional<CodexInstallation> discoverCodex(const std::optional<QString>& preferredPath,
                                               const std::optional<QString>& pathVariable, const QString& homePath)
{
    QSet<QString> seen;
    for (const CodexCandidate& candidate : codexCandidates(preferredPath, pathVariable, homePath)) {
        if (seen.contains(candidate.path))
            continue;
        seen.insert(candidate.path);
        if (!isExecutableFile(candidate.path))
            continue;
        // Made absolute against this program's folder: the child runs in the home folder.
        const QString executable = QDir::cleanPath(QFileInfo(candidate.path).absoluteFilePath());
        QString resolved = QFileInfo(executable).canonicalFilePath();
        if (resolved.isEmpty())
            resolved = executable;
        return CodexInstallation{executable, resolved, classifyCodexInstallation(executable, resolved, candidate.custom)};
    }
    return std::nullopt;
}

std::optional<CodexInstallation> discoverCodex(const std::optional<QString>& preferredPath)
{
    std::optional<QString> pathVariable;
    if (qEnvironmentVariableIsSet("PATH"))
        pathVariable = qEnvironmentVariable("PATH");
    return discoverCodex(preferredPath, pathVariable, QDir::homePath());
}

QString codexVersionLine(const QString& output)
{
    static const QRegularExpression named(QStringLiteral(R"(^codex\S*\s+v?\d)"),
                                          QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression numbered(QStringLiteral(R"(\b\d+\.\d+)"));
    QStringList lines;
    for (const QString& line : withoutTerminalSequences(output).split(QLatin1Char('\n')))
        if (const QString trimmed = line.trimmed(); !trimmed.isEmpty())
            lines.append(trimmed);
    for (const QString& line : lines)
        if (named.match(line).hasMatch())
            return line;
    for (auto line = lines.crbegin(); line != lines.crend(); ++line)
        if (numbered.match(*line).hasMatch())
            return *line;
    return lines.isEmpty() ? QString() : lines.last();
}

void readCodexVersion(const QString& executablePath, Scheduler& scheduler, QObject* context,
                      std::function<void(std::optional<QString>)> completion)
{
    auto* process = new QProcess(context);
    auto finish = std::make_shared<std::function<void(std::optional<QString>)>>(std::move(completion));
    // Runs the completion once, whichever of exit, failure or the limit comes first.
    auto conclude = [process, finish](std::optional<QString> version) {
        if (!*finish)
            return;
        auto completion = std::move(*finish);
        *finish = nullptr;
        QObject::disconnect(process, nullptr, nullptr, nullptr);
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(1000);
        }
        process->deleteLater();
        completion(std::move(version));
    };
    process->setProgram(executablePath);
    process->setArguments({QStringLiteral("--version")});
    process->setProcessEnvironment(childEnvironment(executablePath));
    process->setProcessChannelMode(QProcess::MergedChannels);
    process->setInputChannelMode(QProcess::ForwardedInputChannel);
    QObject::connect(process, &QProcess::errorOccurred, context, [conclude](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            conclude(std::nullopt);
    });
    QObject::connect(process, &QProcess::finished, context,
                     [process, conclude](int exitCode, QProcess::ExitStatus status) {
                         if (status != QProcess::NormalExit || exitCode != 0) {
                             conclude(std::nullopt);
                             return;
                         }
                         QStringDecoder decoder(QStringDecoder::Utf8);
                         const QString text = decoder(process->readAll());
                         if (decoder.hasError())
                             conclude(std::nullopt);
                         else
                             conclude(codexVersionLine(text));
                     });
    scheduler.schedule(process, codexVersionLimitSeconds, [conclude] { conclude(std::nullopt); });
    process->start();
}

} // namespace nimbrel
