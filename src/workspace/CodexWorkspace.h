#pragma once

#include "engine/AppServerClient.h"
#include "platform/Scheduler.h"
#include "platform/UserDefaults.h"
#include "workspace/CodexSessionState.h"

#include <QObject>
#include <QStringList>
#include <QUuid>
#include <QVariantList>

#include <functional>
#include <map>
#include <optional>

namespace nimbrel {

// The model behind the window's Codex sessions: the thread list, the open tabs, each session's
// state, the model catalogue and the usage readings. It reaches the engine only through requester.
// Everything here runs on the main thread.
class CodexWorkspace : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList threads READ threadList NOTIFY threadsChanged)
    Q_PROPERTY(QVariantList filteredThreads READ filteredThreadList NOTIFY filteredThreadsChanged)
    Q_PROPERTY(QStringList openThreadIDs READ openThreadIDs NOTIFY openThreadIDsChanged)
    Q_PROPERTY(QString selectedThreadID READ selectedThreadIDText NOTIFY selectedThreadIDChanged)
    Q_PROPERTY(bool isLoadingModels READ isLoadingModels NOTIFY isLoadingModelsChanged)
    Q_PROPERTY(QString modelLoadError READ modelLoadErrorText NOTIFY modelLoadErrorChanged)
    Q_PROPERTY(QString searchText READ searchText WRITE setSearchText NOTIFY searchTextChanged)
    Q_PROPERTY(QString errorMessage READ errorMessageText WRITE setErrorMessageText NOTIFY errorMessageChanged)
    Q_PROPERTY(bool isDemoMode READ isDemoMode NOTIFY isDemoModeChanged)
    Q_PROPERTY(bool engineReady READ engineReady NOTIFY engineReadyChanged)
    Q_PROPERTY(bool isLoadingUsage READ isLoadingUsage NOTIFY isLoadingUsageChanged)
    Q_PROPERTY(QString usageError READ usageErrorText NOTIFY usageErrorChanged)

public:
    using RequestCompletion = AppServerClient::RequestCompletion;
    using Requester = std::function<void(const QString& method, const JSONValue& params, RequestCompletion completion)>;
    using AnswerCompletion = std::function<void(const std::optional<AppServerError>&)>;
    using UserInputResponder = std::function<void(const QString& requestID, const JSONValue& response, AnswerCompletion completion)>;
    // What became of a submitted answer: nothing once it has reached the engine, else why not.
    using SubmitCompletion = std::function<void(const std::optional<QString>& error)>;

    static constexpr int threadListLimit = 100;
    static constexpr double usageRefreshSpacingSeconds = 60;

    CodexWorkspace(UserDefaults& defaults, Scheduler& scheduler, QString openTabsStorageKey,
                   double automaticRefreshInterval, double historyRequestTimeout, QObject* parent = nullptr);
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
    CodexSessionState sessionState(const QString& id) const;
    std::optional<CodexThread> threadForID(const QString& id) const;
    std::vector<CodexThread> filteredThreads() const;
    std::vector<CodexThread> openThreads() const;

    // ---- operations
    Q_INVOKABLE void refreshThreads();
    void handleThreadList(const AppServerClient::RequestResult& outcome);
    void reconcileOpenTabs();
    Q_INVOKABLE void openThread(const QString& id);
    Q_INVOKABLE void selectThread(const QString& id);
    Q_INVOKABLE void closeTab(const QString& id);
    Q_INVOKABLE void setDraft(const QString& text, const QString& id);
    void persistOpenTabs();
    void setEngineReady(bool ready, const std::optional<QString>& message);
    void startAutomaticRefresh();
    // The one way in for the engine's notifications.
    void handleNotification(const QString& method, const JSONValue& params);

    // ---- the engine's questions, answered from this computer
    void addUserInputPrompt(const UserInputRequest& request);
    void removeUserInputPrompt(const QString& requestID, const QString& threadID);
    void setUserInputDraft(const QString& requestID, const QString& threadID, const QString& questionID,
                           const UserInputAnswerDraft& draft);
    // done, where given, runs once the answer has been sent or has failed; not when nothing was sent.
    void submitUserInput(const QString& requestID, const QString& threadID, SubmitCompletion done = {});
    const UserInputPrompt* userInputPrompt(const QString& requestID, const QString& threadID) const;

    // Stores a session's changed copy; a session comes to exist on its first change.
    void storeSession(const CodexSessionState& state);
    // Changes a session where it lives (making it first where needed) and announces which one.
    void changeSession(const QString& id, const std::function<void(CodexSessionState&)>& change);

signals:
    void threadsChanged();
    void filteredThreadsChanged();
    void openThreadIDsChanged();
    void selectedThreadIDChanged();
    void sessionsChanged();
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

private:
    QVariantList threadList() const;
    QVariantList filteredThreadList() const;
    QString selectedThreadIDText() const { return m_selectedThreadID.value_or(QString()); }
    QString modelLoadErrorText() const { return m_modelLoadError.value_or(QString()); }
    QString errorMessageText() const { return m_errorMessage.value_or(QString()); }
    void setErrorMessageText(const QString& text) { setErrorMessage(text.isEmpty() ? std::nullopt : std::optional(text)); }
    QString usageErrorText() const { return m_usageError.value_or(QString()); }

    void setThreads(std::vector<CodexThread> threads);
    void setOpenThreadIDs(const QStringList& ids);
    void setSelectedThreadID(const std::optional<QString>& id);
    void setEngineReadyFlag(bool ready);
    void adoptThreadSettings(const CodexThread& thread);
    CodexSessionState newSession(const QString& id) const;
    void ensureSession(const QString& id);
    void loadTranscriptIfNeeded(const QString& id);
    void resetUsage();
    void automaticRefreshTick();

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
    std::map<QString, QUuid> m_transcriptLoadIDs;
    std::map<QString, TaskHandle> m_transcriptLoadTimeouts;
    std::map<QString, QString> m_transcriptNextCursors;
    std::map<QString, TranscriptPageSource> m_transcriptPageSources;
    std::map<QString, std::map<QString, QString>> m_pendingTranscriptDeltas;
    std::map<QString, std::map<QString, qint64>> m_reasoningSummaryIndexes;
    std::map<QString, TaskHandle> m_transcriptDeltaFlushTasks;
    TaskHandle m_automaticRefreshTask;
    TaskHandle m_usageRefreshTask;
    TaskHandle m_usageTimeoutTask;
    std::optional<QUuid> m_usageRequestID;
    std::optional<double> m_lastUsageAttempt;
    bool m_usageRefreshPending = false;
    bool m_isRefreshingThreads = false;
    std::map<QString, CodexThread> m_threadCache;

    const QString m_openTabsStorageKey;
    const double m_automaticRefreshInterval;
    const double m_historyRequestTimeout;
};

} // namespace nimbrel
