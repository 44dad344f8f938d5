#pragma once

#include <QObject>
#include <QUrl>
#include <QStringList>
#include <QVariantList>

namespace nimbrel {

class BridgeController;
class UserDefaults;

// What the Bridge Setup page and the Codex setup card show, read from the controller and its
// link: the status cards, the setup rows and actions, pairing requests, trusted devices and the
// newest activity. The page lays these out; every text and condition is decided here. Symbols are
// icon-theme names; colours are names of the window's palette.
class BridgeSetupModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList statusCards READ statusCards NOTIFY changed)
    Q_PROPERTY(bool showsInstallHelp READ showsInstallHelp NOTIFY changed)
    Q_PROPERTY(QString setupTint READ setupTint NOTIFY changed)
    Q_PROPERTY(QVariantList setupRows READ setupRows NOTIFY changed)
    Q_PROPERTY(bool usesCustomExecutable READ usesCustomExecutable NOTIFY customExecutableChanged)
    Q_PROPERTY(bool hasPairingRequests READ hasPairingRequests NOTIFY changed)
    Q_PROPERTY(QVariantList pairingRows READ pairingRows NOTIFY changed)
    Q_PROPERTY(QVariantList trustedRows READ trustedRows NOTIFY changed)
    Q_PROPERTY(QStringList activityLines READ activityLines NOTIFY changed)
    Q_PROPERTY(QString setupDocumentationLink READ setupDocumentationLink CONSTANT)
    Q_PROPERTY(QVariantList installCommands READ installCommands CONSTANT)

public:
    static constexpr int activityLineCount = 10;

    BridgeSetupModel(BridgeController& controller, UserDefaults& defaults,
                     QObject* parent = nullptr);

    // Each card: title, value, symbol and color.
    QVariantList statusCards() const;
    // The page shows install help while the engine is not ready (the Settings window always does).
    bool showsInstallHelp() const;
    QString setupTint() const;
    // Installation, Version, Executable and Account, each with label, value and monospaced.
    QVariantList setupRows() const;
    // Read when the card is drawn, not observed: the card calls refreshCustomExecutable() to draw.
    bool usesCustomExecutable() const { return m_usesCustomExecutable; }
    Q_INVOKABLE void refreshCustomExecutable();
    bool hasPairingRequests() const;
    // Each request: id, name, line and code.
    QVariantList pairingRows() const;
    // Each trusted device: deviceID, name and paired (its "Paired …" line).
    QVariantList trustedRows() const;
    // The newest lines of the log, newest first.
    QStringList activityLines() const;

    QString setupDocumentationLink() const { return QStringLiteral("https://developers.openai.com/codex/cli/"); }
    // Standalone, Homebrew and npm, each with label and command.
    QVariantList installCommands() const;

    // The row's buttons: by the request's id and the device's id.
    Q_INVOKABLE void pair(const QString& requestID);
    Q_INVOKABLE void reject(const QString& requestID);
    Q_INVOKABLE void forget(const QString& deviceID);
    // The file chosen in the dialog.
    Q_INVOKABLE void useExecutable(const QUrl& file);

    // "Paired <date> <time>" for a device paired at pairedAt seconds after 2001-01-01 00:00 UTC.
    static QString pairedText(double pairedAt);
    static QString trustedCountText(std::size_t count);

signals:
    void changed();
    void customExecutableChanged();

private:
    BridgeController& m_controller;
    UserDefaults& m_defaults;
    bool m_usesCustomExecutable = false;
};

} // namespace nimbrel
