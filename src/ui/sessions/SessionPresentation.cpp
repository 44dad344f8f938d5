#include "SessionPresentation.h"

#include <QDir>

namespace nimbrel {

QString threadDotTint(const CodexThread& thread, TurnControlState::Phase phase)
{
    if (phase != TurnControlState::Phase::Idle || thread.status == QLatin1String("active"))
        return QStringLiteral("green");
    if (thread.status == QLatin1String("systemError"))
        return QStringLiteral("red");
    return QStringLiteral("mutedCyan");
}

QString tabDotTint(const CodexSessionState& session)
{
    if (!session.userInputPrompts.empty())
        return QStringLiteral("orange");
    if (session.turnControl.phase != TurnControlState::Phase::Idle)
        return QStringLiteral("green");
    return QStringLiteral("mutedCyan");
}

QString threadFolderText(const QString& cwd)
{
    return cwd.isEmpty() ? QStringLiteral("Home folder") : cwd;
}

QString headerFolderText(const QString& cwd)
{
    return cwd.isEmpty() ? QDir::homePath() : cwd;
}

SessionStateBlock sessionStateBlock(const CodexSessionState& session)
{
    if (session.isLoadingTranscript)
        return {QStringLiteral("loading"), {}, QStringLiteral("Loading session history…"), {}, {}};
    if (session.transcriptLoadError)
        return {QStringLiteral("unavailable"), QStringLiteral("Session unavailable"),
                *session.transcriptLoadError, QStringLiteral("dialog-warning-symbolic"),
                QStringLiteral("orange")};
    if (session.transcript.empty())
        return {QStringLiteral("ready"),
                QStringLiteral("Ready for a task"),
                QStringLiteral("Type below to start this Codex session."),
                QStringLiteral("utilities-terminal-symbolic"),
                {}};
    return {};
}

bool composerCanSend(const CodexSessionState& session)
{
    // A view: a long draft is not copied each time the button asks.
    if ((QStringView(session.draft).trimmed().isEmpty() && session.draftImages.empty()) ||
        session.isSendingMessage)
        return false;
    const TurnControlState& turn = session.turnControl;
    return turn.phase == TurnControlState::Phase::Idle ||
           (turn.phase == TurnControlState::Phase::Running && turn.turnID.has_value());
}

} // namespace nimbrel
