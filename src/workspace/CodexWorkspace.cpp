#include "CodexWorkspace.h"

#include "platform/Property.h"
#include "platform/TextFormatting.h"
#include "workspace/SessionParsers.h"

#include <QLocale>
#include <QPointer>
#include <QVariantMap>

namespace nimbrel {

CodexWorkspace::CodexWorkspace(UserDefaults& defaults, Scheduler& scheduler,
                               QString openTabsStorageKey, double automaticRefreshInterval,
                               double historyRequestTimeout, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_scheduler(scheduler)
    , m_openTabsStorageKey(std::move(openTabsStorageKey))
    , m_automaticRefreshInterval(automaticRefreshInterval)
    , m_historyRequestTimeout(historyRequestTimeout)
{
    loadSessionModes();
    m_openThreadIDs = m_defaults.stringList(m_openTabsStorageKey);
    m_openThreadIDs.removeDuplicates();
    const std::optional<QString> stored =
        m_defaults.string(m_openTabsStorageKey + QStringLiteral(".selected"));
    if (stored && m_openThreadIDs.contains(*stored))
        m_selectedThreadID = stored;
    else if (!m_openThreadIDs.isEmpty())
        m_selectedThreadID = m_openThreadIDs.first();
    connect(this, &CodexWorkspace::threadsChanged, this, &CodexWorkspace::filteredThreadsChanged);
    connect(this, &CodexWorkspace::searchTextChanged, this,
            &CodexWorkspace::filteredThreadsChanged);
}

CodexWorkspace::~CodexWorkspace()
{
    for (TaskHandle* task : {&m_automaticRefreshTask, &m_usageRefreshTask, &m_usageTimeoutTask})
        if (*task)
            (*task)->cancel();
    // Every earlier page asked for is answered once, with nothing when the workspace goes first.
    for (auto& [id, load] : std::exchange(m_transcriptLoads, {})) {
        load.timeout->cancel();
        if (load.earlierCompletion)
            load.earlierCompletion(0);
    }
}

// ---- queries

CodexSessionState CodexWorkspace::sessionState(const QString& id) const
{
    if (const CodexSessionState* found = session(id))
        return *found;
    CodexSessionState state;
    state.threadID = id;
    return state;
}

const CodexSessionState* CodexWorkspace::session(const QString& id) const
{
    const auto found = m_sessions.find(id);
    return found == m_sessions.end() ? nullptr : &found->second;
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
        if (locale.toLower(thread.title).contains(needle) ||
            locale.toLower(thread.cwd).contains(needle))
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

// ---- the engine's rise and fall

void CodexWorkspace::setEngineReady(bool ready, const std::optional<QString>& message)
{
    setEngineReadyFlag(ready);
    if (ready) {
        if (!requester || m_isDemoMode)
            return;
        loadModels();
        refreshThreads();
        refreshUsage();
        startAutomaticRefresh();
        return;
    }

    if (m_automaticRefreshTask) {
        m_automaticRefreshTask->cancel();
        m_automaticRefreshTask.reset();
    }
    resetUsage();
    // In the tour nothing waits on the engine: its sessions, questions and replies stay.
    if (m_isDemoMode)
        return;
    changeSessionsWhere(
        [](const CodexSessionState& session) { return !session.userInputPrompts.empty(); },
        [](CodexSessionState& session) { session.userInputPrompts.clear(); });
    const QString loadError =
        message ? *message : WorkspaceError(CodexWorkspaceError::TransportUnavailable).text();
    QStringList loading;
    for (const auto& [id, load] : m_transcriptLoads)
        loading.append(id);
    for (const QString& id : loading) {
        dropTranscriptLoad(id);
        changeSession(id, [&](CodexSessionState& session) {
            session.isLoadingTranscript = false;
            session.isLoadingEarlierTranscript = false;
            session.hasLoadedTranscript = false;
            session.transcriptLoadError = loadError;
        });
    }
    // Nothing buffered outlives the engine.
    QStringList buffered;
    for (const auto& [id, texts] : m_pendingTranscriptDeltas)
        buffered.append(id);
    for (const QString& id : buffered)
        flushDeltas(id);
    changeSessionsWhere(
        [](const CodexSessionState& session) {
            return session.turnControl.phase != TurnControlState::Phase::Idle;
        },
        [&](CodexSessionState& session) {
            session.turnControl = TurnControlState{};
            session.activityText.reset();
            if (message && !message->isEmpty())
                session.transcript.push_back(
                    TranscriptEntry{QStringLiteral("engine-") + randomUUIDText(),
                                    TranscriptKind::System,
                                    QStringLiteral("Codex engine disconnected"),
                                    *message,
                                    QStringLiteral("interrupted"),
                                    std::nullopt,
                                    {}});
        });
    cancelAllDeltaFlushes();
    // Turns that ended with the engine let go of what no tab shows.
    QStringList held;
    for (const auto& [id, session] : m_sessions)
        if (!m_openThreadIDs.contains(id))
            held.append(id);
    for (const QString& id : held)
        releaseBeyondBound(id);
}

// ---- storing

void CodexWorkspace::changeSession(const QString& id,
                                   const std::function<void(CodexSessionState&)>& change)
{
    auto found = m_sessions.find(id);
    if (found == m_sessions.end())
        found = m_sessions.emplace(id, newSession(id)).first;
    change(found->second);
    emit sessionChanged(id);
}

void CodexWorkspace::changeSessionsWhere(const std::function<bool(const CodexSessionState&)>& which,
                                         const std::function<void(CodexSessionState&)>& change)
{
    QStringList chosen;
    for (const auto& [id, session] : m_sessions)
        if (which(session))
            chosen.append(id);
    for (const QString& id : chosen)
        changeSession(id, change);
}

void CodexWorkspace::setSearchText(const QString& text)
{
    updateProperty(this, m_searchText, text, &CodexWorkspace::searchTextChanged);
}

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

void CodexWorkspace::setEngineReadyFlag(bool ready)
{
    updateProperty(this, m_engineReady, ready, &CodexWorkspace::engineReadyChanged);
}

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

QVariantList CodexWorkspace::threadList() const
{
    return toVariantList(m_threads);
}

QVariantList CodexWorkspace::filteredThreadList() const
{
    return toVariantList(filteredThreads());
}

} // namespace nimbrel
