#include "peer/DeviceIdentity.h"
#include "peer/HelloPayload.h"
#include "support/TemporaryHome.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

JSONValue vectors()
{
    QFile file(QStringLiteral(TEST_DATA_DIR "/hello-vectors.json"));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return JSONValue::decode(file.readAll().toStdString()).value();
}

HelloPayload helloAt(const JSONValue& all, std::size_t index)
{
    return HelloPayload::fromBody((*all["hellos"]).items()[index]).value();
}

} // namespace

TEST(HelloPayload, HellosSignedByAnIndependentImplementationVerify)
{
    const JSONValue all = vectors();
    const std::size_t count = all["hellos"]->items().size();
    ASSERT_GE(count, 7u);
    for (std::size_t i = 0; i < count; ++i)
        EXPECT_TRUE(verify(helloAt(all, i))) << i;
    for (const JSONValue& pair : all["pairs"]->items()) {
        const auto a = static_cast<std::size_t>(*pair["a"]->numberValue());
        const auto b = static_cast<std::size_t>(*pair["b"]->numberValue());
        EXPECT_EQ(pairingCode(helloAt(all, a), helloAt(all, b)), *pair["code"]->stringValue());
        EXPECT_EQ(pairingCode(helloAt(all, b), helloAt(all, a)), *pair["code"]->stringValue());
    }
    // The set holds a code with leading zeros.
    const auto codes = all["pairs"]->items();
    EXPECT_TRUE(std::any_of(codes.begin(), codes.end(), [](const JSONValue& p) { return p["code"]->stringValue()->startsWith('0'); }));
    // Private keys made there load here to the same public key.
    for (const JSONValue& key : all["privateKeys"]->items()) {
        const EvpKey loaded = privateKeyFromRaw(*decodeStrictBase64(*key["raw"]->stringValue()));
        ASSERT_TRUE(loaded);
        EXPECT_EQ(QString::fromLatin1(rawPublicKey(loaded.get()).toBase64()), *key["publicKey"]->stringValue());
    }
}

TEST(HelloPayload, AnyChangeOrMalformedFieldFailsVerification)
{
    const HelloPayload good = helloAt(vectors(), 0);
    ASSERT_TRUE(verify(good));
    auto changed = [&](auto edit) {
        HelloPayload hello = good;
        edit(hello);
        return verify(hello);
    };
    EXPECT_FALSE(changed([](HelloPayload& h) { h.deviceID += "x"; }));
    EXPECT_FALSE(changed([](HelloPayload& h) { h.displayName = "Other"; }));
    EXPECT_FALSE(changed([](HelloPayload& h) { h.nonce = QString::fromLatin1(QByteArray(24, 'n').toBase64()); }));
    const HelloPayload other = helloAt(vectors(), 1);
    EXPECT_FALSE(changed([&](HelloPayload& h) { h.publicKey = other.publicKey; }));
    // Malformed keys and signatures are a plain false.
    EXPECT_FALSE(changed([](HelloPayload& h) { h.publicKey.chop(8); }));
    EXPECT_FALSE(changed([](HelloPayload& h) { h.publicKey = QString::fromLatin1(QByteArray(64, '\x01').toBase64()); }));
    EXPECT_FALSE(changed([](HelloPayload& h) { h.publicKey.replace(0, 1, "*"); }));
    EXPECT_FALSE(changed([](HelloPayload& h) { h.signature.replace(0, 1, "-"); }));
    EXPECT_FALSE(changed([](HelloPayload& h) { h.signature.remove(QLatin1Char('=')); }));
    EXPECT_FALSE(changed([](HelloPayload& h) { h.signature += " "; }));
    EXPECT_FALSE(changed([](HelloPayload& h) { h.signature = ""; }));
    EXPECT_FALSE(changed([](HelloPayload& h) { h.signature = QString::fromLatin1(QByteArray(64, '\x07').toBase64()); }));
    // The same signature as 64 raw bytes (r then s) instead of DER.
    EXPECT_FALSE(changed([](HelloPayload& h) {
        const QByteArray der = *decodeStrictBase64(h.signature);
        QByteArray raw;
        int offset = 2;
        for (int part = 0; part < 2; ++part) {
            const int length = static_cast<unsigned char>(der[offset + 1]);
            raw += der.mid(offset + 2, length).right(32).rightJustified(32, '\0');
            offset += 2 + length;
        }
        h.signature = QString::fromLatin1(raw.toBase64());
    }));
    // Strict Base64 only.
    EXPECT_TRUE(decodeStrictBase64("YWJj"));
    EXPECT_FALSE(decodeStrictBase64("YWI"));
    EXPECT_FALSE(decodeStrictBase64("YWJ="));   // stray bits
    EXPECT_FALSE(decodeStrictBase64("YW_j"));
    EXPECT_FALSE(decodeStrictBase64("YW\nJj"));
    EXPECT_FALSE(decodeStrictBase64("ÿWJj"));
}

