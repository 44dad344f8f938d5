#include "OpenSSLKeys.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <openssl/param_build.h>
#include <openssl/rand.h>

namespace nimbrel {

namespace {

constexpr int scalarBytes = 32;
const char curveName[] = "prime256v1";

template <class T, void (*Free)(T*)>
struct Freer {
    void operator()(T* pointer) const { Free(pointer); }
};
using BigNumber = std::unique_ptr<BIGNUM, Freer<BIGNUM, BN_free>>;
using Group = std::unique_ptr<EC_GROUP, Freer<EC_GROUP, EC_GROUP_free>>;
using Point = std::unique_ptr<EC_POINT, Freer<EC_POINT, EC_POINT_free>>;
using ParamBuilder = std::unique_ptr<OSSL_PARAM_BLD, Freer<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>>;
using Params = std::unique_ptr<OSSL_PARAM, Freer<OSSL_PARAM, OSSL_PARAM_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Freer<EVP_PKEY_CTX, EVP_PKEY_CTX_free>>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, Freer<EVP_MD_CTX, EVP_MD_CTX_free>>;

const unsigned char* bytes(const QByteArray& data) { return reinterpret_cast<const unsigned char*>(data.constData()); }

// Builds an EC key from parameters: a public point (uncompressed octets) and, optionally, the scalar.
EvpKey keyFromData(const QByteArray& publicOctets, const BIGNUM* privateScalar)
{
    ParamBuilder builder(OSSL_PARAM_BLD_new());
    if (!builder || !OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, curveName, 0)
        || !OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, publicOctets.constData(),
                                             static_cast<size_t>(publicOctets.size()))
        || (privateScalar && !OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_PRIV_KEY, privateScalar)))
        return nullptr;
    Params params(OSSL_PARAM_BLD_to_param(builder.get()));
    KeyContext context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
    EVP_PKEY* key = nullptr;
    if (!params || !context || EVP_PKEY_fromdata_init(context.get()) <= 0
        || EVP_PKEY_fromdata(context.get(), &key, privateScalar ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY, params.get()) <= 0)
        return nullptr;
    return EvpKey(key);
}

} // namespace

void EvpKeyDeleter::operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }

EvpKey generatePrivateKey() { return EvpKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256")); }

EvpKey privateKeyFromRaw(const QByteArray& raw)
{
    if (raw.size() != scalarBytes)
        return nullptr;
    Group group(EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1));
    BigNumber scalar(BN_bin2bn(bytes(raw), scalarBytes, nullptr));
    if (!group || !scalar || BN_is_zero(scalar.get()) || BN_cmp(scalar.get(), EC_GROUP_get0_order(group.get())) >= 0)
        return nullptr;
    Point point(EC_POINT_new(group.get()));
    if (!point || !EC_POINT_mul(group.get(), point.get(), scalar.get(), nullptr, nullptr, nullptr))
        return nullptr;
    QByteArray octets(65, '\0');
    if (EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED,
                           reinterpret_cast<unsigned char*>(octets.data()), 65, nullptr) != 65)
        return nullptr;
    return keyFromData(octets, scalar.get());
}

EvpKey publicKeyFromRaw(const QByteArray& raw)
{
    if (raw.size() != 2 * scalarBytes)
        return nullptr;
    return keyFromData(QByteArray(1, '\x04') + raw, nullptr);
}

QByteArray rawPrivateKey(EVP_PKEY* key)
{
    BIGNUM* scalar = nullptr;
    if (!EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_PRIV_KEY, &scalar))
        return {};
    BigNumber owned(scalar);
    QByteArray raw(scalarBytes, '\0');
    if (BN_bn2binpad(scalar, reinterpret_cast<unsigned char*>(raw.data()), scalarBytes) != scalarBytes)
        return {};
    return raw;
}

QByteArray rawPublicKey(EVP_PKEY* key)
{
    unsigned char octets[65];
    size_t length = 0;
    if (!EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, octets, sizeof octets, &length) || length != 65
        || octets[0] != 0x04)
        return {};
    return QByteArray(reinterpret_cast<const char*>(octets + 1), 64);
}

std::optional<QByteArray> signDER(EVP_PKEY* key, const QByteArray& data, QString* error)
{
    DigestContext context(EVP_MD_CTX_new());
    size_t length = 0;
    if (!context || EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) <= 0
        || EVP_DigestSign(context.get(), nullptr, &length, bytes(data), static_cast<size_t>(data.size())) <= 0) {
        if (error)
            *error = openSSLErrorText();
        return std::nullopt;
    }
    QByteArray signature(static_cast<qsizetype>(length), '\0');
    if (EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &length, bytes(data),
                       static_cast<size_t>(data.size())) <= 0) {
        if (error)
            *error = openSSLErrorText();
        return std::nullopt;
    }
    signature.resize(static_cast<qsizetype>(length));
    return signature;
}

bool verifySignature(EVP_PKEY* key, const QByteArray& data, const QByteArray& derSignature)
{
    DigestContext context(EVP_MD_CTX_new());
    const bool valid = context && EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, key) > 0
                       && EVP_DigestVerify(context.get(), bytes(derSignature), static_cast<size_t>(derSignature.size()),
                                           bytes(data), static_cast<size_t>(data.size())) == 1;
    ERR_clear_error();
    return valid;
}

QByteArray sha256(const QByteArray& data)
{
    QByteArray digest(32, '\0');
    unsigned int length = 0;
    EVP_Digest(data.constData(), static_cast<size_t>(data.size()), reinterpret_cast<unsigned char*>(digest.data()),
               &length, EVP_sha256(), nullptr);
    return digest;
}

QByteArray secureRandomBytes(int count)
{
    QByteArray random(count, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(random.data()), count) != 1)
        return {};
    return random;
}

QString openSSLErrorText()
{
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0)
        return QStringLiteral("Unknown cryptographic failure");
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    return QString::fromLatin1(text);
}

} // namespace nimbrel
