#include "AppServerError.h"

namespace nimbrel {

QString AppServerError::text() const
{
    switch (m_kind) {
    case Kind::RequestTimedOut:
        return QStringLiteral("Codex did not respond to %1 within 30 seconds.").arg(m_payload);
    case Kind::Server: return m_payload;
    case Kind::Terminated: return QStringLiteral("Codex app-server exited with code %1.").arg(m_exitCode);
    case Kind::CodexNotFound:
        return QStringLiteral(
            "Codex CLI was not found. Install Codex or choose its executable in Settings.");
    case Kind::NotReady: return QStringLiteral("Codex app-server is still starting.");
    case Kind::InvalidResponse: return QStringLiteral("Codex returned an invalid response.");
    }
    return {};
}

} // namespace nimbrel
