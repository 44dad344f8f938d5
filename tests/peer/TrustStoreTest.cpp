#include "peer/TrustStore.h"
#include "support/TemporaryHome.h"

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

HelloPayload hello(const QString& id, const QString& name, const QString& key)
{
    return HelloPayload{id, name, key, "nonce", "signature"};
}

} // namespace

TEST(TrustStore, PeersSurviveARestartExactly)
{
    TemporaryHome home;
    const SecretStore secrets(home.filePath("secrets"));
    double now = 785000000.123456789;
    {
        TrustStore store(secrets, [&] { return now; });
        EXPECT_TRUE(store.peers().empty());
        EXPECT_FALSE(store.trust(hello("dev-1", "Phone", "KEY1")));
        now += 10.5;
        EXPECT_FALSE(store.trust(hello("dev-2", "Tablet | 📱", "KEY2")));
        now += 1;
        // The same device again replaces name, key and date; one entry stays.
        EXPECT_FALSE(store.trust(hello("dev-1", "Phone 2", "KEY3")));
        EXPECT_EQ(store.peers().size(), 2u);
    }
    TrustStore reloaded(secrets);
    EXPECT_EQ(reloaded.peer("dev-1"), (TrustedPeer{"dev-1", "Phone 2", "KEY3", 785000011.623456789}));
    EXPECT_EQ(reloaded.peer("dev-2"), (TrustedPeer{"dev-2", "Tablet | 📱", "KEY2", 785000010.623456789}));
    EXPECT_FALSE(reloaded.peer("dev-3"));

    // Removing an unknown id writes the same content again.
    const QByteArray before = *secrets.read(keychainService, TrustStore::account).value();
    EXPECT_FALSE(reloaded.remove("dev-unknown"));
    EXPECT_EQ(*secrets.read(keychainService, TrustStore::account).value(), before);
    EXPECT_FALSE(reloaded.remove("dev-1"));
    EXPECT_EQ(TrustStore(secrets).peers().size(), 1u);

    // The document form, dates in seconds since 2001.
    EXPECT_FALSE(reloaded.remove("dev-2"));
    EXPECT_EQ(*secrets.read(keychainService, TrustStore::account).value(), "{}");
    EXPECT_EQ(TrustStore::encodeDocument({{"a", TrustedPeer{"a", "A", "K", 1.5}}}),
              R"({"a":{"deviceID":"a","displayName":"A","publicKey":"K","pairedAt":1.5}})");
}

TEST(TrustStore, BadDocumentsLoadNothing)
{
    TemporaryHome home;
    const SecretStore secrets(home.filePath("secrets"));
    auto loadFrom = [&](const QByteArray& document) {
        EXPECT_FALSE(secrets.write(document, keychainService, TrustStore::account));
        return TrustStore(secrets).peers();
    };
    // An entry filed under another key than its deviceID loads under the document's key.
    const auto moved = loadFrom(R"({"outer":{"deviceID":"inner","displayName":"P","publicKey":"K","pairedAt":3,"extra":1}})");
    ASSERT_EQ(moved.size(), 1u);
    EXPECT_EQ(moved.begin()->first, "outer");
    EXPECT_EQ(moved.begin()->second.deviceID, "inner");

    EXPECT_TRUE(loadFrom(R"({"a":{"deviceID":"a","displayName":"A","publicKey":"K","pairedAt":1},"b":{"deviceID":"b"}})").empty());
    EXPECT_TRUE(loadFrom(R"({"a":{"deviceID":"a","displayName":"A","publicKey":"K","pairedAt":"today"}})").empty());
    EXPECT_TRUE(loadFrom("[]").empty());
    EXPECT_TRUE(loadFrom("not json").empty());
    // The unreadable item stays until a save replaces it.
    EXPECT_EQ(*secrets.read(keychainService, TrustStore::account).value(), "not json");

    // A store that cannot be saved still changes in memory, and says why.
    TrustStore store(SecretStore(home.makeFile("blocked", "x", false) + "/secrets"));
    const auto error = store.trust(hello("dev", "Phone", "K"));
    ASSERT_TRUE(error);
    EXPECT_FALSE(error->isEmpty());
    EXPECT_TRUE(store.peer("dev"));
}
