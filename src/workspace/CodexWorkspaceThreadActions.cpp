// Renaming, archiving and forking a session.
#include "workspace/CodexWorkspace.h"

#include "platform/TextFormatting.h"
#include "workspace/PermissionMode.h"
#include "workspace/SessionParsers.h"

#include <QPointer>

namespace nimbrel {

namespace {

constexpr int nameLimit = 160;

// Says on the workspace why an action failed, where it did.
bool failed(CodexWorkspace& workspace, const AppServerClient::RequestResult& outcome,
            const char* what)
{
    if (outcome.ok())
        return false;
    workspace.setErrorMessage(QStringLiteral("Could not %1: ").arg(QLatin1String(what)) +
                              outcome.error().text());
    return true;
}

} // namespace

void CodexWorkspace::renameThread(const QString& id, const QString& name)
{
    const QString trimmed = name.simplified();
    if (trimmed.isEmpty()) {
        setErrorMessage(QStringLiteral("A session needs a name."));
        return;
    }
    if (!requester || !m_engineReady) {
        setErrorMessage(QStringLiteral("Codex is not ready, so the session keeps its name."));
        return;
    }
    const QString chosen = truncatedToCharacters(trimmed, nameLimit);
    QPointer<CodexWorkspace> self(this);
    requester(
        QStringLiteral("thread/name/set"), JSONValue::object({{"threadId", id}, {"name", chosen}}),
        [self, id, chosen](const AppServerClient::RequestResult& outcome) {
            if (!self)
                return;
            if (failed(*self, outcome, "rename the session"))
                return;
            // Shown at once; the next list brings the engine's own.
            auto renamed = [&](CodexThread thread) {
                if (thread.id == id)
                    thread.title = chosen;
                return thread;
            };
            if (auto cached = self->m_threadCache.find(id); cached != self->m_threadCache.end())
                cached->second.title = chosen;
            std::vector<CodexThread> listed;
            for (const CodexThread& thread : self->m_threads)
                listed.push_back(renamed(thread));
            self->setThreads(std::move(listed));
            self->refreshThreads();
        });
}

void CodexWorkspace::archiveThread(const QString& id)
{
    const CodexSessionState* state = session(id);
    if (state && state->turnControl.phase != TurnControlState::Phase::Idle) {
        setErrorMessage(QStringLiteral("Stop this Codex session before archiving it."));
        return;
    }
    if (!requester || !m_engineReady) {
        setErrorMessage(QStringLiteral("Codex is not ready, so the session stays."));
        return;
    }
    QPointer<CodexWorkspace> self(this);
    requester(QStringLiteral("thread/archive"), JSONValue::object({{"threadId", id}}),
              [self, id](const AppServerClient::RequestResult& outcome) {
                  if (!self)
                      return;
                  if (failed(*self, outcome, "archive the session"))
                      return;
                  self->forgetThread(id);
              });
}

void CodexWorkspace::forkThread(const QString& id)
{
    if (!requester || !m_engineReady) {
        setErrorMessage(QStringLiteral("Codex is not ready, so the session cannot be forked."));
        return;
    }
    QPointer<CodexWorkspace> self(this);
    // The copy keeps the session's permissions; its history is read page by page once its tab
    // opens.
    const std::optional<PermissionMode> mode = sessionMode(id);
    const JSONValue params = JSONValue::object({{"threadId", id}, {"excludeTurns", true}});
    requester(
        QStringLiteral("thread/fork"), mode ? withPermissionMode(params, *mode, false) : params,
        [self, mode](const AppServerClient::RequestResult& outcome) {
            if (!self)
                return;
            if (failed(*self, outcome, "fork the session"))
                return;
            const JSONValue* made = outcome.value().find("thread");
            const std::optional<CodexThread> thread = made ? parseThread(*made) : std::nullopt;
            if (!thread) {
                self->setErrorMessage(
                    QStringLiteral("Codex forked the session but did not say which it made."));
                return;
            }
            self->rememberThread(*thread);
            self->noteSessionModeReply(QStringLiteral("thread/fork"), QString(), mode,
                                       outcome.value());
            self->openThread(thread->id);
            self->refreshThreads();
        });
}

void CodexWorkspace::forgetThread(const QString& id)
{
    if (m_openThreadIDs.contains(id))
        removeTab(id);
    m_threadCache.erase(id);
    std::vector<CodexThread> kept;
    for (const CodexThread& thread : m_threads)
        if (thread.id != id)
            kept.push_back(thread);
    if (kept.size() != m_threads.size())
        setThreads(std::move(kept));
}

} // namespace nimbrel
