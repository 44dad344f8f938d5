// The offline tour: no request reaches the engine, and a message gets a canned reply.
#include "workspace/CodexWorkspace.h"

#include "platform/Property.h"
#include "platform/TextFormatting.h"

namespace nimbrel {

void CodexWorkspace::setDemoMode(bool demo)
{
    updateProperty(this, m_isDemoMode, demo, &CodexWorkspace::isDemoModeChanged);
}

void CodexWorkspace::sendInDemo(const QString& text, const QString& threadID)
{
    changeSession(threadID, [&](CodexSessionState& session) {
        session.transcript.push_back(
            TranscriptEntry{QStringLiteral("demo-user-") + randomUUIDText(),
                            TranscriptKind::User,
                            QStringLiteral("You"),
                            text,
                            std::nullopt,
                            std::nullopt,
                            {}});
        session.turnControl = {TurnControlState::Phase::Starting, std::nullopt};
    });
    m_scheduler.schedule(this, demoReplyDelaySeconds, [this, threadID] {
        if (!m_isDemoMode)
            return;
        changeSession(threadID, [](CodexSessionState& session) {
            session.transcript.push_back(TranscriptEntry{
                QStringLiteral("demo-codex-") + randomUUIDText(),
                TranscriptKind::Assistant,
                QStringLiteral("Offline Demo"),
                QStringLiteral("This offline tour does not contact Codex. Install Codex on this "
                               "computer and start Nimbrel Bridge without --demo to run real "
                               "tasks and continue the same sessions from your phone or tablet."),
                std::nullopt,
                std::nullopt,
                {}});
            session.turnControl = TurnControlState{};
            session.activityText.reset();
        });
    });
}

} // namespace nimbrel
