#include "LinkCertificate.h"

#include "peer/OpenSSLKeys.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

namespace nimbrel {

namespace {

QByteArray drain(BIO* bio)
{
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return QByteArray(data, length);
}

using X509Pointer = std::unique_ptr<X509, decltype(&X509_free)>;
using BioPointer = std::unique_ptr<BIO, decltype(&BIO_free)>;

QByteArray privateKeyPem(EVP_PKEY* key)
{
    BioPointer bio(BIO_new(BIO_s_mem()), BIO_free);
    if (!bio || !PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr))
        return {};
    return drain(bio.get());
}

// The stored certificate, where it is one that key made for itself.
std::optional<LinkCertificate> storedCertificateFor(EVP_PKEY* key, const QByteArray& stored)
{
    BioPointer input(BIO_new_mem_buf(stored.constData(), static_cast<int>(stored.size())),
                     BIO_free);
    if (!input)
        return std::nullopt;
    X509Pointer certificate(PEM_read_bio_X509(input.get(), nullptr, nullptr, nullptr), X509_free);
    if (!certificate || EVP_PKEY_eq(X509_get0_pubkey(certificate.get()), key) != 1 ||
        X509_verify(certificate.get(), key) != 1)
        return std::nullopt;
    BioPointer output(BIO_new(BIO_s_mem()), BIO_free);
    if (!output || !PEM_write_bio_X509(output.get(), certificate.get()))
        return std::nullopt;
    LinkCertificate kept{drain(output.get()), privateKeyPem(key)};
    if (kept.privateKeyPem.isEmpty())
        return std::nullopt;
    return kept;
}

} // namespace

std::optional<LinkCertificate> makeLinkCertificate(EVP_PKEY* key, const QString& commonName)
{
    EvpKey fresh;
    if (!key) {
        fresh = generatePrivateKey();
        key = fresh.get();
    }
    if (!key)
        return std::nullopt;
    X509Pointer certificate(X509_new(), X509_free);
    if (!certificate)
        return std::nullopt;
    const QByteArray serial = secureRandomBytes(8);
    std::uint64_t serialNumber = 1;
    for (char byte : serial)
        serialNumber = (serialNumber << 8) | static_cast<unsigned char>(byte);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), serialNumber >> 1);
    X509_set_version(certificate.get(), 2);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -24 * 3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 10L * 365 * 24 * 3600);
    X509_NAME* name = X509_get_subject_name(certificate.get());
    const QByteArray commonNameBytes = commonName.left(60).toUtf8();
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(commonNameBytes.constData()),
                               static_cast<int>(commonNameBytes.size()), -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    if (!X509_set_pubkey(certificate.get(), key) || !X509_sign(certificate.get(), key, EVP_sha256()))
        return std::nullopt;

    BioPointer certificateBio(BIO_new(BIO_s_mem()), BIO_free);
    if (!certificateBio || !PEM_write_bio_X509(certificateBio.get(), certificate.get()))
        return std::nullopt;
    LinkCertificate made{drain(certificateBio.get()), privateKeyPem(key)};
    if (made.privateKeyPem.isEmpty())
        return std::nullopt;
    return made;
}

Result<LinkCertificate, QString> keptLinkCertificate(const SecretStore& store, EVP_PKEY* key,
                                                     const QString& commonName)
{
    if (!key)
        return QStringLiteral("There is no device key to make the link's certificate for.");
    const auto stored = store.read(keychainService, linkCertificateAccount);
    if (!stored.ok())
        return stored.error().description();
    if (stored.value())
        if (auto kept = storedCertificateFor(key, *stored.value()))
            return *kept;
    // None yet, or one that is not this key's own: a new one takes its place.
    ERR_clear_error();
    auto made = makeLinkCertificate(key, commonName);
    if (!made)
        return QStringLiteral("Could not make the link's certificate: ") + openSSLErrorText();
    if (auto error = store.write(made->certificatePem, keychainService, linkCertificateAccount))
        return error->description();
    return *made;
}

QByteArray rawPublicKeyOfCertificateKey(const QByteArray& subjectPublicKeyInfo)
{
    const auto* der = reinterpret_cast<const unsigned char*>(subjectPublicKeyInfo.constData());
    const EvpKey key(d2i_PUBKEY(nullptr, &der, subjectPublicKeyInfo.size()));
    return key ? rawPublicKey(key.get()) : QByteArray();
}

} // namespace nimbrel
