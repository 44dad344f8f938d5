// The thread list, the tabs and their persistence, and the automatic refresh.
#include "workspace/CodexWorkspace.h"

#include "workspace/SessionParsers.h"

#include <QPointer>

namespace nimbrel {

// ---- the thread list

void CodexWorkspace::refreshThreads()
{
    if (m_isDemoMode || !requester || !m_engineReady || m_isRefreshingThreads)
        return;
    m_isRefreshingThreads = true;
    const JSONValue params = JSONValue::object({
        {"limit", threadListLimit},
        {"sortKey", "recency_at"},
        {"sortDirection", "desc"},
        {"sourceKinds", JSONValue::array({"cli", "appServer", "vscode"})},
    });
    QPointer<CodexWorkspace> self(this);
    requester(QStringLiteral("thread/list"), params,
              [self](const AppServerClient::RequestResult& outcome) {
                  if (self)
                      self->handleThreadList(outcome);
              });
}

void CodexWorkspace::handleThreadList(const AppServerClient::RequestResult& outcome)
{
    m_isRefreshingThreads = false;
    if (!outcome.ok()) {
        setErrorMessage(outcome.error().text());
        return;
    }
    std::vector<CodexThread> listed;
    if (const JSONValue* data = outcome.value().find("data"))
        for (const JSONValue& value : data->items())
            if (auto thread = parseThread(value))
                listed.push_back(std::move(*thread));
    for (const CodexThread& thread : listed) {
        m_threadCache[thread.id] = thread;
        adoptThreadSettings(thread);
    }
    setThreads(std::move(listed));
    reconcileOpenTabs();
}

// A listed model and effort fill only what the session has not chosen; sessions are not made here.
void CodexWorkspace::adoptThreadSettings(const CodexThread& thread)
{
    const CodexSessionState* held = session(thread.id);
    if (!held ||
        ((held->model || !thread.model) && (held->reasoningEffort || !thread.reasoningEffort)))
        return;
    changeSession(thread.id, [&](CodexSessionState& state) {
        if (!state.model)
            state.model = thread.model;
        if (!state.reasoningEffort)
            state.reasoningEffort = thread.reasoningEffort;
    });
}

void CodexWorkspace::reconcileOpenTabs()
{
    QStringList kept;
    for (const QString& id : m_openThreadIDs)
        if (m_threadCache.count(id))
            kept.append(id);
    setOpenThreadIDs(kept);
    if (m_selectedThreadID && !m_openThreadIDs.contains(*m_selectedThreadID))
        setSelectedThreadID(m_openThreadIDs.isEmpty() ? std::nullopt
                                                      : std::optional(m_openThreadIDs.first()));
    if (m_openThreadIDs.isEmpty() && !m_threads.empty()) {
        setOpenThreadIDs({m_threads.front().id});
        setSelectedThreadID(m_threads.front().id);
    }
    persistOpenTabs();
    // Copies: each session made is announced, and whoever hears of it may open or close tabs.
    const QStringList open = m_openThreadIDs;
    for (const QString& id : open)
        ensureSession(id);
    if (const std::optional<QString> selected = m_selectedThreadID)
        openThread(*selected);
}

// ---- tabs

CodexSessionState CodexWorkspace::newSession(const QString& id) const
{
    CodexSessionState state;
    state.threadID = id;
    if (const auto thread = threadForID(id)) {
        state.model = thread->model;
        state.reasoningEffort = thread->reasoningEffort;
    }
    return state;
}

void CodexWorkspace::ensureSession(const QString& id)
{
    if (!m_sessions.count(id))
        changeSession(id, [](CodexSessionState&) {});
}

void CodexWorkspace::rememberThread(const CodexThread& thread)
{
    m_threadCache[thread.id] = thread;
}

void CodexWorkspace::openThread(const QString& id)
{
    if (!m_openThreadIDs.contains(id))
        setOpenThreadIDs(m_openThreadIDs + QStringList{id});
    setSelectedThreadID(id);
    persistOpenTabs();
    ensureSession(id);
    loadTranscriptIfNeeded(id);
}

void CodexWorkspace::selectThread(const QString& id)
{
    if (!m_openThreadIDs.contains(id))
        return;
    setSelectedThreadID(id);
    persistOpenTabs();
    loadTranscriptIfNeeded(id);
}

// A session's history is fetched once it is shown, unless it is held or on its way.
void CodexWorkspace::loadTranscriptIfNeeded(const QString& id)
{
    const CodexSessionState* state = session(id);
    if (state && (state->hasLoadedTranscript || state->isLoadingTranscript))
        return;
    loadTranscript(id, false);
}

void CodexWorkspace::closeTab(const QString& id)
{
    const CodexSessionState* state = session(id);
    if (state && state->turnControl.phase != TurnControlState::Phase::Idle) {
        setErrorMessage(QStringLiteral("Stop this Codex session before closing its tab."));
        return;
    }
    removeTab(id);
}

void CodexWorkspace::removeTab(const QString& id)
{
    const CodexSessionState* state = session(id);
    const qsizetype index = m_openThreadIDs.indexOf(id);
    if (index < 0)
        return;
    QStringList remaining = m_openThreadIDs;
    remaining.removeAt(index);
    setOpenThreadIDs(remaining);

    dropTranscriptLoad(id);
    m_transcriptNextCursors.erase(id);
    m_transcriptPageSources.erase(id);
    m_shownDepths.erase(id);
    // Reopening the tab reads the history again; a running turn's entries stay until it ends.
    if (state)
        changeSession(id, [](CodexSessionState& session) {
            session.isLoadingTranscript = false;
            session.isLoadingEarlierTranscript = false;
            session.canLoadEarlierTranscript = false;
            session.hasLoadedTranscript = false;
        });
    // Buffered live output is dropped, not flushed.
    dropLiveDeltas(id);

    if (m_selectedThreadID == id) {
        if (m_openThreadIDs.isEmpty())
            setSelectedThreadID(std::nullopt);
        else
            setSelectedThreadID(m_openThreadIDs.at(std::min(index, m_openThreadIDs.size() - 1)));
    }
    persistOpenTabs();
    releaseBeyondBound(id);
}

void CodexWorkspace::setDraft(const QString& text, const QString& id)
{
    changeSession(id, [&](CodexSessionState& session) { session.draft = text; });
}

void CodexWorkspace::addDraftImage(const DraftImage& image, const QString& id)
{
    changeSession(id, [&](CodexSessionState& session) { session.draftImages.push_back(image); });
}

void CodexWorkspace::removeDraftImage(const QString& imageID, const QString& id)
{
    changeSession(id, [&](CodexSessionState& session) {
        std::erase_if(session.draftImages,
                      [&](const DraftImage& image) { return image.id == imageID; });
    });
}

void CodexWorkspace::persistOpenTabs()
{
    if (m_isDemoMode)
        return;
    m_defaults.setValue(m_openTabsStorageKey, m_openThreadIDs);
    const QString selectedKey = m_openTabsStorageKey + QStringLiteral(".selected");
    if (m_selectedThreadID)
        m_defaults.setValue(selectedKey, *m_selectedThreadID);
    else
        m_defaults.remove(selectedKey);
}

void CodexWorkspace::startAutomaticRefresh()
{
    if (m_automaticRefreshTask)
        return;
    m_automaticRefreshTask =
        m_scheduler.schedule(this, m_automaticRefreshInterval, [this] { automaticRefreshTick(); });
}

void CodexWorkspace::automaticRefreshTick()
{
    m_automaticRefreshTask =
        m_scheduler.schedule(this, m_automaticRefreshInterval, [this] { automaticRefreshTick(); });
    if (!m_engineReady || m_isDemoMode)
        return;
    refreshThreads();
    refreshUsageIfDue();
}

} // namespace nimbrel
