#include "SessionConfiguration.h"

#include "workspace/CodexWorkspace.h"

namespace nimbrel {

QString effortDisplayName(const QString& effort)
{
    if (effort.isEmpty())
        return QStringLiteral("Codex Default");
    if (effort.toLower() == QLatin1String("xhigh"))
        return QStringLiteral("Extra High");
    QString words = effort;
    words.replace(QLatin1Char('-'), QLatin1Char(' '));
    bool wordStart = true;
    for (QChar& c : words) {
        const bool delimiter = c == QLatin1Char(' ') || c == QLatin1Char('\t') ||
                               c == QLatin1Char('\n') || c == QLatin1Char('\r');
        c = delimiter ? c : wordStart ? c.toUpper() : c.toLower();
        wordStart = delimiter;
    }
    return words;
}

QList<ListRecord> permissionModeRecords(std::optional<PermissionMode> selected)
{
    QList<ListRecord> records;
    for (PermissionMode mode : permissionModes())
        records.append(
            {permissionModeKey(mode),
             {permissionModeKey(mode), permissionModeTitle(mode), permissionModeSummary(mode),
              permissionModeColour(mode), mode == selected}});
    return records;
}

QString displayedEffort(const CodexWorkspace& workspace, const QString& threadID)
{
    if (const CodexSessionState* state = workspace.session(threadID);
        state && state->reasoningEffort)
        return *state->reasoningEffort;
    if (const std::optional<CodexThread> thread = workspace.threadForID(threadID);
        thread && thread->reasoningEffort)
        return *thread->reasoningEffort;
    return workspace.defaultEffort(workspace.effectiveModelID(threadID)).value_or(QString());
}

} // namespace nimbrel
