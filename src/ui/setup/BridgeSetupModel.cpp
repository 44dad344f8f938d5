#include "BridgeSetupModel.h"

#include "bridge/BridgeController.h"
#include "peer/PeerLink.h"
#include "platform/DateFormatting.h"
#include "platform/TextFormatting.h"
#include "platform/UserDefaults.h"
#include "ui/setup/CockpitAddresses.h"
#include "ui/setup/NotificationPreference.h"

#include "ui/sessions/configuration/SessionConfiguration.h"

#include <QDesktopServices>
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
    connect(&m_controller, &BridgeController::approvalChanged, this, [this] {
        m_showsAllAccess = false;
        emit approvalChanged();
    });
    connect(&m_controller, &BridgeController::approvalChanged, this,
            &BridgeSetupModel::refreshApprovalButtons);
    connect(&m_controller, &BridgeController::signInChanged, this,
            &BridgeSetupModel::signInChanged);
    openAddress = [](const QUrl& url) { QDesktopServices::openUrl(url); };
    connect(&m_controller, &BridgeController::signInAddressReady, this, [this](const QString& url) {
        if (openAddress)
            openAddress(QUrl(url));
    });
    m_permissionModes.setRecords(permissionModeRecords(PermissionMode::FullAccess));
    connect(&m_controller, &BridgeController::logAppended, this, [this] { ++m_linesLogged; });
    connect(&m_controller, &BridgeController::logsChanged, this,
            &BridgeSetupModel::refreshActivity);
    m_linesLogged = m_controller.logs().size();
    m_installCommands.setRecords(
        {{"Standalone", {"Standalone", "curl -fsSL https://chatgpt.com/codex/install.sh | sh"}},
         {"Homebrew", {"Homebrew", "brew install codex"}},
         {"npm", {"npm", "npm install -g @openai/codex"}}});
    refreshApprovalButtons();
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
         "formula. After installing, choose Recheck, then sign in here."},
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
        {"permissionModesHeading", "PERMISSION MODES"},
        {"permissionModesNote",
         "A new session starts in the mode chosen last for one (Full access until you choose "
         "another). The mode in a session's header changes it from the next turn on."},
        {"signInHeading", "Sign in to Codex"},
        {"signInChatGPT", "Sign in with ChatGPT"},
        {"signInCode", "Sign in with a Code"},
        {"signInAPIKey", "Use an API Key"},
        {"apiKeyPlaceholder", "API key"},
        {"apiKeySubmit", "Sign In"},
        {"apiKeyNote",
         "The key goes to Codex, which keeps it. Nimbrel neither stores nor shows it."},
        {"cancelSignIn", "Cancel"},
        {"copyCode", "Copy Code"},
        {"openAddress", "Open Address"},
        {"formRequired", "Required"},
        {"formNoChoice", "Not chosen"},
        {"addressDone", "I Have Finished There"},
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

namespace {

QString promptKind(const ApprovalPrompt& prompt)
{
    if (prompt.elicitation)
        return prompt.elicitation->isURL ? QStringLiteral("address") : QStringLiteral("form");
    if (prompt.method == BridgeController::permissionsMethod)
        return QStringLiteral("permissions");
    return QStringLiteral("approval");
}

QString fieldKindText(ElicitationField::Kind kind)
{
    switch (kind) {
    case ElicitationField::Kind::Text:
        return QStringLiteral("text");
    case ElicitationField::Kind::Number:
    case ElicitationField::Kind::Integer:
        return QStringLiteral("number");
    case ElicitationField::Kind::Boolean:
        return QStringLiteral("boolean");
    case ElicitationField::Kind::Choice:
        return QStringLiteral("choice");
    case ElicitationField::Kind::Choices:
        return QStringLiteral("choices");
    }
    return {};
}

// The default as the field's control starts: a text, "true"/"false", or the chosen values.
QVariant fieldStartValue(const ElicitationField& field)
{
    const JSONValue& given = field.defaultValue;
    if (field.kind == ElicitationField::Kind::Boolean)
        return given.boolValue().value_or(false);
    if (field.kind == ElicitationField::Kind::Choices) {
        QStringList chosen;
        for (const JSONValue& item : given.items())
            if (item.isString())
                chosen.append(*item.stringValue());
        return chosen;
    }
    return given.isNull() ? QString() : given.textForm();
}

} // namespace

