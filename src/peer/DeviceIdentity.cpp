#include "DeviceIdentity.h"

#include <QUuid>

namespace nimbrel {

Result<std::shared_ptr<const DeviceIdentity>, QString> DeviceIdentity::create(const SecretStore& store, UserDefaults& defaults)
{
    auto stored = store.read(keychainService, signingKeyAccount);
    if (!stored.ok())
        return stored.error().description();
    EvpKey key;
    if (stored.value()) {
        key = privateKeyFromRaw(*stored.value());
        if (!key)
            return QStringLiteral("The stored signing key is not a valid P-256 private key.");
    } else {
        key = generatePrivateKey();
        if (!key)
            return QStringLiteral("Could not make a signing key: ") + openSSLErrorText();
        if (auto error = store.write(rawPrivateKey(key.get()), keychainService, signingKeyAccount))
            return error->description();
    }
    std::optional<QString> deviceID = defaults.string(deviceIDKey);
    if (!deviceID) {
        deviceID = QUuid::createUuid().toString(QUuid::WithoutBraces).toLower();
        defaults.setValue(deviceIDKey, *deviceID);
    }
    return std::shared_ptr<const DeviceIdentity>(new DeviceIdentity(std::move(key), *deviceID));
}

Result<HelloPayload, QString> DeviceIdentity::makeHello(const QString& displayName) const
{
    const QByteArray nonce = secureRandomBytes(24);
    if (nonce.size() != 24)
        return QStringLiteral("Could not draw a nonce: ") + openSSLErrorText();
    HelloPayload hello;
    hello.deviceID = m_deviceID;
    hello.displayName = displayName;
    hello.publicKey = publicKeyBase64();
    hello.nonce = QString::fromLatin1(nonce.toBase64());
    QString error;
    const auto signature = signDER(m_key.get(), helloSigningInput(hello.deviceID, displayName, hello.publicKey, hello.nonce), &error);
    if (!signature)
        return error;
    hello.signature = QString::fromLatin1(signature->toBase64());
    return hello;
}

} // namespace nimbrel
