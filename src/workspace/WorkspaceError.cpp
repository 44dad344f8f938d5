#include "WorkspaceError.h"

namespace nimbrel {

QString WorkspaceError::text() const
{
    if (const auto* engine = std::get_if<AppServerError>(&m_error))
        return engine->text();
    switch (std::get<CodexWorkspaceError>(m_error)) {
    case CodexWorkspaceError::TransportUnavailable:
        return QStringLiteral("The Codex connection is unavailable.");
    case CodexWorkspaceError::HistoryTimedOut:
        return QStringLiteral("Loading session history took too long. Please try again.");
    }
    return {};
}

} // namespace nimbrel
