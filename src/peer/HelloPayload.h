#pragma once

#include "peer/JSONValue.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace nimbrel {

// The signed greeting each side sends on every connection.
struct HelloPayload {
    QString deviceID;
    QString displayName;
    QString publicKey; // standard Base64 of the 64-byte raw P-256 public key (X then Y)
    QString nonce;     // standard Base64 of 24 random bytes
    QString signature; // standard Base64 of a DER ECDSA P-256/SHA-256 signature

    friend bool operator==(const HelloPayload&, const HelloPayload&) = default;

    JSONValue toBody() const;
    // Every key is required and must be text; other keys are ignored.
    static Result<HelloPayload, QString> fromBody(const JSONValue& body);
};

// deviceID|displayName|publicKey|nonce as UTF-8, the bytes that are signed.
QByteArray helloSigningInput(const QString& deviceID, const QString& displayName, const QString& publicKey,
                             const QString& nonce);

// Standard Base64 with padding; anything else (other characters, missing padding, stray bits) is
// nothing.
std::optional<QByteArray> decodeStrictBase64(const QString& text);

// Whether the hello is signed by the key it carries. Never fails with an error.
bool verify(const HelloPayload& hello);

// The six digits both sides show for a pair of hellos, whichever is local.
QString pairingCode(const HelloPayload& a, const HelloPayload& b);

} // namespace nimbrel