TEST(HelloPayload, HellosMadeHereVerifyInTheIndependentImplementation)
{
    const QString node = QStandardPaths::findExecutable(QStringLiteral("node"));
    if (node.isEmpty())
        GTEST_SKIP() << "node is not installed";
    TemporaryHome home;
    SettingsUserDefaults defaults(home.filePath("defaults.ini"));
    const auto identity = DeviceIdentity::create(SecretStore(home.filePath("secrets")), defaults).value();
    std::vector<JSONValue> hellos;
    for (const char* name : {"Desk | top", "Café 📱", "e\xCC\x81", ""})
        hellos.push_back(identity->makeHello(QString::fromUtf8(name)).value().toBody());
    HelloPayload tampered = identity->makeHello("Tampered").value();
    tampered.displayName = "Changed";
    hellos.push_back(tampered.toBody());
    QFile input(home.filePath("hellos.json"));
    input.open(QIODevice::WriteOnly);
    const JSONValue request = JSONValue::object({{"hellos", JSONValue::array(hellos)},
        {"pairs", JSONValue::array({JSONValue::array({0, 1}), JSONValue::array({2, 3})})}});
    input.write(QByteArray::fromStdString(*request.encode()));
    input.close();

    QProcess process;
    process.start(node, {QStringLiteral(NIMBREL_SOURCE_DIR "/tools/hello-vectors/verify.mjs"), input.fileName()});
    ASSERT_TRUE(process.waitForFinished(30000));
    const JSONValue answer = JSONValue::decode(process.readAllStandardOutput().trimmed().toStdString()).value();
    EXPECT_EQ(answer["valid"]->textForm(), "[true,true,true,true,false]");
    const HelloPayload h0 = HelloPayload::fromBody(hellos[0]).value(), h1 = HelloPayload::fromBody(hellos[1]).value();
    const HelloPayload h2 = HelloPayload::fromBody(hellos[2]).value(), h3 = HelloPayload::fromBody(hellos[3]).value();
    EXPECT_EQ(answer["codes"]->textForm(), QStringLiteral(R"(["%1","%2"])").arg(pairingCode(h0, h1), pairingCode(h2, h3)));
}

TEST(HelloPayload, BodiesNeedEveryFieldAsText)
{
    const JSONValue body = helloAt(vectors(), 0).toBody();
    EXPECT_EQ(HelloPayload::fromBody(body).value().toBody(), body);
    for (const char* key : {"deviceID", "displayName", "publicKey", "nonce", "signature"}) {
        std::vector<std::pair<std::string, JSONValue>> missing, wrong;
        for (const JSONMember& member : body.members()) {
            if (member.name() != key)
                missing.emplace_back(std::string(member.name()), member.value);
            wrong.emplace_back(std::string(member.name()), member.name() == key ? JSONValue(1) : member.value);
        }
        EXPECT_FALSE(HelloPayload::fromBody(JSONValue::object(missing)).ok()) << key;
        EXPECT_FALSE(HelloPayload::fromBody(JSONValue::object(wrong)).ok()) << key;
    }
    EXPECT_FALSE(HelloPayload::fromBody(JSONValue("hello")).ok());
}
