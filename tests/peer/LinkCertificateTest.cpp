#include "peer/LinkCertificate.h"
#include "peer/OpenSSLKeys.h"
#include "support/TemporaryHome.h"

#include <QSslCertificate>
#include <QSslKey>

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <gtest/gtest.h>

#include <memory>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

QByteArray certificateKey(const QByteArray& certificatePem)
{
    return rawPublicKeyOfCertificateKey(
        QSslCertificate(certificatePem, QSsl::Pem).publicKey().toDer());
}

// The certificate with its own key still in it, signed by another one.
QByteArray resigned(const QByteArray& certificatePem, EVP_PKEY* signer)
{
    std::unique_ptr<BIO, decltype(&BIO_free)> input(
        BIO_new_mem_buf(certificatePem.constData(), static_cast<int>(certificatePem.size())),
        BIO_free);
    std::unique_ptr<X509, decltype(&X509_free)> certificate(
        PEM_read_bio_X509(input.get(), nullptr, nullptr, nullptr), X509_free);
    X509_sign(certificate.get(), signer, EVP_sha256());
    std::unique_ptr<BIO, decltype(&BIO_free)> output(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_X509(output.get(), certificate.get());
    char* data = nullptr;
    const long length = BIO_get_mem_data(output.get(), &data);
    return QByteArray(data, length);
}

} // namespace

TEST(LinkCertificate, OneCertificateIsKeptForTheDeviceKey)
{
    TemporaryHome home;
    const SecretStore store(home.filePath("secrets"));
    const EvpKey deviceKey = generatePrivateKey();
    const QByteArray devicePublicKey = rawPublicKey(deviceKey.get());

    const auto first = keptLinkCertificate(store, deviceKey.get(), "Desk");
    ASSERT_TRUE(first.ok()) << first.error().toStdString();
    EXPECT_EQ(certificateKey(first->certificatePem), devicePublicKey);
    EXPECT_EQ(
        QSslCertificate(first->certificatePem, QSsl::Pem).subjectInfo(QSslCertificate::CommonName),
        QStringList{"Desk"});
    EXPECT_FALSE(QSslKey(first->privateKeyPem, QSsl::Ec, QSsl::Pem).isNull());
    EXPECT_EQ(*store.read(keychainService, linkCertificateAccount).value(), first->certificatePem);
    // The next start finds it, whatever this computer is called by then.
    const auto second = keptLinkCertificate(store, deviceKey.get(), "Renamed");
    ASSERT_TRUE(second.ok());
    EXPECT_EQ(second->certificatePem, first->certificatePem);
    EXPECT_EQ(second->privateKeyPem, first->privateKeyPem);

    // What is stored and is not a certificate of the device key's own is replaced, and the
    // replacement kept.
    const EvpKey otherKey = generatePrivateKey();
    const QByteArray replaceable[] = {
        QByteArray(),
        QByteArray("not a certificate"),
        first->certificatePem.left(first->certificatePem.size() / 2),
        makeLinkCertificate(otherKey.get(), "Other")->certificatePem,
        resigned(first->certificatePem, otherKey.get()),
    };
    for (const QByteArray& stored : replaceable) {
        ASSERT_FALSE(store.write(stored, keychainService, linkCertificateAccount));
        const auto replaced = keptLinkCertificate(store, deviceKey.get(), "Desk");
        ASSERT_TRUE(replaced.ok()) << stored.toStdString();
        EXPECT_NE(replaced->certificatePem, stored);
        EXPECT_EQ(certificateKey(replaced->certificatePem), devicePublicKey)
            << stored.toStdString();
        EXPECT_EQ(*store.read(keychainService, linkCertificateAccount).value(),
                  replaced->certificatePem);
        EXPECT_EQ(keptLinkCertificate(store, deviceKey.get(), "Desk")->certificatePem,
                  replaced->certificatePem);
    }

    // A store that cannot be used is an error: no certificate passes for a kept one.
    const SecretStore blocked(home.makeFile("blocked", "x", false) + "/secrets");
    EXPECT_FALSE(keptLinkCertificate(blocked, deviceKey.get(), "Desk").ok());
}
