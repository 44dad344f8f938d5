#include "BridgeSetupModel.h"

#include "bridge/BridgeController.h"
#include "platform/UserDefaults.h"

#include <QDateTime>
#include <QLocale>
#include <QVariantMap>

namespace nimbrel {

namespace {

QVariantMap card(const char* title, const QString& value, const char* symbol, const char* color)
{
    return QVariantMap{{"title", QString::fromLatin1(title)},
                       {"value", value},
                       {"symbol", QString::fromLatin1(symbol)},
                       {"color", QString::fromLatin1(color)}};
}

QVariantMap row(const char* label, const QString& value, bool monospaced = false)
{
    return QVariantMap{
        {"label", QString::fromLatin1(label)}, {"value", value}, {"monospaced", monospaced}};
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
          &BridgeController::codexAccountStatusChanged, &BridgeController::pairingRequestsChanged,
          &BridgeController::trustedPeersChanged, &BridgeController::logsChanged})
        connect(&m_controller, signal, this, &BridgeSetupModel::changed);
    connect(&m_controller.link(), &PeerLink::statusTextChanged, this, &BridgeSetupModel::changed);
    refreshCustomExecutable();
}

QVariantList BridgeSetupModel::statusCards() const
{
    return {card("CODEX ENGINE", m_controller.appServerStatus(), "system-run",
                 m_controller.appServerReady() ? "green" : "orange"),
            card("LOCAL LINK", m_controller.link().statusText(), "network-wireless", "cyan"),
            card("PAIRED DEVICES", trustedCountText(m_controller.trustedPeers().size()),
                 "security-high", "purple")};
}

bool BridgeSetupModel::showsInstallHelp() const
{
    return !m_controller.appServerReady();
}

QString BridgeSetupModel::setupTint() const
{
    return m_controller.appServerReady() ? QStringLiteral("green") : QStringLiteral("orange");
}

QVariantList BridgeSetupModel::setupRows() const
{
    return {row("Installation", m_controller.codexInstallSource()),
            row("Version", m_controller.codexVersion()),
            row("Executable", m_controller.codexExecutablePath(), true),
            row("Account", m_controller.codexAccountStatus())};
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

QVariantList BridgeSetupModel::pairingRows() const
{
    QVariantList rows;
    for (const PairingRequest& request : m_controller.pairingRequests())
        rows.append(
            QVariantMap{{"id", request.id},
                        {"name", request.remoteHello.displayName},
                        {"line", QStringLiteral("Confirm this code matches the phone or iPad")},
                        {"code", request.code}});
    return rows;
}

QVariantList BridgeSetupModel::trustedRows() const
{
    QVariantList rows;
    for (const TrustedPeer& peer : m_controller.trustedPeers())
        rows.append(QVariantMap{{"deviceID", peer.deviceID},
                                {"name", peer.displayName},
                                {"paired", pairedText(peer.pairedAt)}});
    return rows;
}

QStringList BridgeSetupModel::activityLines() const
{
    return m_controller.logs().mid(0, activityLineCount);
}

QVariantList BridgeSetupModel::installCommands() const
{
    return {QVariantMap{{"label", "Standalone"}, {"command", "curl -fsSL https://chatgpt.com/codex/install.sh | sh"}},
            QVariantMap{{"label", "Homebrew"}, {"command", "brew install --cask codex"}},
            QVariantMap{{"label", "npm"}, {"command", "npm install -g @openai/codex"}}};
}

void BridgeSetupModel::pair(const QString& requestID)
{
    for (const PairingRequest& request : m_controller.pairingRequests())
        if (request.id == requestID)
            return m_controller.approvePairing(request);
}

void BridgeSetupModel::reject(const QString& requestID)
{
    for (const PairingRequest& request : m_controller.pairingRequests())
        if (request.id == requestID)
            return m_controller.rejectPairing(request);
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
    const QDateTime when =
        QDateTime::fromSecsSinceEpoch(static_cast<qint64>(pairedAt + referenceDateOffset))
            .toLocalTime();
    const QLocale locale;
    return QStringLiteral("Paired ") + locale.toString(when.date(), QLocale::ShortFormat) +
           QLatin1Char(' ') + locale.toString(when.time(), QLocale::ShortFormat);
}

QString BridgeSetupModel::trustedCountText(std::size_t count)
{
    return QString::number(count) + QStringLiteral(" trusted");
}

} // namespace nimbrel
