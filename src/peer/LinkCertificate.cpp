#include "LinkCertificate.h"

#include "peer/OpenSSLKeys.h"

#include <openssl/bio.h>
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
    std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
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

    std::unique_ptr<BIO, decltype(&BIO_free)> certificateBio(BIO_new(BIO_s_mem()), BIO_free);
    std::unique_ptr<BIO, decltype(&BIO_free)> keyBio(BIO_new(BIO_s_mem()), BIO_free);
    if (!PEM_write_bio_X509(certificateBio.get(), certificate.get())
        || !PEM_write_bio_PrivateKey(keyBio.get(), key, nullptr, nullptr, 0, nullptr, nullptr))
        return std::nullopt;
    return LinkCertificate{drain(certificateBio.get()), drain(keyBio.get())};
}

QByteArray rawPublicKeyOfCertificateKey(const QByteArray& subjectPublicKeyInfo)
{
    const auto* der = reinterpret_cast<const unsigned char*>(subjectPublicKeyInfo.constData());
    const EvpKey key(d2i_PUBKEY(nullptr, &der, subjectPublicKeyInfo.size()));
    return key ? rawPublicKey(key.get()) : QByteArray();
}

} // namespace nimbrel
