#pragma once

#include "ui/common/RecordListModel.h"

#include <QObject>
#include <QStringList>
#include <QUrl>
#include <QVariantMap>

#include <functional>

namespace nimbrel {

class BridgeController;
class UserDefaults;

// What the Bridge Setup page, the Codex setup card and the Settings window show, read from the
// controller and its link: the status cards, the setup rows and actions, pairing requests, trusted
// devices and the newest activity. The views lay these out; every text and condition is decided
// here. Symbols are icon-theme names; colours are names of the window's palette. Lists are
// row-level models, so a new log line or request touches only its own row. Names and texts from
// outside are shown with their control characters escaped.
class BridgeSetupModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(QVariantMap symbols READ symbols CONSTANT)
    Q_PROPERTY(nimbrel::RecordListModel* statusCards READ statusCards CONSTANT)
    Q_PROPERTY(bool showsInstallHelp READ showsInstallHelp NOTIFY changed)
    Q_PROPERTY(QString setupTint READ setupTint NOTIFY changed)
    Q_PROPERTY(QString setupSymbol READ setupSymbol NOTIFY changed)
    Q_PROPERTY(nimbrel::RecordListModel* setupRows READ setupRows CONSTANT)
    Q_PROPERTY(bool usesCustomExecutable READ usesCustomExecutable NOTIFY customExecutableChanged)
    Q_PROPERTY(bool hasPairingRequests READ hasPairingRequests NOTIFY changed)
    Q_PROPERTY(nimbrel::RecordListModel* pairingRows READ pairingRows CONSTANT)
    Q_PROPERTY(bool hasTrustedDevices READ hasTrustedDevices NOTIFY changed)
    Q_PROPERTY(nimbrel::RecordListModel* trustedRows READ trustedRows CONSTANT)
    Q_PROPERTY(nimbrel::RecordListModel* activityLines READ activityLines CONSTANT)
    Q_PROPERTY(QString setupDocumentationLink READ setupDocumentationLink CONSTANT)
    Q_PROPERTY(nimbrel::RecordListModel* installCommands READ installCommands CONSTANT)
    Q_PROPERTY(nimbrel::RecordListModel* approvalButtons READ approvalButtons CONSTANT)
    Q_PROPERTY(QVariantMap approval READ approval NOTIFY approvalChanged)
    Q_PROPERTY(QStringList cockpitAddresses READ cockpitAddresses NOTIFY cockpitChanged)
    Q_PROPERTY(QString cockpitQrSource READ cockpitQrSource NOTIFY cockpitChanged)
    Q_PROPERTY(QString certificateFingerprint READ certificateFingerprint NOTIFY cockpitChanged)
    Q_PROPERTY(bool showNotifications READ showNotifications WRITE setShowNotifications NOTIFY
                   showNotificationsChanged)
    Q_PROPERTY(nimbrel::RecordListModel* permissionModes READ permissionModes CONSTANT)
    Q_PROPERTY(bool showsSignIn READ showsSignIn NOTIFY signInChanged)
    Q_PROPERTY(QVariantMap signIn READ signIn NOTIFY signInChanged)

public:
    static constexpr int activityLineCount = 10;

    BridgeSetupModel(BridgeController& controller, UserDefaults& defaults,
                     QObject* parent = nullptr);

    // The fixed texts of the page, the card, the sheet and the windows, by name.
    static QVariantMap texts();
    // The icon-theme name of each symbol the views show, by name.
    static QVariantMap symbols();

    // What the Sessions page says until it lists sessions; the offline tour says it is one.

    // Roles title, value, symbol and color.
    RecordListModel* statusCards() { return &m_statusCards; }
    // The page shows install help while the engine is not ready (the Settings window always does).
    bool showsInstallHelp() const;
    QString setupTint() const;
    // The heading's symbol: a check while Codex is ready, a warning otherwise, as its tint says.
    QString setupSymbol() const;
    // Installation, Version, Executable and Account; roles label, value and monospaced.
    RecordListModel* setupRows() { return &m_setupRows; }
    // Read when the card is drawn, not observed: the card calls refreshCustomExecutable() to draw.
    bool usesCustomExecutable() const { return m_usesCustomExecutable; }
    Q_INVOKABLE void refreshCustomExecutable();
    bool hasPairingRequests() const;
    // Roles requestID, name, line and code.
    RecordListModel* pairingRows() { return &m_pairingRows; }
    bool hasTrustedDevices() const;
    // Roles deviceID, name and paired (its "Paired …" line).
    RecordListModel* trustedRows() { return &m_trustedRows; }
    // The newest lines of the log, newest first; role line.
    RecordListModel* activityLines() { return &m_activityLines; }

