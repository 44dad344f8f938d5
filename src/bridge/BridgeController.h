#pragma once

#include "bridge/ActivityLog.h"
#include "bridge/PairingLimits.h"
#include "bridge/PairingRequest.h"
#include "bridge/PendingServerRequest.h"
#include "bridge/PendingUserInputRequests.h"
#include "bridge/SignInState.h"
#include "engine/AppServerClient.h"
#include "engine/CodexInstallation.h"
#include "peer/BridgeMessage.h"
#include "peer/DeviceIdentity.h"
#include "peer/JSONValue.h"
#include "peer/PeerLink.h"
#include "peer/TrustStore.h"
#include "platform/Scheduler.h"
#include "platform/SecretStore.h"
#include "platform/UserDefaults.h"
#include "workspace/CodexWorkspace.h"

#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <map>
#include <memory>
#include <set>

namespace nimbrel {

// The one central object: supervises the engine, pairs and authorises peers, relays their calls
// and the engine's events, keeps the activity log and publishes the state the views show.
// Everything here runs on the main thread.
class BridgeController : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString appServerStatus READ appServerStatus NOTIFY appServerStatusChanged)
    Q_PROPERTY(bool appServerReady READ appServerReady NOTIFY appServerReadyChanged)
    Q_PROPERTY(QString codexInstallSource READ codexInstallSource NOTIFY codexInstallSourceChanged)
    Q_PROPERTY(
        QString codexExecutablePath READ codexExecutablePath NOTIFY codexExecutablePathChanged)
    Q_PROPERTY(QString codexVersion READ codexVersion NOTIFY codexVersionChanged)
    Q_PROPERTY(QString codexAccountStatus READ codexAccountStatus NOTIFY codexAccountStatusChanged)
    Q_PROPERTY(QVariantList pairingRequests READ pairingRequestList NOTIFY pairingRequestsChanged)
    Q_PROPERTY(QVariantList trustedPeers READ trustedPeerList NOTIFY trustedPeersChanged)
    Q_PROPERTY(
        QStringList authorizedPeerNames READ authorizedPeerNames NOTIFY authorizedPeerNamesChanged)
    Q_PROPERTY(QStringList logs READ logs NOTIFY logsChanged)
    Q_PROPERTY(
        bool launchAtLogin READ launchAtLogin WRITE setLaunchAtLogin NOTIFY launchAtLoginChanged)
    // The engine's approval shown on this computer (empty when none), and those waiting behind it.
    Q_PROPERTY(QVariantMap approval READ approvalMap NOTIFY approvalChanged)
    Q_PROPERTY(bool hasApproval READ hasApproval NOTIFY approvalChanged)
    Q_PROPERTY(QVariantList queuedApprovals READ queuedApprovalList NOTIFY queuedApprovalsChanged)
    // Whether the last account check found no signed-in account.
    Q_PROPERTY(bool signInRequired READ signInRequired NOTIFY signInChanged)

