// New sessions, and each session's history read from the engine in pages.
#include "workspace/CodexWorkspace.h"

#include "workspace/SessionParsers.h"
#include "workspace/TranscriptPaging.h"

#include <QPointer>

#include <unordered_set>

namespace nimbrel {

namespace {

std::optional<QString> nonEmpty(const QString& text)
{
    return text.isEmpty() ? std::nullopt : std::optional(text);
}

// The first text present among the candidates.
std::optional<QString> firstPresent(std::initializer_list<std::optional<QString>> candidates)
{
    for (const std::optional<QString>& candidate : candidates)
        if (candidate)
            return candidate;
    return std::nullopt;
}

} // namespace

void CodexWorkspace::request(const QString& method, const JSONValue& params,
                             std::function<void(const WorkspaceResult&)> completion)
{
    if (!requester) {
        completion(WorkspaceError(CodexWorkspaceError::TransportUnavailable));
        return;
    }
    requester(method, params,
              [completion = std::move(completion)](const AppServerClient::RequestResult& outcome) {
                  completion(outcome.ok() ? WorkspaceResult(outcome.value())
                                          : WorkspaceResult(WorkspaceError(outcome.error())));
              });
}

// ---- a new session

void CodexWorkspace::createSession(const QString& cwd, const QString& prompt, const QString& model,
                                   const QString& effort, const QString& modeKey)
{
    const PermissionMode mode = permissionModeFromKey(modeKey).value_or(PermissionMode::FullAccess);
    if (!modeKey.isEmpty())
        m_defaults.setValue(lastPermissionModeKey, permissionModeKey(mode));
    if (m_isDemoMode)
        return;
    const QString directory = cwd.trimmed();
    if (!requester) {
        setErrorMessage(WorkspaceError(CodexWorkspaceError::TransportUnavailable).text());
        return;
    }
    std::vector<std::pair<std::string, JSONValue>> params{
        {"approvalPolicy", approvalPolicyOf(mode)},
        {"sandbox", sandboxModeOf(mode)},
        {"serviceName", "sar_vane"}};
    if (!model.isEmpty())
        params.emplace_back("model", model);
    if (!directory.isEmpty())
        params.emplace_back("cwd", directory);
    QPointer<CodexWorkspace> self(this);
    request(QStringLiteral("thread/start"), JSONValue::object(std::move(params)),
            [self, directory, prompt, model, effort, mode](const WorkspaceResult& outcome) {
                if (self)
                    self->handleCreatedSession(outcome, directory, prompt, model, effort, mode);
            });
}

void CodexWorkspace::handleCreatedSession(const WorkspaceResult& outcome, const QString& cwd,
                                          const QString& prompt, const QString& model,
                                          const QString& effort, PermissionMode mode)
{
    if (!outcome.ok()) {
        setErrorMessage(outcome.error().text());
        return;
    }
    const JSONValue* created = outcome.value().find("thread");
    const std::optional<QString> id =
        created && created->isObject() ? stringAt(*created, "id") : std::nullopt;
    if (!id) {
        setErrorMessage(
            QStringLiteral("Codex returned an unexpected response while creating the session."));
        return;
    }
    const QString task = prompt.trimmed();
    CodexThread thread;
    thread.id = *id;
    thread.title = task.isEmpty() ? QStringLiteral("New Codex session") : task;
    thread.preview = task;
    thread.cwd = cwd;
    thread.source = QStringLiteral("appServer");
    thread.status = QStringLiteral("idle");
    thread.updatedAt = secondsSince1970();
    std::vector<CodexThread> listed{thread};
    for (const CodexThread& other : m_threads)
        if (other.id != *id)
            listed.push_back(other);
    setThreads(std::move(listed));
    m_threadCache[*id] = thread;

    recordSessionMode(*id, mode);
    CodexSessionState fresh;
    fresh.threadID = *id;
    fresh.model = firstPresent(
        {stringAt(*created, "model"), stringAt(outcome.value(), "model"), nonEmpty(model)});
    fresh.reasoningEffort =
        firstPresent({stringAt(*created, "reasoningEffort"),
                      stringAt(outcome.value(), "reasoningEffort"), nonEmpty(effort)});
    if (!fresh.reasoningEffort && fresh.model)
        fresh.reasoningEffort = defaultEffort(*fresh.model);
    // A new session has no history to fetch.
    fresh.hasLoadedTranscript = true;
    changeSession(*id, [&](CodexSessionState& session) { session = fresh; });
    openThread(*id);
    if (!task.isEmpty())
        startTurn(task, *id);
    refreshThreads();
}

// ---- loading history

void CodexWorkspace::loadTranscript(const QString& id, bool force)
{
    if (m_isDemoMode)
        return;
    // A session in a turn that already shows its history is left to the live stream.
    const CodexSessionState* held = session(id);
    if (held && held->turnControl.phase != TurnControlState::Phase::Idle &&
        held->hasLoadedTranscript && !force)
        return;
    m_transcriptNextCursors.erase(id);
    m_transcriptPageSources.erase(id);
    changeSession(id, [](CodexSessionState& session) {
        session.isLoadingTranscript = true;
        session.isLoadingEarlierTranscript = false;
        session.canLoadEarlierTranscript = false;
        session.transcriptLoadError.reset();
    });
    const QUuid loadID = beginTranscriptLoad(
        id, [this, id](const WorkspaceResult& outcome, TranscriptPageSource source) {
            handleFirstPage(id, outcome, source);
        });
    requestTranscriptPage(id, std::nullopt, TranscriptPageSource::Items, loadID);
}

void CodexWorkspace::loadEarlierTranscript(const QString& id, EarlierPageCompletion completion)
{
    const auto cursor = m_transcriptNextCursors.find(id);
    // Entries let go are found again from the newest page on.
    const bool walking = m_transcriptWalks.count(id) > 0;
    const CodexSessionState* held = session(id);
    if ((cursor == m_transcriptNextCursors.end() && !walking) || !held ||
        held->isLoadingTranscript || held->isLoadingEarlierTranscript) {
        completion(0);
        return;
    }
    const std::optional<QString> from =
        cursor == m_transcriptNextCursors.end() ? std::nullopt : std::optional(cursor->second);
    changeSession(id, [](CodexSessionState& session) {
        session.isLoadingEarlierTranscript = true;
        session.transcriptLoadError.reset();
    });
    // Read before the load begins: dropping an older load tells its completion, which may reach
    // back into the paging state.
    const auto found = m_transcriptPageSources.find(id);
    const TranscriptPageSource source =
        found == m_transcriptPageSources.end() ? TranscriptPageSource::Items : found->second;
    const QUuid loadID = beginTranscriptLoad(
        id,
        [this, id, completion](const WorkspaceResult& outcome, TranscriptPageSource used) {
            const int added = handleEarlierPage(id, outcome, used);
            // A page of entries still held is passed over on the way to those let go.
            if (added == 0 && outcome.ok() && m_transcriptWalks.count(id) &&
                m_transcriptNextCursors.count(id))
                return loadEarlierTranscript(id, completion);
            completion(added);
        },
        completion);
    requestTranscriptPage(id, from, source, loadID);
}

QUuid CodexWorkspace::beginTranscriptLoad(const QString& id, PageHandler handler,
                                          EarlierPageCompletion earlierCompletion)
{
    dropTranscriptLoad(id);
    const QUuid loadID = QUuid::createUuid();
    TaskHandle timeout = m_scheduler.schedule(this, m_historyRequestTimeout, [this, id, loadID] {
        if (std::optional<TranscriptLoad> load = takeTranscriptLoad(id, loadID))
            load->handler(WorkspaceError(CodexWorkspaceError::HistoryTimedOut),
                          TranscriptPageSource::Items);
    });
    m_transcriptLoads[id] = TranscriptLoad{loadID, std::move(timeout), std::move(handler),
                                           std::move(earlierCompletion)};
    return loadID;
}

// The load, taken out to be finished, when it is still the current one of the thread.
std::optional<CodexWorkspace::TranscriptLoad>
CodexWorkspace::takeTranscriptLoad(const QString& id, const QUuid& loadID)
{
    const auto found = m_transcriptLoads.find(id);
    if (found == m_transcriptLoads.end() || found->second.loadID != loadID)
        return std::nullopt;
    TranscriptLoad load = std::move(found->second);
    m_transcriptLoads.erase(found);
    load.timeout->cancel();
    return load;
}

// A load given up before its answer: a reply that comes later finds nothing and is dropped.
void CodexWorkspace::dropTranscriptLoad(const QString& id)
{
    const auto found = m_transcriptLoads.find(id);
    if (found == m_transcriptLoads.end())
        return;
    TranscriptLoad load = std::move(found->second);
    m_transcriptLoads.erase(found);
    load.timeout->cancel();
    if (load.earlierCompletion)
        load.earlierCompletion(0);
}

void CodexWorkspace::requestTranscriptPage(const QString& id, const std::optional<QString>& cursor,
                                           TranscriptPageSource source, const QUuid& loadID)
{
    const bool byItems = source == TranscriptPageSource::Items;
    std::vector<std::pair<std::string, JSONValue>> params{
        {"threadId", id}, {"limit", byItems ? itemsPageLimit : 1}, {"sortDirection", "desc"}};
    if (!byItems)
        params.emplace_back("itemsView", "full");
    if (cursor)
        params.emplace_back("cursor", *cursor);
    QPointer<CodexWorkspace> self(this);
    request(
        byItems ? QStringLiteral("thread/items/list") : QStringLiteral("thread/turns/list"),
        JSONValue::object(std::move(params)),
        [self, id, cursor, source, loadID](const WorkspaceResult& outcome) {
            if (!self)
                return;
            const auto current = self->m_transcriptLoads.find(id);
            if (current == self->m_transcriptLoads.end() || current->second.loadID != loadID)
                return;
            // An engine that does not page by items is asked by turns, within the same time limit.
            const bool firstPage = !cursor;
            if (!outcome.ok() && firstPage && source == TranscriptPageSource::Items &&
                shouldFallBackToTurns(outcome.error().text()))
                return self->requestTranscriptPage(id, cursor, TranscriptPageSource::Turns, loadID);
            std::optional<TranscriptLoad> load = self->takeTranscriptLoad(id, loadID);
            // A thread with no user message yet has no turns to page: its history is empty.
            if (!outcome.ok() && firstPage && isUnmaterializedThreadError(outcome.error().text()))
                load->handler(JSONValue::object({{"data", JSONValue::array({})}}), source);
            else
                load->handler(outcome, source);
        });
}

void CodexWorkspace::handleFirstPage(const QString& id, const WorkspaceResult& outcome,
                                     TranscriptPageSource source)
{
    changeSession(id, [&](CodexSessionState& session) {
        session.isLoadingTranscript = false;
        session.hasLoadedTranscript = true;
        if (outcome.ok())
            session.transcript =
                mergeTranscript(entriesFromPage(outcome.value(), source), session.transcript);
        else
            session.transcriptLoadError = outcome.error().text();
    });
    if (outcome.ok())
        storePageInfo(id, outcome.value(), source);
    if (outcome.ok() && source == TranscriptPageSource::Turns)
        adoptRunningTurn(id, outcome.value());
    releaseBeyondBound(id);
}

int CodexWorkspace::handleEarlierPage(const QString& id, const WorkspaceResult& outcome,
                                      TranscriptPageSource source)
{
    int added = 0;
    changeSession(id, [&](CodexSessionState& session) {
        session.isLoadingEarlierTranscript = false;
        if (!outcome.ok()) {
            session.transcriptLoadError =
                QStringLiteral("Earlier messages could not be loaded: ") + outcome.error().text();
            return;
        }
        std::unordered_set<QString> known;
        for (const TranscriptEntry& entry : session.transcript)
            known.insert(entry.id);
        std::vector<TranscriptEntry> older;
        for (TranscriptEntry& entry : entriesFromPage(outcome.value(), source))
            if (!known.count(entry.id))
                older.push_back(std::move(entry));
        added = static_cast<int>(older.size());
        // What a view paged back to stays while the view moves onto it.
        if (added > 0)
            m_shownDepths[id] += older.size();
        session.transcript.insert(session.transcript.begin(),
                                  std::make_move_iterator(older.begin()),
                                  std::make_move_iterator(older.end()));
    });
    if (outcome.ok())
        storePageInfo(id, outcome.value(), source);
    // Past what was let go, pages follow on from each other again.
    if (added > 0)
        m_transcriptWalks.erase(id);
    return added;
}

void CodexWorkspace::storePageInfo(const QString& id, const JSONValue& result,
                                   TranscriptPageSource source)
{
    const std::optional<QString> next = stringAt(result, "nextCursor");
    if (next) {
        m_transcriptNextCursors[id] = *next;
    } else {
        m_transcriptNextCursors.erase(id);
        m_transcriptWalks.erase(id);
    }
    m_transcriptPageSources[id] = source;
    changeSession(id, [&](CodexSessionState& session) {
        session.canLoadEarlierTranscript = next.has_value();
    });
}

// ---- what stays in memory

void CodexWorkspace::setTranscriptBound(const TranscriptBound& bound)
{
    m_transcriptBound = bound;
    QStringList ids;
    for (const auto& [id, session] : m_sessions)
        ids.append(id);
    for (const QString& id : ids)
        releaseBeyondBound(id);
}

void CodexWorkspace::setShownDepth(const QString& id, std::size_t entries)
{
    const auto found = m_shownDepths.find(id);
    const std::size_t before = found == m_shownDepths.end() ? 0 : found->second;
    if (entries == 0)
        m_shownDepths.erase(id);
    else
        m_shownDepths[id] = entries;
    if (entries < before)
        releaseBeyondBound(id);
}

// The oldest entries beyond the bound go, with the changes shown after them; while a page is on
// its way nothing goes, so that what it brings follows on from what is held.
void CodexWorkspace::releaseBeyondBound(const QString& id)
{
    const CodexSessionState* held = session(id);
    if (m_isDemoMode || !held || held->isLoadingTranscript || held->isLoadingEarlierTranscript)
        return;
    if (!m_openThreadIDs.contains(id) && held->turnControl.phase == TurnControlState::Phase::Idle)
        return releaseUnshownSession(id);
    const auto shown = m_shownDepths.find(id);
    const std::size_t drop = entriesBeyondBound(held->transcript, m_transcriptBound,
                                                shown == m_shownDepths.end() ? 0 : shown->second);
    if (drop == 0)
        return;
    m_transcriptNextCursors.erase(id);
    m_transcriptWalks.insert(id);
    changeSession(id, [&](CodexSessionState& session) {
        std::unordered_set<QString> gone;
        for (std::size_t index = 0; index < drop; ++index)
            gone.insert(session.transcript[index].id);
        session.transcript.erase(session.transcript.begin(),
                                 session.transcript.begin() + static_cast<std::ptrdiff_t>(drop));
        std::erase_if(session.turnDiffs, [&](const TurnDiff& diff) {
            return diff.afterEntryID && gone.count(*diff.afterEntryID);
        });
        session.canLoadEarlierTranscript = true;
    });
}

// A session no tab shows and no turn runs in keeps what a catch-up needs: its turn state, its
// questions, its settings and usage. Its history is read again when a tab opens it.
void CodexWorkspace::releaseUnshownSession(const QString& id)
{
    m_transcriptNextCursors.erase(id);
    m_transcriptPageSources.erase(id);
    m_transcriptWalks.erase(id);
    m_shownDepths.erase(id);
    dropLiveDeltas(id);
    const CodexSessionState* held = session(id);
    if (!held ||
        (held->transcript.empty() && held->turnDiffs.empty() && !held->hasLoadedTranscript &&
         !held->canLoadEarlierTranscript && held->draft.isEmpty() && held->draftImages.empty()))
        return;
    changeSession(id, [](CodexSessionState& session) {
        session.transcript = {};
        session.turnDiffs = {};
        session.hasLoadedTranscript = false;
        session.canLoadEarlierTranscript = false;
        session.draft.clear();
        session.draftImages = {};
    });
}

} // namespace nimbrel
