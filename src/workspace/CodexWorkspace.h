#pragma once

#include "engine/AppServerClient.h"
#include "platform/Scheduler.h"
#include "platform/UserDefaults.h"
#include "workspace/CodexSessionState.h"
#include "workspace/TranscriptPaging.h"
#include "workspace/WorkspaceError.h"

#include <QObject>
#include <QStringList>
#include <QUuid>
#include <QVariantList>

#include <functional>
#include <map>
#include <optional>
#include <set>

namespace nimbrel {

// The model behind the window's Codex sessions: the thread list, the open tabs, each session's
// state, the model catalogue and the usage readings. It reaches the engine only through requester.
// Everything here runs on the main thread. Its capabilities live in files of their own:
// CodexWorkspaceThreads (the list and the tabs), CodexWorkspaceHistory (new sessions and history
// pages), CodexWorkspaceTurns (starting, steering and stopping turns), CodexWorkspaceQuestions,
// CodexWorkspaceModels and CodexWorkspaceDemo (the offline tour).
class CodexWorkspace : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList threads READ threadList NOTIFY threadsChanged)
    Q_PROPERTY(QVariantList filteredThreads READ filteredThreadList NOTIFY filteredThreadsChanged)
    Q_PROPERTY(QStringList openThreadIDs READ openThreadIDs NOTIFY openThreadIDsChanged)
    Q_PROPERTY(QString selectedThreadID READ selectedThreadIDText NOTIFY selectedThreadIDChanged)
    Q_PROPERTY(bool isLoadingModels READ isLoadingModels NOTIFY isLoadingModelsChanged)
    Q_PROPERTY(QString modelLoadError READ modelLoadErrorText NOTIFY modelLoadErrorChanged)
    Q_PROPERTY(QString searchText READ searchText WRITE setSearchText NOTIFY searchTextChanged)
    Q_PROPERTY(QString errorMessage READ errorMessageText WRITE setErrorMessageText NOTIFY
                   errorMessageChanged)
    Q_PROPERTY(bool isDemoMode READ isDemoMode NOTIFY isDemoModeChanged)
    Q_PROPERTY(bool engineReady READ engineReady NOTIFY engineReadyChanged)
    Q_PROPERTY(bool isLoadingUsage READ isLoadingUsage NOTIFY isLoadingUsageChanged)
    Q_PROPERTY(QString usageError READ usageErrorText NOTIFY usageErrorChanged)