public:
    static constexpr int maximumLogLines = ActivityLog::maximumLines;
    // Pairing requests waiting for the user at once; a newer one ends the oldest.
    static constexpr int maximumPairingRequests = 3;
    static inline const QString customCodexPathKey = QStringLiteral("SarvaneCustomCodexPath");
    static inline const QString openTabsKey = QStringLiteral("SarvaneBridgeOpenSessionTabs");
    static constexpr double threadRefreshIntervalSeconds = 4;
    static constexpr double historyRequestTimeoutSeconds = 20;
    // How long a pairing request waits for the user before it is refused.
    static constexpr double pairingRequestLimitSeconds = 120;

    // The engine methods a peer may call; every other one is refused.
    static const std::set<QString>& allowedEngineMethods();

    BridgeController(Scheduler& scheduler, UserDefaults& defaults,
                     PeerLinkSettings linkSettings = PeerLinkSettings::fromEnvironment(),
                     SecretStore secrets = SecretStore(), QObject* parent = nullptr);
    ~BridgeController() override;

    QString appServerStatus() const { return m_appServerStatus; }
    bool appServerReady() const { return m_appServerReady; }
    QString codexInstallSource() const { return m_codexInstallSource; }
    QString codexExecutablePath() const { return m_codexExecutablePath; }
    QString codexVersion() const { return m_codexVersion; }
    QString codexAccountStatus() const { return m_codexAccountStatus; }
    const std::vector<PairingRequest>& pairingRequests() const { return m_pairingRequests; }
    const std::vector<TrustedPeer>& trustedPeers() const { return m_trustedPeers; }
    // The transport names of the authorised connections, in text order.
    QStringList authorizedPeerNames() const;
    bool isAuthorized(const QString& peer) const { return m_authorizedDevices.count(peer) > 0; }
    // Newest first: what concerns paired devices, decisions and the engine, and, bounded apart
    // from it, what strangers did.
    QStringList logs() const { return m_log.lines(); }
    bool launchAtLogin() const { return m_launchAtLogin; }
    bool hasIdentity() const { return m_identity != nullptr; }
    const std::optional<ApprovalPrompt>& approval() const { return m_approval; }
    bool hasApproval() const { return m_approval.has_value(); }
    const std::vector<ApprovalPrompt>& queuedApprovals() const { return m_queuedApprovals; }
    const PendingUserInputRequests& pendingUserInput() const { return m_pendingUserInput; }
    bool signInRequired() const { return m_signInRequired; }
    const SignInState& signInState() const { return m_signIn; }

    // The engine methods whose requests are approvals, and the one that asks the user questions.
    static const QStringList& approvalMethods();
    // Those and the other requests held and offered the same way: more access for a command, and
    // a tool server's request for the user's input.
    static const QStringList& heldMethods();
    static inline const QString permissionsMethod =
        QStringLiteral("item/permissions/requestApproval");
    static inline const QString elicitationMethod = QStringLiteral("mcpServer/elicitation/request");
    static inline const QString questionMethod = QStringLiteral("item/tool/requestUserInput");
    // A peer's change of a session's permission mode, answered by the bridge itself: body
    // {threadId, mode} with mode "full-access", "ask" or "read-only".
    static inline const QString setSessionModeMethod = QStringLiteral("sarvane/setSessionMode");
    // Events: one session's mode changed ({threadId, mode}); every kept mode, on arrival ({modes}).
    static inline const QString sessionModeEventMethod = QStringLiteral("sarvane/sessionMode");
    static inline const QString sessionModesEventMethod = QStringLiteral("sarvane/sessionModes");
    // The engine methods whose params carry a session's permission mode.
    static const QStringList& modeMethods();
    static inline const QString unreadableGrantsText =
        QStringLiteral("Nimbrel Bridge refused this request for more access because it could not "
                       "show everything it would grant.");
    static inline const QString questionClosedText = QStringLiteral(
        "This question has already closed, is being answered, or has an incomplete answer.");

    AppServerClient& appServer() { return *m_appServer; }
    PeerLink& link() { return *m_link; }
    CodexWorkspace& workspace() { return *m_workspace; }
    Scheduler& scheduler() { return m_scheduler; }

    Q_INVOKABLE void startOnce();
    Q_INVOKABLE void useCustomExecutable(const QString& path);
    Q_INVOKABLE void clearCustomExecutable();
    Q_INVOKABLE void restartCodex();
    void setLaunchAtLogin(bool enabled);
    // The user's decision on the shown approval: "accept", "acceptForSession" or "decline".
    // For more access "accept" grants it for the turn and "acceptForSession" for the session; for
    // a tool server's request "accept" says done (an address) or sends the form's defaults.
    Q_INVOKABLE void respondToApproval(const QString& decision);
    // Answers the shown request for input: "accept" with the fields' values as typed (by name),
    // "decline" or "cancel". Empty when answered, else why not (nothing is sent then).
    Q_INVOKABLE QString answerElicitation(const QString& action, const QVariantMap& values);
    // Answers an open question; completion hears whether the answer reached the engine.
    void answerUserInput(const QString& requestID, const JSONValue& response,
                         CodexWorkspace::AnswerCompletion completion);

    // Signing the account in: type "chatgpt" (an address to open here) or "chatgptDeviceCode" (a
    // code to enter at an address, from any device); or an API key, handed to Codex and forgotten.
    Q_INVOKABLE void startSignIn(const QString& type);
    Q_INVOKABLE void signInWithAPIKey(const QString& key);
    Q_INVOKABLE void cancelSignIn();

    // By value: the caller's request may be one of pairingRequests(), which these change.
    void approvePairing(PairingRequest request);
    void rejectPairing(PairingRequest request);
    void forgetPeer(TrustedPeer peer);
    // The request showing a code, and the trusted device with an id, for the views and the console.
    std::optional<PairingRequest> pairingRequestWithCode(const QString& code) const;
    std::optional<PairingRequest> pairingRequestWithID(const QString& id) const;
    std::optional<TrustedPeer> trustedPeerWithID(const QString& deviceID) const;

    void appendLog(const QString& line);
    // A line about a connection that is not authorised (see ActivityLog).
    void appendStrangerLog(const QString& line);
    std::optional<QString> sendToPeer(const BridgeMessage& message, const QString& peer);
    // Sends only while peer's name still belongs to that connection (PeerLink::connectionID): an
    // answer never reaches a later connection that took the name.
    std::optional<QString> sendToConnection(const BridgeMessage& message, const QString& peer,
                                            quint64 connection);
    void broadcast(const BridgeMessage& message);

signals:
    void appServerStatusChanged();
    void appServerReadyChanged();
    void codexInstallSourceChanged();
    void codexExecutablePathChanged();
    void codexVersionChanged();
    void codexAccountStatusChanged();
    void pairingRequestsChanged();
    void trustedPeersChanged();
    void authorizedPeerNamesChanged();
    void logsChanged();
    void launchAtLoginChanged();
    void approvalChanged();
    void queuedApprovalsChanged();
    void pendingUserInputChanged();
    void signInChanged();
    // Codex gave the address where the user signs in with ChatGPT on this computer.
    void signInAddressReady(const QString& url);
    // Each line as it enters the log.
    void logAppended(const QString& line);

