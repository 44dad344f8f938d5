#pragma once

#include "platform/Result.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace nimbrel {

// A failure of the secret store: a system error code and, where the system has one, its text.
struct KeychainError {
    int code = 0;
    QString text;

    QString description() const { return text.isEmpty() ? QStringLiteral("Keychain error %1").arg(code) : text; }
    friend bool operator==(const KeychainError&, const KeychainError&) = default;
};

// Secrets as files, one per service and account: <root>/<service>/<account>, holding exactly the
// item's bytes. Folders are private to the user (0700) and items too (0600); every write replaces
// the item atomically. An item that others could read is an error, never silently used.
class SecretStore {
public:
    // $XDG_DATA_HOME/nimbrel-bridge/secrets, with ~/.local/share where XDG_DATA_HOME is unset.
    static QString defaultRoot();

    explicit SecretStore(QString root = defaultRoot());

    // Nothing, with no error, where the item does not exist.
    Result<std::optional<QByteArray>, KeychainError> read(const QString& service, const QString& account) const;
    std::optional<KeychainError> write(const QByteArray& bytes, const QString& service, const QString& account) const;

    QString itemPath(const QString& service, const QString& account) const;

private:
    QString m_root;
};

// The service under which this program keeps its items.
inline const QString keychainService = QStringLiteral("com.halvenworks.Sarvane");

} // namespace nimbrel