public:
    using RequestCompletion = AppServerClient::RequestCompletion;
    // Runs exactly once with the number of entries an earlier page put in front (0 when none).
    using EarlierPageCompletion = std::function<void(int added)>;
    using Requester = std::function<void(const QString& method, const JSONValue& params,
                                         RequestCompletion completion)>;
    using AnswerCompletion = std::function<void(const std::optional<AppServerError>&)>;
    using UserInputResponder = std::function<void(
        const QString& requestID, const JSONValue& response, AnswerCompletion completion)>;
    // What became of a submitted answer: nothing once it has reached the engine, else why not.
    using SubmitCompletion = std::function<void(const std::optional<QString>& error)>;

    static constexpr int threadListLimit = 100;
    // The mode of the last session made here, offered first for the next one.
    static inline const QString lastPermissionModeKey =
        QStringLiteral("NimbrelNewSessionPermissionMode");
    // Each session's permission mode, kept for the sessions changed most recently.
    static inline const QString sessionModesKey = QStringLiteral("NimbrelSessionPermissionModes");
    static constexpr int maximumKeptSessionModes = 2000;
    static constexpr int maximumThreadIDLength = 200;
    static constexpr int itemsPageLimit = 20;
    static constexpr double demoReplyDelaySeconds = 0.65;
    static constexpr double deltaFlushDelaySeconds = 0.15;
    static constexpr double usageRefreshSpacingSeconds = 60;
    static constexpr double usageRefreshDelaySeconds = 2;

    CodexWorkspace(UserDefaults& defaults, Scheduler& scheduler, QString openTabsStorageKey,
                   double automaticRefreshInterval, double historyRequestTimeout,
                   QObject* parent = nullptr);
    ~CodexWorkspace() override;

    Requester requester;
    UserInputResponder userInputResponder;

    // ---- observable state
    const std::vector<CodexThread>& threads() const { return m_threads; }
    const QStringList& openThreadIDs() const { return m_openThreadIDs; }
    const std::optional<QString>& selectedThreadID() const { return m_selectedThreadID; }
    const std::map<QString, CodexSessionState>& sessions() const { return m_sessions; }
    const std::vector<CodexModelOption>& availableModels() const { return m_availableModels; }
    bool isLoadingModels() const { return m_isLoadingModels; }
    const std::optional<QString>& modelLoadError() const { return m_modelLoadError; }
    const QString& searchText() const { return m_searchText; }
    const std::optional<QString>& errorMessage() const { return m_errorMessage; }
    bool isDemoMode() const { return m_isDemoMode; }
    bool engineReady() const { return m_engineReady; }
    const std::optional<CodexAccountUsage>& accountUsage() const { return m_accountUsage; }
    bool isLoadingUsage() const { return m_isLoadingUsage; }
    const std::optional<QString>& usageError() const { return m_usageError; }
    bool isRefreshingThreads() const { return m_isRefreshingThreads; }
    bool hasAutomaticRefresh() const { return m_automaticRefreshTask != nullptr; }

    void setSearchText(const QString& text);
    void setErrorMessage(const std::optional<QString>& message);

    // ---- queries
    // A copy of the session, or a default one where there is none; session() reads in place.
    CodexSessionState sessionState(const QString& id) const;
    const CodexSessionState* session(const QString& id) const;
    std::optional<CodexThread> threadForID(const QString& id) const;
    std::vector<CodexThread> filteredThreads() const;
    std::vector<CodexThread> openThreads() const;

    // ---- operations
    Q_INVOKABLE void refreshThreads();
    void handleThreadList(const AppServerClient::RequestResult& outcome);
    void reconcileOpenTabs();
    // Keeps a thread found by threadForID even once the list no longer holds it.
    void rememberThread(const CodexThread& thread);
    Q_INVOKABLE void openThread(const QString& id);
    Q_INVOKABLE void selectThread(const QString& id);
    Q_INVOKABLE void closeTab(const QString& id);
    Q_INVOKABLE void setDraft(const QString& text, const QString& id);
    void addDraftImage(const DraftImage& image, const QString& id);
    void removeDraftImage(const QString& imageID, const QString& id);
    void persistOpenTabs();

    // ---- session actions: a name, the archive, a copy to go on from
    Q_INVOKABLE void renameThread(const QString& id, const QString& name);
    Q_INVOKABLE void archiveThread(const QString& id);
    Q_INVOKABLE void forkThread(const QString& id);
    // A thread archived here or elsewhere leaves the list, the cache and its tab.
    void forgetThread(const QString& id);
    void setEngineReady(bool ready, const std::optional<QString>& message);
    void startAutomaticRefresh();
    // The one way in for the engine's notifications.
    void handleNotification(const QString& method, const JSONValue& params);
    // Text deltas wait in a buffer per thread and reach the transcript at most every 150 ms.
    void queueDelta(const JSONValue& params, const QString& threadID, TranscriptKind kind,
                    const QString& title, const QString& status);
    void flushDeltas(const QString& threadID);
    void cancelAllDeltaFlushes();
    // One session's buffered live output and reasoning indexes go, unflushed.
    void dropLiveDeltas(const QString& threadID);

    // ---- new sessions and their history
    Q_INVOKABLE void createSession(const QString& cwd, const QString& prompt = {},
                                   const QString& model = {}, const QString& effort = {},
                                   const QString& modeKey = {});
    Q_INVOKABLE void loadTranscript(const QString& id, bool force = false);
    void loadEarlierTranscript(const QString& id, EarlierPageCompletion completion);

    // ---- what stays in memory
    // A session in a tab keeps its newest entries within the bound, and those a view has on
    // screen; what is older goes, and is read back from the engine when a view pages back. A
    // session in no tab keeps only its running turn, and lets that go too once the turn ends.
    const TranscriptBound& transcriptBound() const { return m_transcriptBound; }
    void setTranscriptBound(const TranscriptBound& bound);
    // The newest entries of a session that a view has on screen, kept whatever the bound.
    void setShownDepth(const QString& id, std::size_t entries);

    // ---- turns
    Q_INVOKABLE void send(const QString& text, const QString& threadID);
    // A message with images (data URLs, or absolute paths on this computer) beside its text; either
    // may be empty, not both.
    void send(const QString& text, const QString& threadID, const QStringList& images);
    void startTurn(const QString& text, const QString& threadID, const QStringList& images = {});
    Q_INVOKABLE void stopTurn(const QString& threadID);
    void interruptTurn(const QString& threadID, const QString& turnID);

    // ---- usage readings
    Q_INVOKABLE void refreshUsage();
    void scheduleUsageRefresh();
    void resetUsage();
    void handleTokenUsage(const QString& threadID, const JSONValue& params);

    // ---- the model catalogue
    Q_INVOKABLE void loadModels();
    std::optional<CodexModelOption> defaultModel() const;
    QString effectiveModelID(const QString& threadID) const;
    std::optional<QString> defaultEffort(const QString& modelID) const;
    QString modelDisplayName(const QString& modelID) const;
    std::vector<CodexReasoningEffortOption> supportedEfforts(const QString& modelID) const;
    std::optional<QString> effortDescription(const QString& effort, const QString& modelID) const;
    Q_INVOKABLE void setModel(const QString& modelID, const QString& threadID);
    Q_INVOKABLE void setReasoningEffort(const QString& effort, const QString& threadID);
    // The session's permission mode: chosen here, by a peer, or as Codex reported it where nobody
    // chose; nothing until one of these. Every resume and turn of the session, from the window or
    // a peer, carries it.
    std::optional<PermissionMode> sessionMode(const QString& threadID) const;
    const std::map<QString, PermissionMode>& sessionModes() const { return m_sessionModes; }
    // Records and announces a change (sessionModeChanged), and keeps it across restarts.
    void recordSessionMode(const QString& threadID, PermissionMode mode);
    // After a successful thread/start, thread/fork, thread/resume or turn/start (threadID its
    // param, where it has one): the mode it asked for becomes the session's; where it asked for
    // none and nobody chose, the mode Codex reports in result.
    void noteSessionModeReply(const QString& method, const QString& threadID,
                              const std::optional<PermissionMode>& asked, const JSONValue& result);
    // The header's choice: the mode the session's next resume and turn carry; an unknown key
    // changes nothing.
    Q_INVOKABLE void setPermissionMode(const QString& modeKey, const QString& threadID);
    // The mode last chosen for a new session; full access until one is chosen.
    PermissionMode rememberedPermissionMode() const;

    // ---- the offline tour
    void setDemoMode(bool demo);
    // Lists the tour's sample sessions and opens them in tabs, the finished one selected; sessions
    // already there stay. Only in the tour.
    Q_INVOKABLE void seedDemoSessions();

    // ---- the engine's questions, answered from this computer
    void addUserInputPrompt(const UserInputRequest& request);
    void removeUserInputPrompt(const QString& requestID, const QString& threadID);
    void setUserInputDraft(const QString& requestID, const QString& threadID,
                           const QString& questionID, const UserInputAnswerDraft& draft);
    // done, where given, runs once the answer has been sent or has failed; not when nothing was
    // sent.
    void submitUserInput(const QString& requestID, const QString& threadID,
                         SubmitCompletion done = {});
    const UserInputPrompt* userInputPrompt(const QString& requestID, const QString& threadID) const;

    // The one way to change a session: where it lives (made first where needed, with the model and
    // effort of its listed thread), announcing which session changed.
    void changeSession(const QString& id, const std::function<void(CodexSessionState&)>& change);

