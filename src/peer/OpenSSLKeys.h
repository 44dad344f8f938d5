#pragma once

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>

typedef struct evp_pkey_st EVP_PKEY;

namespace nimbrel {

struct EvpKeyDeleter {
    void operator()(EVP_PKEY* key) const;
};
using EvpKey = std::unique_ptr<EVP_PKEY, EvpKeyDeleter>;

// P-256 keys in the raw forms that travel: 32-byte private scalar, 64-byte X||Y public point.
EvpKey generatePrivateKey();
// Nothing for bytes that are no valid P-256 private key.
EvpKey privateKeyFromRaw(const QByteArray& raw);
// Nothing for bytes that are no point on the curve.
EvpKey publicKeyFromRaw(const QByteArray& raw);
QByteArray rawPrivateKey(EVP_PKEY* key);
QByteArray rawPublicKey(EVP_PKEY* key);

// ECDSA with SHA-256: a DER signature of data, or an error text.
std::optional<QByteArray> signDER(EVP_PKEY* key, const QByteArray& data, QString* error = nullptr);
bool verifySignature(EVP_PKEY* key, const QByteArray& data, const QByteArray& derSignature);

QByteArray sha256(const QByteArray& data);
// Bytes from the system's secure generator; empty if it failed.
QByteArray secureRandomBytes(int count);

// OpenSSL's last error as text.
QString openSSLErrorText();

} // namespace nimbrel
