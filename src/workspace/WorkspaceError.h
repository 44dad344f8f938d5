#pragma once

#include "engine/AppServerError.h"
#include "peer/JSONValue.h"
#include "platform/Result.h"

#include <variant>

namespace nimbrel {

// The workspace's own failures, beside those of the engine link.
enum class CodexWorkspaceError { TransportUnavailable, HistoryTimedOut };

// Why a workspace operation failed: the engine's error or the workspace's own. text() is what the
// views show.
class WorkspaceError {
public:
    WorkspaceError(AppServerError error)
        : m_error(std::move(error))
    {
    }
    WorkspaceError(CodexWorkspaceError error)
        : m_error(error)
    {
    }

    QString text() const;

    friend bool operator==(const WorkspaceError&, const WorkspaceError&) = default;

private:
    std::variant<AppServerError, CodexWorkspaceError> m_error;
};

using WorkspaceResult = Result<JSONValue, WorkspaceError>;

} // namespace nimbrel
