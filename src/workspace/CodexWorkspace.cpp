#include "CodexWorkspace.h"

#include "platform/Property.h"
#include "platform/TextFormatting.h"
#include "workspace/SessionParsers.h"

#include <QLocale>
#include <QPointer>
#include <QVariantMap>

namespace nimbrel {

QString codexWorkspaceErrorText(CodexWorkspaceError error)
{
    switch (error) {
    case CodexWorkspaceError::TransportUnavailable: return QStringLiteral("The Codex connection is unavailable.");
    case CodexWorkspaceError::HistoryTimedOut: return QStringLiteral("Loading session history took too long. Please try again.");
    }
    return {};
}

CodexWorkspace::CodexWorkspace(UserDefaults& defaults, Scheduler& scheduler, QString openTabsStorageKey,
                               double automaticRefreshInterval, double historyRequestTimeout, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_scheduler(scheduler)
    , m_openTabsStorageKey(std::move(openTabsStorageKey))
    , m_automaticRefreshInterval(automaticRefreshInterval)
    , m_historyRequestTimeout(historyRequestTimeout)
{
    m_openThreadIDs = m_defaults.stringList(m_openTabsStorageKey);
    m_openThreadIDs.removeDuplicates();
    const std::optional<QString> stored = m_defaults.string(m_openTabsStorageKey + QStringLiteral(".selected"));
    if (stored && m_openThreadIDs.contains(*stored))
        m_selectedThreadID = stored;
    else if (!m_openThreadIDs.isEmpty())
        m_selectedThreadID = m_openThreadIDs.first();
    connect(this, &CodexWorkspace::threadsChanged, this, &CodexWorkspace::filteredThreadsChanged);
    connect(this, &CodexWorkspace::searchTextChanged, this, &CodexWorkspace::filteredThreadsChanged);
}

CodexWorkspace::~CodexWorkspace()
{
    for (TaskHandle* task : {&m_automaticRefreshTask, &m_usageRefreshTask, &m_usageTimeoutTask})
        if (*task)
            (*task)->cancel();
}

// ---- queries

CodexSessionState CodexWorkspace::sessionState(const QString& id) const
{
    const auto found = m_sessions.find(id);
    if (found != m_sessions.end())
        return found->second;
    CodexSessionState state;
    state.threadID = id;
    return state;
}

std::optional<CodexThread> CodexWorkspace::threadForID(const QString& id) const
{
    for (const CodexThread& thread : m_threads)
        if (thread.id == id)
            return thread;
    const auto cached = m_threadCache.find(id);
    if (cached != m_threadCache.end())
        return cached->second;
    return std::nullopt;
}

std::vector<CodexThread> CodexWorkspace::filteredThreads() const
{
    if (m_searchText.isEmpty())
        return m_threads;
    const QLocale locale;
    const QString needle = locale.toLower(m_searchText);
    std::vector<CodexThread> found;
    for (const CodexThread& thread : m_threads)
        if (locale.toLower(thread.title).contains(needle) || locale.toLower(thread.cwd).contains(needle))
            found.push_back(thread);
    return found;
}

std::vector<CodexThread> CodexWorkspace::openThreads() const
{
    std::vector<CodexThread> open;
    for (const QString& id : m_openThreadIDs)
        if (auto thread = threadForID(id))
            open.push_back(*thread);
    return open;
}

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
    requester(QStringLiteral("thread/list"), params, [self](const AppServerClient::RequestResult& outcome) {
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
    const auto found = m_sessions.find(thread.id);
    if (found == m_sessions.end())
        return;
    CodexSessionState state = found->second;
    if (!state.model && thread.model)
        state.model = thread.model;
    if (!state.reasoningEffort && thread.reasoningEffort)
        state.reasoningEffort = thread.reasoningEffort;
    storeSession(state);
}

void CodexWorkspace::reconcileOpenTabs()
{
    QStringList kept;
    for (const QString& id : m_openThreadIDs)
        if (m_threadCache.count(id))
            kept.append(id);
    setOpenThreadIDs(kept);
    if (m_selectedThreadID && !m_openThreadIDs.contains(*m_selectedThreadID))
        setSelectedThreadID(m_openThreadIDs.isEmpty() ? std::nullopt : std::optional(m_openThreadIDs.first()));
    if (m_openThreadIDs.isEmpty() && !m_threads.empty()) {
        setOpenThreadIDs({m_threads.front().id});
        setSelectedThreadID(m_threads.front().id);
    }
    persistOpenTabs();
    for (const QString& id : m_openThreadIDs)
        ensureSession(id);
    if (m_selectedThreadID)
        openThread(*m_selectedThreadID);
}

// ---- tabs

CodexSessionState CodexWorkspace::newSession(const QString& id) const
{
    CodexSessionState state = sessionState(id);
    if (const auto thread = threadForID(id)) {
        state.model = thread->model;
        state.reasoningEffort = thread->reasoningEffort;
    }
    return state;
}

void CodexWorkspace::ensureSession(const QString& id)
{
    if (!m_sessions.count(id))
        storeSession(newSession(id));
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

// A session's history is fetched once it is shown; loading pages arrives with the history model.
void CodexWorkspace::loadTranscriptIfNeeded(const QString& id)
{
    const CodexSessionState state = sessionState(id);
    if (state.hasLoadedTranscript || state.isLoadingTranscript)
        return;
}

void CodexWorkspace::closeTab(const QString& id)
{
    CodexSessionState state = sessionState(id);
    if (state.turnControl.phase != TurnControlState::Phase::Idle) {
        setErrorMessage(QStringLiteral("Stop this Codex session before closing its tab."));
        return;
    }
    const qsizetype index = m_openThreadIDs.indexOf(id);
    if (index < 0)
        return;
    QStringList remaining = m_openThreadIDs;
    remaining.removeAt(index);
    setOpenThreadIDs(remaining);

    m_transcriptLoadIDs.erase(id);
    if (auto timeout = m_transcriptLoadTimeouts.find(id); timeout != m_transcriptLoadTimeouts.end()) {
        timeout->second->cancel();
        m_transcriptLoadTimeouts.erase(timeout);
    }
    m_transcriptNextCursors.erase(id);
    m_transcriptPageSources.erase(id);
    state.isLoadingTranscript = false;
    state.isLoadingEarlierTranscript = false;
    state.canLoadEarlierTranscript = false;
    state.hasLoadedTranscript = false;
    if (m_sessions.count(id))
        storeSession(state);
    // Buffered live output is dropped, not flushed.
    m_pendingTranscriptDeltas.erase(id);
    m_reasoningSummaryIndexes.erase(id);
    if (auto flush = m_transcriptDeltaFlushTasks.find(id); flush != m_transcriptDeltaFlushTasks.end()) {
        flush->second->cancel();
        m_transcriptDeltaFlushTasks.erase(flush);
    }

    if (m_selectedThreadID == id) {
        if (m_openThreadIDs.isEmpty())
            setSelectedThreadID(std::nullopt);
        else
            setSelectedThreadID(m_openThreadIDs.at(std::min(index, m_openThreadIDs.size() - 1)));
    }
    persistOpenTabs();
}

void CodexWorkspace::setDraft(const QString& text, const QString& id)
{
    CodexSessionState state = sessionState(id);
    state.draft = text;
    storeSession(state);
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

// ---- the engine's rise and fall

void CodexWorkspace::setEngineReady(bool ready, const std::optional<QString>& message)
{
    setEngineReadyFlag(ready);
    if (ready) {
        if (!requester || m_isDemoMode)
            return;
        refreshThreads();
        startAutomaticRefresh();
        return;
    }

    if (m_automaticRefreshTask) {
        m_automaticRefreshTask->cancel();
        m_automaticRefreshTask.reset();
    }
    resetUsage();
    QStringList asking;
    for (const auto& [id, state] : m_sessions)
        if (!state.userInputPrompts.empty())
            asking.append(id);
    for (const QString& id : asking)
        changeSession(id, [](CodexSessionState& session) { session.userInputPrompts.clear(); });
    for (const auto& [id, loadID] : std::map(m_transcriptLoadIDs)) {
        m_transcriptLoadIDs.erase(id);
        if (auto timeout = m_transcriptLoadTimeouts.find(id); timeout != m_transcriptLoadTimeouts.end()) {
            timeout->second->cancel();
            m_transcriptLoadTimeouts.erase(timeout);
        }
        CodexSessionState state = sessionState(id);
        state.isLoadingTranscript = false;
        state.isLoadingEarlierTranscript = false;
        state.hasLoadedTranscript = false;
        state.transcriptLoadError = message ? *message : codexWorkspaceErrorText(CodexWorkspaceError::TransportUnavailable);
        storeSession(state);
    }
    for (const auto& [id, state] : std::map(m_sessions)) {
        if (state.turnControl.phase == TurnControlState::Phase::Idle)
            continue;
        CodexSessionState changed = state;
        changed.turnControl = TurnControlState{};
        changed.activityText.reset();
        if (message && !message->isEmpty()) {
            TranscriptEntry entry;
            entry.id = QStringLiteral("engine-") + randomUUIDText();
            entry.kind = TranscriptKind::System;
            entry.title = QStringLiteral("Codex engine disconnected");
            entry.text = *message;
            entry.status = QStringLiteral("interrupted");
            changed.transcript.push_back(entry);
        }
        storeSession(changed);
    }
    for (auto& [id, task] : m_transcriptDeltaFlushTasks)
        task->cancel();
    m_transcriptDeltaFlushTasks.clear();
}

// The readings of the account's allowance belong to the engine that gave them.
void CodexWorkspace::resetUsage()
{
    for (TaskHandle* task : {&m_usageRefreshTask, &m_usageTimeoutTask})
        if (*task) {
            (*task)->cancel();
            task->reset();
        }
    m_usageRequestID.reset();
    m_usageRefreshPending = false;
    updateProperty(this, m_isLoadingUsage, false, &CodexWorkspace::isLoadingUsageChanged);
}

void CodexWorkspace::startAutomaticRefresh()
{
    if (m_automaticRefreshTask)
        return;
    m_automaticRefreshTask = m_scheduler.schedule(this, m_automaticRefreshInterval, [this] { automaticRefreshTick(); });
}

void CodexWorkspace::automaticRefreshTick()
{
    m_automaticRefreshTask = m_scheduler.schedule(this, m_automaticRefreshInterval, [this] { automaticRefreshTick(); });
    if (m_engineReady && !m_isDemoMode)
        refreshThreads();
}

void CodexWorkspace::handleNotification(const QString& method, const JSONValue& params)
{
    if (method == QLatin1String("sarvane/userInputResolved")) {
        const std::optional<QString> threadID = stringAt(params, "threadId");
        const std::optional<QString> requestID = stringAt(params, "requestId");
        if (threadID && requestID)
            removeUserInputPrompt(*requestID, *threadID);
        return;
    }
    if (method.startsWith(QStringLiteral("thread/")))
        refreshThreads();
}

// ---- storing

void CodexWorkspace::storeSession(const CodexSessionState& state)
{
    auto found = m_sessions.find(state.threadID);
    if (found != m_sessions.end() && found->second == state)
        return;
    m_sessions[state.threadID] = state;
    emit sessionChanged(state.threadID);
    emit sessionsChanged();
}

void CodexWorkspace::changeSession(const QString& id, const std::function<void(CodexSessionState&)>& change)
{
    auto found = m_sessions.find(id);
    if (found == m_sessions.end())
        found = m_sessions.emplace(id, newSession(id)).first;
    change(found->second);
    emit sessionChanged(id);
    emit sessionsChanged();
}

void CodexWorkspace::setSearchText(const QString& text) { updateProperty(this, m_searchText, text, &CodexWorkspace::searchTextChanged); }

void CodexWorkspace::setErrorMessage(const std::optional<QString>& message)
{
    updateProperty(this, m_errorMessage, message, &CodexWorkspace::errorMessageChanged);
}

void CodexWorkspace::setThreads(std::vector<CodexThread> threads)
{
    updateProperty(this, m_threads, std::move(threads), &CodexWorkspace::threadsChanged);
}

void CodexWorkspace::setOpenThreadIDs(const QStringList& ids)
{
    updateProperty(this, m_openThreadIDs, ids, &CodexWorkspace::openThreadIDsChanged);
}

void CodexWorkspace::setSelectedThreadID(const std::optional<QString>& id)
{
    updateProperty(this, m_selectedThreadID, id, &CodexWorkspace::selectedThreadIDChanged);
}

void CodexWorkspace::setEngineReadyFlag(bool ready) { updateProperty(this, m_engineReady, ready, &CodexWorkspace::engineReadyChanged); }

// ---- for the views

namespace {

QVariantList toVariantList(const std::vector<CodexThread>& threads)
{
    QVariantList list;
    for (const CodexThread& thread : threads)
        list.append(QVariantMap{{"id", thread.id},
                                {"title", thread.title},
                                {"preview", thread.preview},
                                {"cwd", thread.cwd},
                                {"source", thread.source},
                                {"status", thread.status},
                                {"updatedAt", thread.updatedAt},
                                {"model", thread.model.value_or(QString())},
                                {"reasoningEffort", thread.reasoningEffort.value_or(QString())}});
    return list;
}

} // namespace

QVariantList CodexWorkspace::threadList() const { return toVariantList(m_threads); }

QVariantList CodexWorkspace::filteredThreadList() const { return toVariantList(filteredThreads()); }

} // namespace nimbrel
