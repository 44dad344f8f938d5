#include "BridgeController.h"

#include "peer/LinkCertificate.h"
#include "platform/HostName.h"
#include "platform/LaunchAtLogin.h"
#include "platform/Property.h"
#include "platform/TextFormatting.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QPointer>

namespace nimbrel {

BridgeController::BridgeController(Scheduler& scheduler, UserDefaults& defaults,
                                   PeerLinkSettings linkSettings, SecretStore secrets,
                                   QObject* parent)
    : QObject(parent)
    , m_scheduler(scheduler)
    , m_defaults(defaults)
    , m_launchAtLogin(LaunchAtLogin::isEnabled())
    , m_link(std::make_unique<PeerLink>(PeerLinkMode::Host, hostDisplayName(), scheduler, nullptr,
                                        linkSettings))
    , m_workspace(std::make_unique<CodexWorkspace>(defaults, scheduler, openTabsKey,
                                                   threadRefreshIntervalSeconds,
                                                   historyRequestTimeoutSeconds))
    , m_trustStore(secrets)
    , m_appServer(std::make_unique<AppServerClient>(scheduler))
{
    auto identity = DeviceIdentity::create(secrets, defaults);
    if (identity.ok()) {
        m_identity = identity.value();
        // The same certificate at every start: a browser that warns about another one meets
        // another machine.
        const auto certificate = keptLinkCertificate(secrets, m_identity->key(), hostDisplayName());
        if (certificate.ok()) {
            m_link->useCertificate(certificate.value());
        } else {
            m_link->useTlsKey(m_identity->key());
            appendLog(
                QStringLiteral("The link's certificate could not be kept, so browsers will warn "
                               "again after a restart: ") +
                certificate.error());
        }
    } else {
        // The engine and the window go on; pairing stays off for this run.
        m_appServerStatus = QStringLiteral("Secure identity unavailable: ") + identity.error();
        m_log.append(QStringLiteral("Keychain identity creation failed. Pairing is disabled until "
                                    "the app has valid signing entitlements."));
    }
    rebuildTrustedPeers();

    // The window's own requests go straight to the engine, with no allow-list.
    QPointer<BridgeController> self(this);
    m_workspace->requester = [self](const QString& method, const JSONValue& params,
                                    AppServerClient::RequestCompletion completion) {
        if (self)
            self->m_appServer->request(method, params, std::move(completion));
    };
    m_workspace->userInputResponder = [self](const QString& requestID, const JSONValue& response,
                                             CodexWorkspace::AnswerCompletion completion) {
        if (self)
            self->answerUserInput(requestID, response, std::move(completion));
        else
            completion(AppServerError::notReady());
    };
    // Every change of a session's mode, from anywhere, reaches every peer at once.
    connect(m_workspace.get(), &CodexWorkspace::sessionModeChanged, this,
            [this](const QString& threadID) {
                if (const std::optional<PermissionMode> mode = m_workspace->sessionMode(threadID))
                    appendLog(QStringLiteral("Session ") + loggableText(threadID) +
                              QStringLiteral(" now runs in ") + permissionModeTitle(*mode) +
                              QStringLiteral(" from its next turn."));
                broadcast(sessionModeEvent(threadID));
            });
    // The link and the client deliver on this thread and die with this object.
    m_link->onConnected = [this](const QString& peer) { handleConnected(peer); };
    m_link->onDisconnected = [this](const QString& peer) { handleDisconnected(peer); };
    m_link->onData = [this](const QByteArray& data, const QString& peer) {
        handleData(data, peer);
    };
    m_link->onSlowPeer = [this](const QString& peer) {
        const QString line =
            loggableText(peer) + QStringLiteral(" was disconnected: it is not keeping up.");
        if (isAuthorized(peer))
            appendLog(line);
        else
            appendStrangerLog(line);
    };
    // While a peer that is reading falls far behind, the engine's events wait for it.
    connect(m_link.get(), &PeerLink::congestedChanged, this,
            [this](bool congested) { m_appServer->setDeliveryPaused(congested); });
    m_appServer->onStatus = [this](const QString& message, bool ready) {
        handleEngineStatus(message, ready);
    };
    m_appServer->onLog = [this](const QString& line) { appendLog(line); };
    m_appServer->onNotification = [this](const QString& method, const JSONValue& params) {
        handleNotification(method, params);
    };
    m_appServer->onServerRequest = [this](const JSONValue& id, const QString& method,
                                          const JSONValue& params) {
        handleServerRequest(id, method, params);
    };
}

BridgeController::~BridgeController() = default;

void BridgeController::startOnce()
{
    if (m_started)
        return;
    m_started = true;
    m_link->start();
    refreshCodexInstallation();
    appendLog(QStringLiteral("Bridge started. Only paired devices can call the Codex allowlist."));
}

// ---- the log

void BridgeController::appendLog(const QString& text)
{
    if (text.isEmpty())
        return;
    // One event is one line, whatever the texts inside it hold.
    const QString line = withEscapedControlCharacters(text);
    m_log.append(line);
    emit logAppended(line);
    emit logsChanged();
}

void BridgeController::appendStrangerLog(const QString& text)
{
    if (text.isEmpty())
        return;
    const QString line = withEscapedControlCharacters(text);
    m_log.appendAboutStranger(line);
    emit logAppended(line);
    emit logsChanged();
}

// ---- finding and restarting Codex

void BridgeController::refreshCodexInstallation()
{
    const std::optional<QString> stored = m_defaults.string(customCodexPathKey);
    const std::optional<CodexInstallation> installation = discoverCodex(stored);
    if (!installation) {
        setCodexInstallSource(stored ? QStringLiteral("Custom path unavailable")
                                     : QStringLiteral("Not installed"));
        setCodexExecutablePath(stored ? *stored : QStringLiteral("Not found"));
        setCodexVersion(QStringLiteral("Unavailable"));
        setCodexAccountStatus(QStringLiteral("Install Codex, then recheck"));
        m_appServer->start(std::nullopt);
        return;
    }
    setCodexInstallSource(codexSourceText(installation->source));
    setCodexExecutablePath(installation->executablePath);
    setCodexVersion(QStringLiteral("Checking…"));
    setCodexAccountStatus(QStringLiteral("Checking sign-in…"));
    const QString askedFor = installation->executablePath;
    readCodexVersion(askedFor, m_scheduler, this, [this, askedFor](std::optional<QString> version) {
        // A late answer for a replaced executable is dropped.
        if (m_codexExecutablePath != askedFor)
            return;
        setCodexVersion(version ? *version : QStringLiteral("Could not run codex --version"));
    });
    m_appServer->start(installation->executablePath);
}

void BridgeController::useCustomExecutable(const QString& path)
{
    const QFileInfo info(path);
    if (!info.isFile() || !info.isExecutable()) {
        setAppServerStatus(QStringLiteral("The selected file is not executable."));
        setAppServerReady(false);
        return;
    }
    m_defaults.setValue(customCodexPathKey, path);
    restartAfterChoice();
}

void BridgeController::clearCustomExecutable()
{
    m_defaults.remove(customCodexPathKey);
    restartAfterChoice();
}

void BridgeController::restartCodex()
{
    restartAfterChoice();
}

void BridgeController::restartAfterChoice()
{
    refreshCodexInstallation();
    appendLog(QStringLiteral("Restarting Codex app-server."));
}

// ---- engine status and events

void BridgeController::handleEngineStatus(const QString& message, bool ready)
{
    if (!ready)
        dropEngineBoundState();
    setAppServerStatus(message);
    setAppServerReady(ready);
    m_workspace->setEngineReady(ready, message);
    appendLog(message);
    broadcastEngineStatus();
    if (ready)
        checkAccount();
    else if (message.contains(QStringLiteral("not found")))
        setCodexAccountStatus(QStringLiteral("Install Codex, then recheck"));
    else
        setCodexAccountStatus(QStringLiteral("Unavailable until the engine is ready"));
}

// What hangs on the live engine goes with it; the engine's open requests are not answered.
void BridgeController::dropEngineBoundState()
{
    m_pendingServerRequests.clear();
    if (!m_queuedApprovals.empty()) {
        m_queuedApprovals.clear();
        emit queuedApprovalsChanged();
    }
    setApproval(std::nullopt);
    // A sign-in under way ends with the engine that was signing in.
    setSignIn({});
    if (!m_pendingUserInput.requests.empty()) {
        m_pendingUserInput.requests.clear();
        emit pendingUserInputChanged();
    }
}

BridgeMessage BridgeController::engineStatusEvent() const
{
    return BridgeMessage{
        bridgeProtocolVersion, BridgeMessageKind::Event, std::nullopt,
        QStringLiteral("sarvane/engineStatus"),
        JSONValue::object({{"ready", m_appServerReady}, {"status", m_appServerStatus}})};
}

void BridgeController::broadcastEngineStatus()
{
    broadcast(engineStatusEvent());
}

// ---- sending to peers

std::optional<QString> BridgeController::sendToPeer(const BridgeMessage& message,
                                                    const QString& peer)
{
    auto encoded = encodeBridgeMessage(message);
    if (!encoded.ok())
        return encoded.error();
    return m_link->send(encoded.value(), peer);
}

std::optional<QString> BridgeController::sendToConnection(const BridgeMessage& message,
                                                          const QString& peer, quint64 connection)
{
    if (connection == 0 || m_link->connectionID(peer) != connection)
        return peer + QStringLiteral(" is not connected.");
    return sendToPeer(message, peer);
}

void BridgeController::broadcast(const BridgeMessage& message)
{
    for (const QString& peer : m_link->connectedPeers())
        if (isAuthorized(peer))
            sendToPeer(message, peer);
}

// ---- launch at login

void BridgeController::setLaunchAtLogin(bool enabled)
{
    const std::optional<QString> error =
        LaunchAtLogin::setEnabled(enabled, QCoreApplication::applicationFilePath());
    const bool state = error ? LaunchAtLogin::isEnabled() : enabled;
    if (m_launchAtLogin != state) {
        m_launchAtLogin = state;
        emit launchAtLoginChanged();
    }
    if (error)
        appendLog(QStringLiteral("Launch at login could not be changed: ") + *error);
}

void BridgeController::checkAccount()
{
    setCodexAccountStatus(QStringLiteral("Checking sign-in…"));
    QPointer<BridgeController> self(this);
    m_appServer->request(
        QStringLiteral("account/read"), JSONValue::object({{"refreshToken", false}}),
        [self](const AppServerClient::RequestResult& outcome) {
            if (!self)
                return;
            self->setCodexAccountStatus(accountStatusText(outcome));
            const JSONValue* account = outcome.ok() ? outcome.value().find("account") : nullptr;
            const bool required = outcome.ok() && (!account || account->isNull());
            if (self->m_signInRequired != required) {
                self->m_signInRequired = required;
                emit self->signInChanged();
            }
        });
}

QString accountStatusText(const AppServerClient::RequestResult& outcome)
{
    if (!outcome.ok())
        return QStringLiteral("Account check failed: ") + outcome.error().text();
    const JSONValue* account = outcome.value().find("account");
    if (!account || account->isNull())
        return QStringLiteral("Sign-in required");
    const JSONValue* type = account->find("type");
    const QString kind =
        type && type->isString() ? *type->stringValue() : QStringLiteral("authenticated");
    const JSONValue* email = account->find("email");
    if (email && email->isString() && !email->stringView()->empty())
        return QStringLiteral("Signed in with %1: %2").arg(kind, *email->stringValue());
    return QStringLiteral("Signed in with %1").arg(kind);
}

// ---- property setters

void BridgeController::setAppServerStatus(const QString& value)
{
    updateProperty(this, m_appServerStatus, value, &BridgeController::appServerStatusChanged);
}
void BridgeController::setAppServerReady(bool value)
{
    updateProperty(this, m_appServerReady, value, &BridgeController::appServerReadyChanged);
}
void BridgeController::setCodexInstallSource(const QString& value)
{
    updateProperty(this, m_codexInstallSource, value, &BridgeController::codexInstallSourceChanged);
}
void BridgeController::setCodexExecutablePath(const QString& value)
{
    updateProperty(this, m_codexExecutablePath, value,
                   &BridgeController::codexExecutablePathChanged);
}
void BridgeController::setCodexVersion(const QString& value)
{
    updateProperty(this, m_codexVersion, value, &BridgeController::codexVersionChanged);
}
void BridgeController::setCodexAccountStatus(const QString& value)
{
    updateProperty(this, m_codexAccountStatus, value, &BridgeController::codexAccountStatusChanged);
}

} // namespace nimbrel
