#include "MacSessionViewModel.h"

#include "ui/sessions/SessionPresentation.h"
#include "workspace/CodexWorkspace.h"

#include <QPointer>

#include <cmath>

namespace nimbrel {

namespace {

// A child the view may still read until this event is done.
template <typename Child> void retire(Child*& child)
{
    if (child)
        std::exchange(child, nullptr)->deleteLater();
}

using Phase = TurnControlState::Phase;

} // namespace

MacSessionViewModel::MacSessionViewModel(CodexWorkspace& workspace, Scheduler& scheduler,
                                         SessionActivityPreference& preference, QObject* parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_scheduler(scheduler)
    , m_preference(preference)
{
    connect(&workspace, &CodexWorkspace::selectedThreadIDChanged, this,
            &MacSessionViewModel::followSelection);
    connect(&workspace, &CodexWorkspace::threadsChanged, this,
            &MacSessionViewModel::followSelection);
    connect(&workspace, &CodexWorkspace::sessionChanged, this, [this](const QString& id) {
        if (id == m_threadID && present())
            sessionChanged();
    });
    followSelection();
}

QVariantMap MacSessionViewModel::texts()
{
    return {{"terminalSymbol", QStringLiteral("utilities-terminal")},
            {"ready", QStringLiteral("READY")},
            {"stop", QStringLiteral("Stop")},
            {"stopSymbol", QStringLiteral("media-playback-stop-symbolic")},
            {"settings", QStringLiteral("Session Settings")},
            {"settingsSymbol", QStringLiteral("preferences-system-symbolic")},
            {"earlierSymbol", QStringLiteral("go-up-symbolic")},
            {"newer", QStringLiteral("Newer output")},
            {"newerSymbol", QStringLiteral("go-down-symbolic")},
            {"followLive", QStringLiteral("Follow live")},
            {"followLiveSymbol", QStringLiteral("go-bottom-symbolic")},
            {"tryAgain", QStringLiteral("Try Again")}};
}

const CodexSessionState* MacSessionViewModel::session() const
{
    return present() ? m_workspace.session(m_threadID) : nullptr;
}

bool MacSessionViewModel::hasTurnID() const
{
    const CodexSessionState* state = session();
    return state && state->turnControl.turnID.has_value();
}

// The pane shows the selected thread where the workspace knows it, and nothing otherwise.
void MacSessionViewModel::followSelection()
{
    const std::optional<QString>& selected = m_workspace.selectedThreadID();
    const std::optional<CodexThread> thread =
        selected ? m_workspace.threadForID(*selected) : std::nullopt;
    if (thread && present() && thread->id == m_threadID) {
        emit changed();
        return;
    }
    if (!thread && !present())
        return;
    // The session left on screen keeps no more than its bound.
    if (present())
        m_workspace.setShownDepth(m_threadID, 0);
    retire(m_transcript);
    retire(m_configuration);
    retire(m_usage);
    retire(m_images);
    for (auto& [id, question] : m_questions)
        question->deleteLater();
    m_questions.clear();
    m_questionIDs.clear();
    m_pageOffset = 0;
    m_followsLiveOutput = true;
    m_lastPhase = Phase::Idle;
    m_threadID = thread ? thread->id : QString();
    if (thread) {
        m_workspace.rememberThread(*thread);
        m_workspace.openThread(thread->id);
        m_transcript = new TranscriptViewModel(m_workspace, m_preference, m_threadID, this);
        m_configuration = new SessionConfigurationViewModel(m_workspace, m_threadID, this);
        m_usage = new UsageStatusButtonViewModel(m_workspace, m_scheduler, m_threadID, false, this);
        m_images = new ComposerImages(m_workspace, m_threadID, this);
        connect(m_transcript, &TranscriptViewModel::pageContentChanged, this, [this] {
            if (m_followsLiveOutput && m_pageOffset == 0)
                emit scrollRequested(QStringLiteral("bottom"));
        });
        if (const CodexSessionState* state = session())
            m_lastPhase = state->turnControl.phase;
        updateQuestions();
    }
    emit threadChanged();
    emit questionsChanged();
    emit changed();
}

void MacSessionViewModel::sessionChanged()
{
    const CodexSessionState* state = session();
    if (!state)
        return;
    const Phase phase = state->turnControl.phase;
    const bool turnStarted = m_lastPhase == Phase::Idle && phase != Phase::Idle;
    m_lastPhase = phase;
    if (turnStarted && m_pageOffset == 0)
        followAndScroll();
    updateQuestions();
    emit changed();
}

// A new question brings the newest page back, whatever page the user reads.
void MacSessionViewModel::updateQuestions()
{
    const CodexSessionState* state = session();
    QStringList ids;
    if (state)
        for (const UserInputPrompt& prompt : state->userInputPrompts)
            ids.append(prompt.request.id);
    if (ids == m_questionIDs)
        return;
    m_questionIDs = ids;
    std::map<QString, UserInputRequestViewModel*> kept;
    for (const QString& id : ids) {
        const auto found = m_questions.find(id);
        if (found != m_questions.end()) {
            kept.insert(m_questions.extract(found));
            continue;
        }
        kept[id] = new UserInputRequestViewModel(m_workspace, m_threadID, id, this);
    }
    for (auto& [id, gone] : m_questions)
        gone->deleteLater();
    m_questions = std::move(kept);
    emit questionsChanged();
    if (!ids.isEmpty()) {
        setPageOffset(0);
        followAndScroll();
    }
}

QVariantList MacSessionViewModel::questions() const
{
    QVariantList list;
    for (const QString& id : m_questionIDs)
        list.append(QVariant::fromValue<QObject*>(m_questions.at(id)));
    return list;
}

QString MacSessionViewModel::title() const
{
    const std::optional<CodexThread> thread =
        present() ? m_workspace.threadForID(m_threadID) : std::nullopt;
    return thread ? thread->title : QString();
}

QString MacSessionViewModel::folder() const
{
    const std::optional<CodexThread> thread =
        present() ? m_workspace.threadForID(m_threadID) : std::nullopt;
    return thread ? headerFolderText(thread->cwd) : QString();
}

QString MacSessionViewModel::phaseText() const
{
    const CodexSessionState* state = session();
    switch (state ? state->turnControl.phase : Phase::Idle) {
    case Phase::Idle:
        return QStringLiteral("READY");
    case Phase::Starting:
    case Phase::Running:
        return QStringLiteral("Working");
    case Phase::Stopping:
        return QStringLiteral("Stopping…");
    }
    return {};
}

bool MacSessionViewModel::working() const
{
    const CodexSessionState* state = session();
    return state && state->turnControl.phase != Phase::Idle;
}

bool MacSessionViewModel::stopEnabled() const
{
    const CodexSessionState* state = session();
    return state && (state->turnControl.phase == Phase::Starting ||
                     state->turnControl.phase == Phase::Running);
}

bool MacSessionViewModel::showsEarlier() const
{
    const CodexSessionState* state = session();
    return state && showsEarlierOutput(static_cast<qsizetype>(state->transcript.size()),
                                       m_pageOffset, state->canLoadEarlierTranscript);
}

bool MacSessionViewModel::earlierEnabled() const
{
    const CodexSessionState* state = session();
    return state && !state->isLoadingEarlierTranscript;
}

QString MacSessionViewModel::earlierText() const
{
    const CodexSessionState* state = session();
    return state && state->isLoadingEarlierTranscript ? QStringLiteral("Loading earlier output…")
                                                      : QStringLiteral("Earlier output");
}

SessionStateBlock MacSessionViewModel::stateBlock() const
{
    const CodexSessionState* state = session();
    return state ? sessionStateBlock(*state) : SessionStateBlock();
}

bool MacSessionViewModel::showsFollowLive() const
{
    return !m_followsLiveOutput && working();
}

QString MacSessionViewModel::draft() const
{
    const CodexSessionState* state = session();
    return state ? state->draft : QString();
}

void MacSessionViewModel::setDraft(const QString& text)
{
    if (present() && text != draft())
        m_workspace.setDraft(text, m_threadID);
}

QString MacSessionViewModel::placeholder() const
{
    return hasTurnID() ? QStringLiteral("Steer the active turn…")
                       : QStringLiteral("Message Codex…");
}

QString MacSessionViewModel::sendSymbol() const
{
    return hasTurnID() ? QStringLiteral("mail-forward-symbolic") : QStringLiteral("go-up-symbolic");
}

QString MacSessionViewModel::sendLabel() const
{
    return hasTurnID() ? QStringLiteral("Steer") : QStringLiteral("Send");
}

bool MacSessionViewModel::sendEnabled() const
{
    const CodexSessionState* state = session();
    return state && composerCanSend(*state);
}

void MacSessionViewModel::setPageOffset(qint64 offset)
{
    m_pageOffset = std::max<qint64>(offset, 0);
    if (m_transcript)
        m_transcript->setPageOffset(m_pageOffset);
    // What this page shows stays in memory, however far back it is.
    if (present())
        m_workspace.setShownDepth(m_threadID,
                                  static_cast<std::size_t>(m_pageOffset + transcriptPageSize));
    emit changed();
}

void MacSessionViewModel::followAndScroll()
{
    m_followsLiveOutput = true;
    emit changed();
    emit scrollRequested(QStringLiteral("bottom"));
}

void MacSessionViewModel::showEarlier()
{
    const CodexSessionState* state = session();
    if (!state || state->isLoadingEarlierTranscript)
        return;
    if (m_pageOffset + transcriptPageSize < static_cast<qint64>(state->transcript.size())) {
        setPageOffset(m_pageOffset + transcriptPageSize);
        emit scrollRequested(QStringLiteral("bottom"));
        return;
    }
    // The older entries are not in memory: the page moves onto what the engine adds.
    QPointer<MacSessionViewModel> self(this);
    const QString id = m_threadID;
    m_workspace.loadEarlierTranscript(id, [self, id](int added) {
        if (!self || self->m_threadID != id || added <= 0)
            return;
        self->setPageOffset(self->m_pageOffset + added);
        emit self->scrollRequested(QStringLiteral("bottom"));
    });
}

void MacSessionViewModel::showNewer()
{
    setPageOffset(m_pageOffset - transcriptPageSize);
    emit scrollRequested(QStringLiteral("top"));
}

void MacSessionViewModel::followLive()
{
    setPageOffset(0);
    followAndScroll();
}

void MacSessionViewModel::userMoved(double distance)
{
    if (std::abs(distance) < followBreakDistance || !m_followsLiveOutput)
        return;
    m_followsLiveOutput = false;
    emit changed();
}

void MacSessionViewModel::send()
{
    if (sendEnabled())
        submit();
}

void MacSessionViewModel::submit()
{
    if (!present())
        return;
    const QString text = draft();
    QStringList images;
    if (const CodexSessionState* state = session())
        for (const DraftImage& image : state->draftImages)
            images.append(image.url);
    // The text and images stay in the composer until Codex has taken the message.
    m_workspace.send(text, m_threadID, images);
}

void MacSessionViewModel::stop()
{
    if (stopEnabled())
        m_workspace.stopTurn(m_threadID);
}

void MacSessionViewModel::tryAgain()
{
    if (present())
        m_workspace.loadTranscript(m_threadID, true);
}

void MacSessionViewModel::appeared()
{
    if (!m_questionIDs.isEmpty())
        emit scrollRequested(QStringLiteral("bottom"));
}

} // namespace nimbrel