    static QString setupDocumentationLink()
    {
        return QStringLiteral("https://developers.openai.com/codex/cli/");
    }
    // Standalone, Homebrew and npm; roles label and command.
    RecordListModel* installCommands() { return &m_installCommands; }

    // The approval sheet's buttons in their order for what it shows; roles label, decision and
    // tone (destructive, plain or prominent).
    RecordListModel* approvalButtons() { return &m_approvalButtons; }
    // The approval the sheet shows (empty when none): id, kind ("approval", "permissions",
    // "form" or "address"), title, detail, command, cwd, access (the first lines of what is
    // granted, or all once asked), accessMore ("and N more" while some are hidden), accessToggle
    // (the label of the control that shows them all or fewer; empty for a short list), url and
    // fields (name,
    // kind, title, description, required, value, options, optionTitles), the engine's texts with
    // their controls escaped, line breaks kept.
    QVariantMap approval() const;
    // Shows every line of what a request for more access would grant, or its first lines again.
    Q_INVOKABLE void toggleAllAccess();
    // The form's answer (values by field name, as text); empty when sent, else why not.
    Q_INVOKABLE QString answerForm(const QString& action, const QVariantMap& values);
    // The user's click on the address a tool server asks them to visit.
    Q_INVOKABLE void openRequestedAddress();
    // The user's click on the address the sign-in shows.
    Q_INVOKABLE void openSignInAddress();

    // The modes as the Settings describe them: roles id, label, summary, colour and selected.
    RecordListModel* permissionModes() { return &m_permissionModes; }

    // Whether the card offers the ways to sign in: sign-in required, or an attempt under way or
    // failed. What the attempt shows: phase (idle, starting, waiting, failed), type, url, code and
    // text (what to do now, or Codex's failure).
    bool showsSignIn() const;
    QVariantMap signIn() const;
    // The address of a ChatGPT sign-in, opened once Codex gives it, and any other address the
    // user clicks; the system browser unless replaced (tests record it instead).
    std::function<void(const QUrl&)> openAddress;

    // Where a phone's browser opens the cockpit, one address per network address of this machine;
    // the QR code of the first (an image source, empty without an address); and the SHA-256
    // fingerprint of the link's certificate. Read again when the page asks, as networks change.
    QStringList cockpitAddresses() const { return m_cockpitAddresses; }
    QString cockpitQrSource() const;
    QString certificateFingerprint() const;
    Q_INVOKABLE void refreshCockpit();

    // The Settings switch: whether the desktop is told when Codex needs the user.
    bool showNotifications() const;
    void setShowNotifications(bool shown);

    // The row's buttons: by the request's id and the device's id.
    Q_INVOKABLE void pair(const QString& requestID);
    Q_INVOKABLE void reject(const QString& requestID);
    Q_INVOKABLE void forget(const QString& deviceID);
    // The file chosen in the dialog.
    Q_INVOKABLE void useExecutable(const QUrl& file);

    // "Paired <abbreviated date>, <short time>" for a device paired at pairedAt seconds after
    // 2001-01-01 00:00 UTC.
    static QString pairedText(double pairedAt);
    static QString trustedCountText(std::size_t count);

signals:
    void changed();
    void customExecutableChanged();
    void showNotificationsChanged();
    void cockpitChanged();
    void approvalChanged();
    void signInChanged();

private:
    void refreshCards();
    void refreshPairing();
    void refreshTrusted();
    void refreshActivity();
    void refreshApprovalButtons();

    BridgeController& m_controller;
    UserDefaults& m_defaults;
    bool m_usesCustomExecutable = false;
    QStringList m_cockpitAddresses;
    // Lines the log has taken so far: the key of a line is its place in that sequence.
    qint64 m_linesLogged = 0;
    RecordListModel m_statusCards{{"title", "value", "symbol", "color"}};
    RecordListModel m_setupRows{{"label", "value", "monospaced"}};
    RecordListModel m_pairingRows{{"requestID", "name", "line", "code"}};
    RecordListModel m_trustedRows{{"deviceID", "name", "paired"}};
    RecordListModel m_activityLines{{"line"}};
    RecordListModel m_installCommands{{"label", "command"}};
    RecordListModel m_approvalButtons{{"label", "decision", "tone"}};
    bool m_showsAllAccess = false;
    RecordListModel m_permissionModes{{"id", "label", "summary", "colour", "selected"}};
};

} // namespace nimbrel
