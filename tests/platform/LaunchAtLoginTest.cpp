#include "platform/LaunchAtLogin.h"
#include "support/TemporaryHome.h"

#include <QFile>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

TEST(LaunchAtLogin, TheEntryRunsTheInstalledProgramInTheBackground)
{
    TemporaryHome home;
    home.makeFile("bin/nimbrel-bridge", "#!/bin/sh\n", true);
    home.makeFile("elsewhere/nimbrel-bridge", "#!/bin/sh\n", true);
    home.setPath(home.filePath("bin"));

    // By name when that name on PATH is this program; by absolute path when it is another one.
    EXPECT_EQ(LaunchAtLogin::launchCommand(home.filePath("bin/nimbrel-bridge")),
              "nimbrel-bridge --background");
    EXPECT_EQ(LaunchAtLogin::launchCommand(home.filePath("elsewhere/nimbrel-bridge")),
              home.filePath("elsewhere/nimbrel-bridge") + " --background");

    EXPECT_EQ(quotedExecArgument("/opt/My Tools/nimbrel-bridge"),
              R"("/opt/My Tools/nimbrel-bridge")");
    EXPECT_EQ(quotedExecArgument(R"(/a "b" $c\d 100%)"), R"("/a \\"b\\" \\$c\\\\d 100%%")");
}

TEST(LaunchAtLogin, SwitchingOffRemovesOnlyItsOwnEntry)
{
    TemporaryHome home;
    qputenv("XDG_CONFIG_HOME", home.filePath("config").toUtf8());
    ASSERT_FALSE(LaunchAtLogin::setEnabled(true, home.filePath("bin/nimbrel-bridge")));
    EXPECT_TRUE(LaunchAtLogin::isEnabled());
    ASSERT_FALSE(LaunchAtLogin::setEnabled(false, {}));
    EXPECT_FALSE(QFile::exists(LaunchAtLogin::entryPath()));

    // An entry of the same name that the user wrote stays, and so does its state.
    home.makeFile("config/autostart/nimbrel-bridge.desktop",
                  "[Desktop Entry]\nType=Application\nExec=my-wrapper\n", false);
    const std::optional<QString> error = LaunchAtLogin::setEnabled(false, {});
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->endsWith("was not written by Nimbrel Bridge and is left as it is"));
    EXPECT_TRUE(QFile::exists(LaunchAtLogin::entryPath()));
    EXPECT_TRUE(LaunchAtLogin::setEnabled(true, home.filePath("bin/nimbrel-bridge")));
    QFile entry(LaunchAtLogin::entryPath());
    ASSERT_TRUE(entry.open(QIODevice::ReadOnly));
    EXPECT_TRUE(entry.readAll().contains("Exec=my-wrapper"));
}
