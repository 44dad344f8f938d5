#include "HelloPayload.h"

#include "peer/OpenSSLKeys.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>

namespace nimbrel {

JSONValue HelloPayload::toBody() const
{
    return JSONValue::object({{"deviceID", deviceID},
                              {"displayName", displayName},
                              {"publicKey", publicKey},
                              {"nonce", nonce},
                              {"signature", signature}});
}

Result<HelloPayload, QString> HelloPayload::fromBody(const JSONValue& body)
{
    if (!body.isObject())
        return QStringLiteral("The hello is not an object.");
    HelloPayload hello;
    const std::pair<const char*, QString*> fields[] = {{"deviceID", &hello.deviceID},
                                                       {"displayName", &hello.displayName},
                                                       {"publicKey", &hello.publicKey},
                                                       {"nonce", &hello.nonce},
                                                       {"signature", &hello.signature}};
    for (const auto& [key, field] : fields) {
        const JSONValue* value = body.find(key);
        if (!value)
            return QStringLiteral("The hello has no %1.").arg(QLatin1String(key));
        if (!value->isString())
            return QStringLiteral("The hello's %1 is not text.").arg(QLatin1String(key));
        *field = *value->stringValue();
    }
    return hello;
}

QByteArray helloSigningInput(const QString& deviceID, const QString& displayName, const QString& publicKey,
                             const QString& nonce)
{
    return (deviceID + QLatin1Char('|') + displayName + QLatin1Char('|') + publicKey + QLatin1Char('|') + nonce).toUtf8();
}

std::optional<QByteArray> decodeStrictBase64(const QString& text)
{
    if (text.size() % 4 != 0)
        return std::nullopt;
    const QByteArray ascii = text.toLatin1();
    if (QString::fromLatin1(ascii) != text)
        return std::nullopt;
    auto decoded = QByteArray::fromBase64Encoding(ascii, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    // Only the canonical form: no stray bits in the last character, padding exactly where due.
    if (decoded.decoded.toBase64() != ascii)
        return std::nullopt;
    return decoded.decoded;
}

bool verify(const HelloPayload& hello)
{
    const std::optional<QByteArray> publicKey = decodeStrictBase64(hello.publicKey);
    if (!publicKey)
        return false;
    const std::optional<QByteArray> signature = decodeStrictBase64(hello.signature);
    if (!signature)
        return false;
    const EvpKey key = publicKeyFromRaw(*publicKey);
    if (!key)
        return false;
    const QByteArray input = helloSigningInput(hello.deviceID, hello.displayName, hello.publicKey, hello.nonce);
    return verifySignature(key.get(), input, *signature);
}

QString pairingCode(const HelloPayload& a, const HelloPayload& b)
{
    std::array<QString, 2> texts{a.publicKey + QLatin1Char('|') + a.nonce, b.publicKey + QLatin1Char('|') + b.nonce};
    std::sort(texts.begin(), texts.end());
    const QByteArray joined = (texts[0] + QLatin1Char('|') + texts[1]).toUtf8();
    const QByteArray digest = sha256(joined);
    const auto byte = [&](int i) { return static_cast<quint32>(static_cast<unsigned char>(digest[i])); };
    const quint32 leading = (byte(0) << 24) | (byte(1) << 16) | (byte(2) << 8) | byte(3);
    return QStringLiteral("%1").arg(leading % 1000000u, 6, 10, QLatin1Char('0'));
}

} // namespace nimbrel
