// Each session's permission mode: one value per thread, whoever continues the session, kept across
// restarts and announced on every change.
#include "workspace/CodexWorkspace.h"

#include "workspace/SessionParsers.h"

namespace nimbrel {

void CodexWorkspace::loadSessionModes()
{
    // Stored oldest first as "<thread id> <key>".
    for (const QString& line : m_defaults.stringList(sessionModesKey)) {
        const qsizetype space = line.lastIndexOf(QLatin1Char(' '));
        const std::optional<PermissionMode> mode = permissionModeFromKey(line.mid(space + 1));
        if (space <= 0 || !mode)
            continue;
        const QString threadID = line.left(space);
        m_sessionModeOrder.removeAll(threadID);
        m_sessionModeOrder.append(threadID);
        m_sessionModes[threadID] = *mode;
    }
}

std::optional<PermissionMode> CodexWorkspace::sessionMode(const QString& threadID) const
{
    const auto found = m_sessionModes.find(threadID);
    return found == m_sessionModes.end() ? std::nullopt : std::optional(found->second);
}

void CodexWorkspace::recordSessionMode(const QString& threadID, PermissionMode mode)
{
    if (threadID.isEmpty() || threadID.size() > maximumThreadIDLength)
        return;
    const bool same = sessionMode(threadID) == mode;
    m_sessionModeOrder.removeAll(threadID);
    m_sessionModeOrder.append(threadID);
    m_sessionModes[threadID] = mode;
    while (m_sessionModeOrder.size() > maximumKeptSessionModes)
        m_sessionModes.erase(m_sessionModeOrder.takeFirst());
    QStringList stored;
    for (const QString& id : std::as_const(m_sessionModeOrder))
        stored.append(id + QLatin1Char(' ') + permissionModeKey(m_sessionModes.at(id)));
    m_defaults.setValue(sessionModesKey, stored);
    if (same)
        return;
    emit sessionModeChanged(threadID);
    emit sessionChanged(threadID);
}

void CodexWorkspace::noteSessionModeReply(const QString& method, const QString& threadID,
                                          const std::optional<PermissionMode>& asked,
                                          const JSONValue& result)
{
    QString target = threadID;
    if (method == QLatin1String("thread/start") || method == QLatin1String("thread/fork")) {
        const JSONValue* thread = result.find("thread");
        target = thread ? stringAt(*thread, "id").value_or(QString()) : QString();
    }
    if (target.isEmpty())
        return;
    if (asked)
        return recordSessionMode(target, *asked);
    // What Codex reports counts only where nobody has chosen.
    if (!sessionMode(target))
        if (const std::optional<PermissionMode> reported = permissionModeIn(result))
            recordSessionMode(target, *reported);
}

// A turn already under way keeps what it started with; the next resume and turn carry the mode.
void CodexWorkspace::setPermissionMode(const QString& modeKey, const QString& threadID)
{
    const std::optional<PermissionMode> mode = permissionModeFromKey(modeKey);
    if (!mode || *mode == PermissionMode::Custom || threadID.isEmpty())
        return;
    recordSessionMode(threadID, *mode);
}

PermissionMode CodexWorkspace::rememberedPermissionMode() const
{
    const std::optional<PermissionMode> mode =
        permissionModeFromKey(m_defaults.string(lastPermissionModeKey).value_or(QString()));
    return mode && *mode != PermissionMode::Custom ? *mode : PermissionMode::FullAccess;
}

} // namespace nimbrel
