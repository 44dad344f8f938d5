#include "platform/SecretStore.h"
#include "support/TemporaryHome.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

unsigned mode(const QString& path)
{
    struct stat info;
    ::lstat(QFile::encodeName(path).constData(), &info);
    return info.st_mode & 07777;
}

} // namespace

TEST(SecretStore, ItemsAreFilesPrivateToTheUser)
{
    TemporaryHome home;
    EXPECT_EQ(SecretStore::defaultRoot(), home.path() + "/.local/share/nimbrel-bridge/secrets");
    qputenv("XDG_DATA_HOME", home.filePath("data").toUtf8());
    EXPECT_EQ(SecretStore::defaultRoot(), home.path() + "/data/nimbrel-bridge/secrets");

    const SecretStore store;
    EXPECT_EQ(store.read(keychainService, "never-written").value(), std::nullopt);
    ASSERT_FALSE(store.write("first", keychainService, "trusted-peers-v1"));
    ASSERT_FALSE(store.write(QByteArray("second\0bytes", 12), keychainService, "trusted-peers-v1"));
    EXPECT_EQ(*store.read(keychainService, "trusted-peers-v1").value(), QByteArray("second\0bytes", 12));

    const QString item = store.itemPath(keychainService, "trusted-peers-v1");
    EXPECT_EQ(item, home.path() + "/data/nimbrel-bridge/secrets/com.halvenworks.Sarvane/trusted-peers-v1");
    EXPECT_EQ(mode(item), 0600u);
    EXPECT_EQ(mode(QFileInfo(item).absolutePath()), 0700u);
    EXPECT_EQ(mode(SecretStore::defaultRoot()), 0700u);
    // One item: no temporary files are left behind.
    EXPECT_EQ(QDir(QFileInfo(item).absolutePath()).entryList(QDir::Files | QDir::Hidden), QStringList{"trusted-peers-v1"});
}

TEST(SecretStore, FailuresAreErrorsWithText)
{
    TemporaryHome home;
    const SecretStore store(home.filePath("secrets"));
    ASSERT_FALSE(store.write("key", keychainService, "device-signing-key"));
    const QString item = store.itemPath(keychainService, "device-signing-key");

    // Readable by others: refused.
    ::chmod(QFile::encodeName(item).constData(), 0644);
    auto read = store.read(keychainService, "device-signing-key");
    ASSERT_FALSE(read.ok());
    EXPECT_TRUE(read.error().description().contains("open to other users"));
    // Writing replaces it with a private item again.
    ASSERT_FALSE(store.write("key", keychainService, "device-signing-key"));
    EXPECT_EQ(mode(item), 0600u);
    ::chmod(QFile::encodeName(QFileInfo(item).absolutePath()).constData(), 0755);
    EXPECT_FALSE(store.read(keychainService, "device-signing-key").ok());

    // A store that cannot be written: a file where its folder should be.
    const SecretStore blocked(home.makeFile("blocked", "x", false) + "/secrets");
    const auto error = blocked.write("key", keychainService, "device-signing-key");
    ASSERT_TRUE(error);
    EXPECT_FALSE(error->description().isEmpty());
    EXPECT_EQ(blocked.read(keychainService, "device-signing-key").error().code, ENOTDIR);

    // Names that would leave the store.
    EXPECT_TRUE(store.write("x", keychainService, "../escape"));
    EXPECT_FALSE(store.read("..", "x").ok());
    EXPECT_EQ((KeychainError{-25300, {}}.description()), "Keychain error -25300");
}
