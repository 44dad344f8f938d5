#pragma once

#include "platform/Result.h"
#include "platform/SecretStore.h"

#include <QByteArray>
#include <QString>

#include <optional>

typedef struct evp_pkey_st EVP_PKEY;

namespace nimbrel {

// A self-signed certificate over a P-256 key, in PEM, with the key beside it.
struct LinkCertificate {
    QByteArray certificatePem;
    QByteArray privateKeyPem;
};

// Made for key, or for a fresh key of this run where key is null.
std::optional<LinkCertificate> makeLinkCertificate(EVP_PKEY* key, const QString& commonName);

// The secret store's item that holds the certificate made for the device key, in PEM.
inline const QString linkCertificateAccount = QStringLiteral("link-certificate");

// The certificate kept in store for key, so that a browser sees the same one after every start:
// the stored one where it parses, carries key and is signed by it; otherwise one made for key and
// named commonName, stored in its place. An error where the store cannot be read or written.
Result<LinkCertificate, QString> keptLinkCertificate(const SecretStore& store, EVP_PKEY* key,
                                                     const QString& commonName);

// The raw 64-byte P-256 public key of a certificate's SubjectPublicKeyInfo (DER), as a hello
// carries it; empty for any other key.
QByteArray rawPublicKeyOfCertificateKey(const QByteArray& subjectPublicKeyInfo);

} // namespace nimbrel
