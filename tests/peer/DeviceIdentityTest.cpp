#include "peer/DeviceIdentity.h"
#include "support/TemporaryHome.h"

#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

TEST(DeviceIdentity, SurvivesARestartAndSignsFreshHellos)
{
    TemporaryHome home;
    SettingsUserDefaults defaults(home.filePath("defaults.ini"));
    const SecretStore store(home.filePath("secrets"));
    const auto first = DeviceIdentity::create(store, defaults).value();
    const auto second = DeviceIdentity::create(store, defaults).value();
    EXPECT_EQ(first->publicKeyRaw(), second->publicKeyRaw());
    EXPECT_EQ(first->publicKeyRaw().size(), 64);
    EXPECT_EQ(first->deviceID(), second->deviceID());
    EXPECT_TRUE(QRegularExpression("^[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}$").match(first->deviceID()).hasMatch());
    EXPECT_EQ(defaults.string(DeviceIdentity::deviceIDKey), first->deviceID());
    EXPECT_EQ(store.read(keychainService, DeviceIdentity::signingKeyAccount).value()->size(), 32);

    const HelloPayload a = first->makeHello("Desk").value();
    const HelloPayload b = first->makeHello("Desk").value();
    EXPECT_NE(a.nonce, b.nonce);
    EXPECT_NE(a.signature, b.signature);
    EXPECT_EQ(a.nonce.size(), 32);
    EXPECT_EQ(a.publicKey, first->publicKeyBase64());
    EXPECT_TRUE(verify(a));
    EXPECT_TRUE(verify(b));
    EXPECT_EQ(pairingCode(a, b).size(), 6);
}

TEST(DeviceIdentity, KeyAndIdAreStoredApart)
{
    TemporaryHome home;
    SettingsUserDefaults defaults(home.filePath("defaults.ini"));
    const SecretStore store(home.filePath("secrets"));
    const auto original = DeviceIdentity::create(store, defaults).value();
    // A lost id is made anew; the key stays.
    defaults.remove(DeviceIdentity::deviceIDKey);
    const auto newId = DeviceIdentity::create(store, defaults).value();
    EXPECT_NE(newId->deviceID(), original->deviceID());
    EXPECT_EQ(newId->publicKeyRaw(), original->publicKeyRaw());
}

TEST(DeviceIdentity, UnusableStoredKeyFailsCreationAndIsLeftAlone)
{
    TemporaryHome home;
    SettingsUserDefaults defaults(home.filePath("defaults.ini"));
    const SecretStore store(home.filePath("secrets"));
    for (const QByteArray& corrupt : {QByteArray(31, '\x01'), QByteArray(32, '\0'), QByteArray(32, '\xFF')}) {
        ASSERT_FALSE(store.write(corrupt, keychainService, DeviceIdentity::signingKeyAccount));
        auto created = DeviceIdentity::create(store, defaults);
        ASSERT_FALSE(created.ok());
        EXPECT_EQ(created.error(), "The stored signing key is not a valid P-256 private key.");
        EXPECT_EQ(*store.read(keychainService, DeviceIdentity::signingKeyAccount).value(), corrupt);
    }
    // An item others could read is refused with a readable text.
    QFile::setPermissions(store.itemPath(keychainService, DeviceIdentity::signingKeyAccount),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther);
    auto created = DeviceIdentity::create(store, defaults);
    ASSERT_FALSE(created.ok());
    EXPECT_TRUE(created.error().contains("open to other users")) << created.error().toStdString();
}