private:
    // Finding and supervising the engine.
    void refreshCodexInstallation();
    void restartAfterChoice();
    void handleEngineStatus(const QString& message, bool ready);
    void dropEngineBoundState();
    void broadcastEngineStatus();
    BridgeMessage engineStatusEvent() const;
    void checkAccount();
    void requestSignIn(const QString& type, const JSONValue& params);
    void handleSignInReply(const QString& type, const AppServerClient::RequestResult& outcome);
    void handleSignInCompleted(const JSONValue& params);
    void setSignIn(SignInState state);
    void failSignIn(const QString& type, const QString& error);

    // Pairing and authorisation.
    void handleConnected(const QString& peer);
    void handleDisconnected(const QString& peer);
    void handleData(const QByteArray& data, const QString& peer);
    std::optional<QString> handleHello(const std::optional<JSONValue>& body, const QString& peer);
    void handlePairingRequest(const QString& peer);
    void sendInitialState(const QString& peer);
    void rebuildTrustedPeers();
    void setAuthorized(const QString& peer, bool authorized, const QString& deviceID = {});
    void removePairingRequests(const std::function<bool(const PairingRequest&)>& matches);
    void expirePairingRequest(const QString& id, quint64 connection);
    void refusePairingRequest(const QString& peer, const QString& why);
    void notePairingEnded(const PairingRequest& request);
    void logMalformedMessage(const QString& peer, const QString& error);

    // The relay.
    void handleRequest(const BridgeMessage& message, const QString& peer);
    void handleNotification(const QString& method, const JSONValue& params);
    void setSessionModeFromPeer(const BridgeMessage& message, const QString& peer);
    BridgeMessage sessionModeEvent(const QString& threadID) const;
    BridgeMessage sessionModesEvent() const;
    void handleServerRequest(const JSONValue& id, const QString& method, const JSONValue& params);

    // Approvals and questions.
    void handleServerResponse(const BridgeMessage& message, const QString& peer);
    void answerQuestionFromPeer(const BridgeMessage& message, const QString& peer);
    // Takes the open approval out: whoever takes it answers it, and nobody else can.
    std::optional<PendingServerRequest> takePendingServerRequest(const QString& localID);
    void showNextApproval();
    void removeApprovalPrompt(const QString& localID);
    void withdrawResolvedApproval(const QString& method, const JSONValue& params);
    void setApproval(std::optional<ApprovalPrompt> prompt);
    void finishUserInput(const QString& requestID);
    void expireUserInput(const QString& method, const JSONValue& params);
    QVariantMap approvalMap() const;
    QVariantList queuedApprovalList() const;

    QVariantList pairingRequestList() const;
    QVariantList trustedPeerList() const;
    void setAppServerStatus(const QString& value);
    void setAppServerReady(bool value);
    void setCodexInstallSource(const QString& value);
    void setCodexExecutablePath(const QString& value);
    void setCodexVersion(const QString& value);
    void setCodexAccountStatus(const QString& value);

    Scheduler& m_scheduler;
    UserDefaults& m_defaults;

    QString m_appServerStatus = QStringLiteral("Starting…");
    bool m_appServerReady = false;
    QString m_codexInstallSource = QStringLiteral("Checking…");
    QString m_codexExecutablePath = QStringLiteral("Not found");
    QString m_codexVersion = QStringLiteral("Checking…");
    QString m_codexAccountStatus = QStringLiteral("Waiting for Codex…");
    std::vector<PairingRequest> m_pairingRequests;
    std::vector<TrustedPeer> m_trustedPeers;
    ActivityLog m_log;
    bool m_launchAtLogin = false;

    std::unique_ptr<PeerLink> m_link;
    std::unique_ptr<CodexWorkspace> m_workspace;
    std::shared_ptr<const DeviceIdentity> m_identity;
    TrustStore m_trustStore;
    std::unique_ptr<AppServerClient> m_appServer;
    std::map<QString, HelloPayload> m_localHellos;
    std::map<QString, HelloPayload> m_remoteHellos;
    // The limit of each pairing request, by its id.
    std::map<QString, TaskHandle> m_pairingLimits;
    // The connections that have asked to pair once (by transport name, the link's number for the
    // connection), and each address's recent requests (by its text).
    std::map<QString, quint64> m_askedToPair;
    std::map<QString, PairingHistory> m_pairingHistories;
    // Malformed messages from each connection not authorised, past the first, which was logged.
    std::map<QString, int> m_unloggedMalformed;
    // Each authorised connection, by transport name, and the device it proved to be.
    std::map<QString, QString> m_authorizedDevices;
    // Every open approval, in order of arrival, until someone answers it.
    std::vector<PendingServerRequest> m_pendingServerRequests;
    std::optional<ApprovalPrompt> m_approval;
    std::vector<ApprovalPrompt> m_queuedApprovals; // oldest first
    PendingUserInputRequests m_pendingUserInput;
    bool m_signInRequired = false;
    SignInState m_signIn;
    bool m_started = false;
};

// The sign-in line for the outcome of `account/read`.
QString accountStatusText(const AppServerClient::RequestResult& outcome);

} // namespace nimbrel
