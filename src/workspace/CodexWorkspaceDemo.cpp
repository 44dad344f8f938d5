// The offline tour: no request reaches the engine, and a message gets a canned reply.
#include "workspace/CodexWorkspace.h"

#include "platform/Property.h"
#include "platform/TextFormatting.h"
#include "workspace/DemoSessions.h"

namespace nimbrel {

void CodexWorkspace::setDemoMode(bool demo)
{
    updateProperty(this, m_isDemoMode, demo, &CodexWorkspace::isDemoModeChanged);
}

void CodexWorkspace::seedDemoSessions()
{
    if (!m_isDemoMode)
        return;
    const std::vector<DemoSession> samples = demoSessions(m_scheduler.date());
    std::vector<CodexThread> threads = m_threads;
    QStringList tabs = m_openThreadIDs;
    for (const DemoSession& sample : samples) {
        if (threadForID(sample.thread.id))
            continue;
        threads.push_back(sample.thread);
        tabs.append(sample.thread.id);
    }
    setThreads(std::move(threads));
    for (const DemoSession& sample : samples) {
        if (session(sample.thread.id) && session(sample.thread.id)->hasLoadedTranscript)
            continue;
        changeSession(sample.thread.id, [&](CodexSessionState& state) {
            state.transcript = sample.transcript;
            state.hasLoadedTranscript = true;
        });
        if (sample.question)
            addUserInputPrompt(*sample.question);
    }
    setOpenThreadIDs(tabs);
    if (samples.size() > 1)
        selectThread(samples[1].thread.id);
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
