#pragma once

#include "peer/HelloPayload.h"
#include "peer/OpenSSLKeys.h"
#include "platform/SecretStore.h"
#include "platform/UserDefaults.h"

#include <memory>

namespace nimbrel {

// This computer's long-lived P-256 signing key and its device id.
class DeviceIdentity {
public:
    static inline const QString signingKeyAccount = QStringLiteral("device-signing-key");
    static inline const QString deviceIDKey = QStringLiteral("SarvaneDeviceID");

    // Loads the key from the secret store, or makes and stores a new one; loads or makes the id.
    // Stored key bytes that are no valid key fail creation and are left as they are.
    static Result<std::shared_ptr<const DeviceIdentity>, QString> create(const SecretStore& store, UserDefaults& defaults);

    const QString& deviceID() const { return m_deviceID; }
    QByteArray publicKeyRaw() const { return rawPublicKey(m_key.get()); }
    QString publicKeyBase64() const { return QString::fromLatin1(publicKeyRaw().toBase64()); }
    EVP_PKEY* key() const { return m_key.get(); }

    // A hello with a fresh nonce, signed with this key.
    Result<HelloPayload, QString> makeHello(const QString& displayName) const;

private:
    DeviceIdentity(EvpKey key, QString deviceID) : m_key(std::move(key)), m_deviceID(std::move(deviceID)) {}

    EvpKey m_key;
    QString m_deviceID;
};

} // namespace nimbrel
