#include "BridgeSetupModel.h"

#include "bridge/BridgeController.h"
#include "peer/PeerLink.h"
#include "platform/DateFormatting.h"
#include "platform/TextFormatting.h"
#include "platform/UserDefaults.h"
#include "ui/setup/CockpitAddresses.h"
#include "ui/setup/NotificationPreference.h"

#include <QUrl>

namespace nimbrel {

namespace {

ListRecord card(const char* title, const QString& value, const char* symbol, const char* color)
{
    return {QString::fromLatin1(title),
            {QString::fromLatin1(title), value, QString::fromLatin1(symbol),
             QString::fromLatin1(color)}};
}

ListRecord row(const char* label, const QString& value, bool monospaced = false)
{
    return {QString::fromLatin1(label), {QString::fromLatin1(label), value, monospaced}};
}

} // namespace

BridgeSetupModel::BridgeSetupModel(BridgeController& controller, UserDefaults& defaults,
                                   QObject* parent)
    : QObject(parent)
    , m_controller(controller)
    , m_defaults(defaults)
{
    for (auto signal :
         {&BridgeController::appServerStatusChanged, &BridgeController::appServerReadyChanged,
          &BridgeController::codexInstallSourceChanged,
          &BridgeController::codexExecutablePathChanged, &BridgeController::codexVersionChanged,
          &BridgeController::codexAccountStatusChanged, &BridgeController::trustedPeersChanged})
        connect(&m_controller, signal, this, &BridgeSetupModel::refreshCards);
    connect(&m_controller.link(), &PeerLink::statusTextChanged, this,
            &BridgeSetupModel::refreshCards);
    connect(&m_controller.workspace(), &CodexWorkspace::isDemoModeChanged, this,
            &BridgeSetupModel::changed);
    connect(&m_controller, &BridgeController::pairingRequestsChanged, this,
            &BridgeSetupModel::refreshPairing);
    connect(&m_controller, &BridgeController::trustedPeersChanged, this,
            &BridgeSetupModel::refreshTrusted);
    connect(&m_controller, &BridgeController::approvalChanged, this,
            &BridgeSetupModel::approvalChanged);
    connect(&m_controller, &BridgeController::logAppended, this, [this] { ++m_linesLogged; });
    connect(&m_controller, &BridgeController::logsChanged, this,
            &BridgeSetupModel::refreshActivity);
    m_linesLogged = m_controller.logs().size();
    m_installCommands.setRecords(
        {{"Standalone", {"Standalone", "curl -fsSL https://chatgpt.com/codex/install.sh | sh"}},
         {"Homebrew", {"Homebrew", "brew install codex"}},
         {"npm", {"npm", "npm install -g @openai/codex"}}});
    m_approvalButtons.setRecords(
        {{"decline", {"Decline", "decline", "destructive"}},
         {"acceptForSession", {"Allow Similar This Session", "acceptForSession", "plain"}},
         {"accept", {"Allow Once", "accept", "prominent"}}});
    connect(&m_controller.link(), &PeerLink::listening, this, &BridgeSetupModel::refreshCockpit);
    refreshCockpit();
    refreshCards();
    refreshPairing();
    refreshTrusted();
    refreshActivity();
    refreshCustomExecutable();
}

QVariantMap BridgeSetupModel::texts()
{
    return {
        {"appLabel", "Nimbrel"},
        {"pagePicker", "View"},
        {"sessionsPage", "Sessions"},
        {"setupPage", "Bridge Setup"},
        {"alertTitle", "Codex"},
        {"title", "Nimbrel Bridge"},
        {"tagline", "This computer is the secure engine. Your phone or tablet is the cockpit."},
        {"launchAtLogin", "Launch at Login"},
        {"restartCodex", "Restart Codex"},
        {"setupHeading", "CODEX SETUP"},
        {"recheck", "Recheck"},
        {"chooseExecutable", "Choose Codex Executable…"},
        {"useAutomaticDetection", "Use Automatic Detection"},
        {"officialSetup", "Official Codex setup"},
        {"chooserTitle", "Choose the Codex executable"},
        {"chooserAccept", "Use Codex"},
        {"installHeading", "Installing Codex on this computer"},
        {"installText",
         "Nimbrel accepts the official standalone installer, the npm package, or the Homebrew "
         "formula. After installing, run codex once in a terminal and sign in, then choose "
         "Recheck."},
        {"pairingHeading", "PAIRING REQUEST"},
        {"reject", "Reject"},
        {"pair", "Pair"},
        {"trustedHeading", "TRUSTED DEVICES"},
        {"cockpitHeading", "BROWSER COCKPIT"},
        {"cockpitHint",
         "Open this address in the browser of a phone or tablet on the same network, "
         "then pair with the code it shows."},
        {"cockpitCertificate", "The browser warns that it cannot verify this computer's "
                               "certificate. Continue only if the certificate it shows has this "
                               "SHA-256 fingerprint, which stays the same when the bridge "
                               "restarts; a warning with another one means another machine:"},
        {"cockpitNoAddress", "No network address found. Connect this computer to a network to "
                             "reach it from a phone."},
        {"noTrustedDevices",
         "Open the BROWSER COCKPIT address in the browser of your phone or tablet on the same "
         "network, then compare the six-digit code it shows with the one shown here."},
        {"forget", "Forget"},
        {"activityHeading", "ACTIVITY"},
        {"settingsTitle", "Nimbrel Bridge Settings"},
        {"showNotifications", "Show notifications"},
        {"showNotificationsHint",
         "Tells you when Codex asks for approval, has a question or finishes a turn while you "
         "look elsewhere."},
        {"settings", "Settings…"},
    };
}

void BridgeSetupModel::refreshCockpit()
{
    const PeerLink& link = m_controller.link();
    QStringList addresses = nimbrel::cockpitAddresses(
        upInterfaceAddresses(), link.listeningAddress(), link.listeningPort());
    if (addresses == m_cockpitAddresses)
        return;
    m_cockpitAddresses = std::move(addresses);
    emit cockpitChanged();
}

QString BridgeSetupModel::cockpitQrSource() const
{
    if (m_cockpitAddresses.isEmpty())
        return {};
    return QStringLiteral("image://qr/") +
           QString::fromLatin1(QUrl::toPercentEncoding(m_cockpitAddresses.first()));
}

QVariantMap BridgeSetupModel::approval() const
{
    const std::optional<ApprovalPrompt>& prompt = m_controller.approval();
    if (!prompt)
        return {};
    const auto shown = [](const std::optional<QString>& text) {
        return withEscapedControlCharactersKeepingLines(text.value_or(QString()));
    };
    return QVariantMap{{"id", prompt->id},
                       {"title", shown(prompt->title)},
                       {"detail", shown(prompt->detail)},
                       {"command", shown(prompt->command)},
                       {"cwd", shown(prompt->cwd)}};
}

QString BridgeSetupModel::certificateFingerprint() const
{
    return nimbrel::certificateFingerprint(m_controller.link().certificate());
}

QVariantMap BridgeSetupModel::symbols()
{
    return {{"terminal", "utilities-terminal"},
            {"refresh", "view-refresh"},
            {"folder", "folder-open"},
            {"checklist", "emblem-default"},
            {"pairing", "pda"},
            {"trusted", "security-high"},
            {"device", "pda"},
            {"activity", "network-transmit-receive"},
            {"approval", "dialog-warning"},
            {"cwd", "folder"},
            {"settings", "preferences-system"},
            {"cockpit", "web-browser"}};
}

void BridgeSetupModel::refreshCards()
{
    m_statusCards.setRecords(
        {card("CODEX ENGINE", m_controller.appServerStatus(), "system-run",
              m_controller.appServerReady() ? "green" : "orange"),
         card("LOCAL LINK", m_controller.link().statusText(), "network-wireless", "cyan"),
         card("PAIRED DEVICES", trustedCountText(m_controller.trustedPeers().size()),
              "security-high", "purple")});
    m_setupRows.setRecords({row("Installation", m_controller.codexInstallSource()),
                            row("Version", m_controller.codexVersion()),
                            row("Executable", m_controller.codexExecutablePath(), true),
                            row("Account", m_controller.codexAccountStatus())});
    emit changed();
}

void BridgeSetupModel::refreshPairing()
{
    QList<ListRecord> rows;
    for (const PairingRequest& request : m_controller.pairingRequests())
        rows.append(
            {request.id,
             {request.id, withEscapedControlCharacters(request.remoteHello.displayName),
              QStringLiteral("Confirm this code matches the phone or tablet"), request.code}});
    m_pairingRows.setRecords(rows);
    emit changed();
}

void BridgeSetupModel::refreshTrusted()
{
    QList<ListRecord> rows;
    for (const TrustedPeer& peer : m_controller.trustedPeers())
        rows.append({peer.deviceID,
                     {peer.deviceID, withEscapedControlCharacters(peer.displayName),
                      pairedText(peer.pairedAt)}});
    m_trustedRows.setRecords(rows);
    emit changed();
}

void BridgeSetupModel::refreshActivity()
{
    QList<ListRecord> rows;
    const QStringList lines = m_controller.logs().mid(0, activityLineCount);
    for (qsizetype i = 0; i < lines.size(); ++i)
        rows.append({QString::number(m_linesLogged - i), {lines.at(i)}});
    m_activityLines.setRecords(rows);
}

bool BridgeSetupModel::showsInstallHelp() const
{
    return !m_controller.appServerReady();
}

QString BridgeSetupModel::setupTint() const
{
    return m_controller.appServerReady() ? QStringLiteral("green") : QStringLiteral("orange");
}

QString BridgeSetupModel::setupSymbol() const
{
    return m_controller.appServerReady() ? QStringLiteral("emblem-default")
                                         : QStringLiteral("dialog-warning");
}

void BridgeSetupModel::refreshCustomExecutable()
{
    const bool uses = m_defaults.string(BridgeController::customCodexPathKey).has_value();
    if (uses == m_usesCustomExecutable)
        return;
    m_usesCustomExecutable = uses;
    emit customExecutableChanged();
}

bool BridgeSetupModel::hasPairingRequests() const
{
    return !m_controller.pairingRequests().empty();
}

bool BridgeSetupModel::hasTrustedDevices() const
{
    return !m_controller.trustedPeers().empty();
}

void BridgeSetupModel::pair(const QString& requestID)
{
    if (std::optional<PairingRequest> request = m_controller.pairingRequestWithID(requestID))
        m_controller.approvePairing(std::move(*request));
}

void BridgeSetupModel::reject(const QString& requestID)
{
    if (std::optional<PairingRequest> request = m_controller.pairingRequestWithID(requestID))
        m_controller.rejectPairing(std::move(*request));
}

void BridgeSetupModel::forget(const QString& deviceID)
{
    if (const std::optional<TrustedPeer> peer = m_controller.trustedPeerWithID(deviceID))
        m_controller.forgetPeer(*peer);
}

void BridgeSetupModel::useExecutable(const QUrl& file)
{
    if (file.isLocalFile())
        m_controller.useCustomExecutable(file.toLocalFile());
}

QString BridgeSetupModel::pairedText(double pairedAt)
{
    return QStringLiteral("Paired ") +
           formatAbbreviatedDateShortTime(pairedAt + referenceDateOffset);
}

QString BridgeSetupModel::trustedCountText(std::size_t count)
{
    return QString::number(count) + QStringLiteral(" trusted");
}

} // namespace nimbrel

namespace nimbrel {

bool BridgeSetupModel::showNotifications() const
{
    return NotificationPreference::enabled(m_defaults);
}

void BridgeSetupModel::setShowNotifications(bool shown)
{
    if (shown == showNotifications())
        return;
    m_defaults.setValue(NotificationPreference::key, shown);
    emit showNotificationsChanged();
}

} // namespace nimbrel