signals:
    void threadsChanged();
    void filteredThreadsChanged();
    void openThreadIDsChanged();
    void selectedThreadIDChanged();
    void sessionChanged(const QString& threadID);
    void availableModelsChanged();
    void isLoadingModelsChanged();
    void modelLoadErrorChanged();
    void searchTextChanged();
    void errorMessageChanged();
    void isDemoModeChanged();
    void engineReadyChanged();
    void accountUsageChanged();
    void isLoadingUsageChanged();
    void usageErrorChanged();
    // The session's permission mode changed, from here or elsewhere.
    void sessionModeChanged(const QString& threadID);
    // A turn of this session ended: status is "completed", "failed" or "interrupted".
    void turnEnded(const QString& threadID, const QString& status);

private:
    QVariantList threadList() const;
    QVariantList filteredThreadList() const;
    QString selectedThreadIDText() const { return m_selectedThreadID.value_or(QString()); }
    QString modelLoadErrorText() const { return m_modelLoadError.value_or(QString()); }
    QString errorMessageText() const { return m_errorMessage.value_or(QString()); }
    void setErrorMessageText(const QString& text)
    {
        setErrorMessage(text.isEmpty() ? std::nullopt : std::optional(text));
    }
    QString usageErrorText() const { return m_usageError.value_or(QString()); }

    void changeSessionsWhere(const std::function<bool(const CodexSessionState&)>& which,
                             const std::function<void(CodexSessionState&)>& change);
    void setThreads(std::vector<CodexThread> threads);
    void removeTab(const QString& id); // closes it whatever its session is doing
    void setOpenThreadIDs(const QStringList& ids);
    void setSelectedThreadID(const std::optional<QString>& id);
    void setEngineReadyFlag(bool ready);
    void adoptThreadSettings(const CodexThread& thread);
    CodexSessionState newSession(const QString& id) const;
    void ensureSession(const QString& id);
    void loadTranscriptIfNeeded(const QString& id);
    void automaticRefreshTick();
    void handleModelList(const WorkspaceResult& outcome);
    const CodexModelOption* model(const QString& modelID) const;
    void handleUsageReply(const WorkspaceResult& outcome, const QUuid& attempt);
    void refreshUsageIfDue();
    void setUsageError(const std::optional<QString>& error);

    // History pages: at most one load per thread; a reply counts only while its load is current.
    using PageHandler =
        std::function<void(const WorkspaceResult& outcome, TranscriptPageSource source)>;
    struct TranscriptLoad {
        QUuid loadID;
        TaskHandle timeout;
        PageHandler handler;
        EarlierPageCompletion earlierCompletion; // told 0 when the load is dropped unanswered
    };
    QUuid beginTranscriptLoad(const QString& id, PageHandler handler,
                              EarlierPageCompletion earlierCompletion = {});
    std::optional<TranscriptLoad> takeTranscriptLoad(const QString& id, const QUuid& loadID);
    void dropTranscriptLoad(const QString& id);
    void requestTranscriptPage(const QString& id, const std::optional<QString>& cursor,
                               TranscriptPageSource source, const QUuid& loadID);
    void handleFirstPage(const QString& id, const WorkspaceResult& outcome,
                         TranscriptPageSource source);
    int handleEarlierPage(const QString& id, const WorkspaceResult& outcome,
                          TranscriptPageSource source);
    void storePageInfo(const QString& id, const JSONValue& result, TranscriptPageSource source);
    void releaseBeyondBound(const QString& id);
    void releaseUnshownSession(const QString& id);
    void handleCreatedSession(const WorkspaceResult& outcome, const QString& cwd,
                              const QString& prompt, const QString& model, const QString& effort,
                              PermissionMode mode);

    // Live events.
    void handleTurnStarted(const QString& threadID, const JSONValue& params);
    void handleTurnCompleted(const QString& threadID, const JSONValue& params);
    void handleItem(const QString& threadID, const JSONValue& params, bool completed);
    void handleReasoningPartAdded(const QString& threadID, const JSONValue& params);
    void handleReasoningDelta(const QString& threadID, const JSONValue& params);
    void addToolProgress(const QString& threadID, const QString& itemID, const QString& message);
    void handlePlanUpdated(const JSONValue& params, const QString& threadID);
    void handleTurnDiff(const QString& threadID, const JSONValue& params);
    void setActivityText(const QString& threadID, const std::optional<QString>& text);

    // Turns.
    void resumeAndStart(const QString& text, const QString& threadID, const QStringList& images);
    void steer(const QString& text, const QString& threadID, const QString& turnID,
               const QStringList& images);
    void handleTurnStartReply(const QString& threadID, const WorkspaceResult& outcome);
    void adoptRunningTurn(const QString& threadID, const JSONValue& turnsPage);
    void failTurn(const QString& threadID, const QString& message);
    // Calls requester, or completion with transportUnavailable where there is none.
    void request(const QString& method, const JSONValue& params,
                 std::function<void(const WorkspaceResult&)> completion);

    void loadSessionModes();
    // After a message was accepted (or not): it leaves the composer, with its images, unless the
    // composer was changed since.
    void finishSending(const QString& threadID, const QString& text, const QStringList& images,
                       bool accepted);

    // The offline tour.
    void sendInDemo(const QString& text, const QString& threadID);

    UserDefaults& m_defaults;
    Scheduler& m_scheduler;

    std::vector<CodexThread> m_threads;
    QStringList m_openThreadIDs;
    std::optional<QString> m_selectedThreadID;
    std::map<QString, CodexSessionState> m_sessions;
    std::vector<CodexModelOption> m_availableModels;
    bool m_isLoadingModels = false;
    std::optional<QString> m_modelLoadError;
    QString m_searchText;
    std::optional<QString> m_errorMessage;
    bool m_isDemoMode = false;
    bool m_engineReady = false;
    std::optional<CodexAccountUsage> m_accountUsage;
    bool m_isLoadingUsage = false;
    std::optional<QString> m_usageError;

    // History paging, live deltas and usage readings keep their bookkeeping here.
    std::map<QString, TranscriptLoad> m_transcriptLoads;
    std::map<QString, QString> m_transcriptNextCursors;
    std::map<QString, TranscriptPageSource> m_transcriptPageSources;
    std::map<QString, std::map<QString, QString>> m_pendingTranscriptDeltas;
    std::map<QString, std::map<QString, qint64>> m_reasoningSummaryIndexes;
    std::map<QString, TaskHandle> m_transcriptDeltaFlushTasks;
    TranscriptBound m_transcriptBound;
    std::map<QString, std::size_t> m_shownDepths;
    // Sessions that let entries go: their history is found again from the newest page, passing
    // over pages whose entries are all still held.
    std::set<QString> m_transcriptWalks;
    TaskHandle m_automaticRefreshTask;
    TaskHandle m_usageRefreshTask;
    TaskHandle m_usageTimeoutTask;
    std::optional<QUuid> m_usageRequestID;
    std::optional<double> m_lastUsageAttempt;
    bool m_usageRefreshPending = false;
    bool m_isRefreshingThreads = false;
    std::map<QString, CodexThread> m_threadCache;
    std::map<QString, PermissionMode> m_sessionModes;
    QStringList m_sessionModeOrder; // least recently changed first

    const QString m_openTabsStorageKey;
    const double m_automaticRefreshInterval;
    const double m_historyRequestTimeout;
};

// An item from the engine into a transcript: it ends a matching local echo, or replaces the entry
// of its id (keeping its progress lines, and its phase and text where the item has none), or is
// added.
void upsertEntry(CodexSessionState& session, TranscriptEntry entry);

// The newest line of what Codex writes, trimmed and cut to 140 characters with "…"; nothing for
// no text or a blank last line.
std::optional<QString> progressSummary(const std::optional<QString>& text);

// The activity line while an item of this type is under way.
QString itemActivityText(const QString& type, const JSONValue& item);

} // namespace nimbrel