QVariantMap BridgeSetupModel::approval() const
{
    const std::optional<ApprovalPrompt>& prompt = m_controller.approval();
    if (!prompt)
        return {};
    const auto shown = [](const std::optional<QString>& text) {
        return withEscapedControlCharactersKeepingLines(text.value_or(QString()));
    };
    const auto shownAll = [&](const QStringList& texts) {
        QStringList escaped;
        for (const QString& text : texts)
            escaped.append(shown(text));
        return escaped;
    };
    // A long list shows its first lines and says how many more there are, until asked for all.
    const QStringList shownAccess =
        m_showsAllAccess ? prompt->access : prompt->access.mid(0, shownGrantLines);
    const qsizetype hidden = prompt->access.size() - shownAccess.size();
    QVariantList fields;
    QString url;
    if (prompt->elicitation) {
        url = shown(prompt->elicitation->url);
        for (const ElicitationField& field : prompt->elicitation->fields)
            fields.append(QVariantMap{{"name", field.name},
                                      {"kind", fieldKindText(field.kind)},
                                      {"title", shown(field.title)},
                                      {"description", shown(field.description)},
                                      {"required", field.required},
                                      {"value", fieldStartValue(field)},
                                      {"options", field.options},
                                      {"optionTitles", shownAll(field.optionTitles)}});
    }
    return QVariantMap{
        {"id", prompt->id},
        {"kind", promptKind(*prompt)},
        {"title", shown(prompt->title)},
        {"detail", shown(prompt->detail)},
        {"command", shown(prompt->command)},
        {"cwd", shown(prompt->cwd)},
        {"access", shown(shownAccess.join(QLatin1Char('\n')))},
        {"accessMore", hidden > 0 ? QStringLiteral("and %1 more").arg(hidden) : QString()},
        {"accessToggle", prompt->access.size() <= shownGrantLines ? QString()
                         : m_showsAllAccess
                             ? QStringLiteral("Show fewer")
                             : QStringLiteral("Show all %1").arg(prompt->access.size())},
        {"url", url},
        {"fields", fields}};
}

void BridgeSetupModel::toggleAllAccess()
{
    m_showsAllAccess = !m_showsAllAccess;
    emit approvalChanged();
}

void BridgeSetupModel::refreshApprovalButtons()
{
    const std::optional<ApprovalPrompt>& prompt = m_controller.approval();
    const QString kind = prompt ? promptKind(*prompt) : QStringLiteral("approval");
    if (kind == QLatin1String("form") || kind == QLatin1String("address"))
        m_approvalButtons.setRecords(
            {{"cancel", {"Cancel", "cancel", "plain"}},
             {"decline", {"Decline", "decline", "destructive"}},
             {"accept",
              {kind == QLatin1String("form") ? "Send" : "I Have Finished There", "accept",
               "prominent"}}});
    else if (kind == QLatin1String("permissions"))
        m_approvalButtons.setRecords(
            {{"decline", {"Decline", "decline", "destructive"}},
             {"acceptForSession", {"Allow for This Session", "acceptForSession", "plain"}},
             {"accept", {"Allow for This Turn", "accept", "prominent"}}});
    else
        m_approvalButtons.setRecords(
            {{"decline", {"Decline", "decline", "destructive"}},
             {"acceptForSession", {"Allow Similar This Session", "acceptForSession", "plain"}},
             {"accept", {"Allow Once", "accept", "prominent"}}});
}

QString BridgeSetupModel::answerForm(const QString& action, const QVariantMap& values)
{
    return m_controller.answerElicitation(action, values);
}

void BridgeSetupModel::openRequestedAddress()
{
    const std::optional<ApprovalPrompt>& prompt = m_controller.approval();
    if (prompt && prompt->elicitation && prompt->elicitation->isURL && openAddress)
        openAddress(QUrl(prompt->elicitation->url));
}

void BridgeSetupModel::openSignInAddress()
{
    const QString url = m_controller.signInState().url;
    if (!url.isEmpty() && openAddress)
        openAddress(QUrl(url));
}

bool BridgeSetupModel::showsSignIn() const
{
    return m_controller.signInRequired() ||
           m_controller.signInState().phase != SignInState::Phase::Idle;
}

QVariantMap BridgeSetupModel::signIn() const
{
    const SignInState& state = m_controller.signInState();
    QString text;
    switch (state.phase) {
    case SignInState::Phase::Idle:
        text = QStringLiteral("Codex needs an account before it can work. Choose how to sign in.");
        break;
    case SignInState::Phase::Starting:
        text = QStringLiteral("Asking Codex…");
        break;
    case SignInState::Phase::Waiting:
        text = state.type == QLatin1String("chatgpt")
                   ? QStringLiteral("Finish signing in in the browser that opened. If none "
                                    "opened, open this address:")
               : state.type == QLatin1String("chatgptDeviceCode")
                   ? QStringLiteral("On any device, open this address and enter the code:")
                   : QStringLiteral("Waiting for Codex to finish signing in…");
        break;
    case SignInState::Phase::Failed:
        text = QStringLiteral("Signing in failed: ") + state.error;
        break;
    }
    static const char* const phases[] = {"idle", "starting", "waiting", "failed"};
    return QVariantMap{{"phase", phases[static_cast<int>(state.phase)]},
                       {"type", state.type},
                       {"url", withEscapedControlCharacters(state.url)},
                       {"code", withEscapedControlCharacters(state.code)},
                       {"text", withEscapedControlCharactersKeepingLines(text)}};
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
