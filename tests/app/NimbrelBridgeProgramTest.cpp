#include "support/EventLoop.h"
#include "support/FakeEngine.h"
#include "support/TemporaryHome.h"

#include <QProcess>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

// Runs the real program in a temporary home until its standard error holds every expected line.
QString runUntil(const TemporaryHome& home, const QString& pathVariable,
                 const QStringList& expected, bool* stillRunning,
                 const QString& workingDirectory = {}, const QStringList& display = {},
                 const QStringList& arguments = {})
{
    QProcess program;
    program.setWorkingDirectory(workingDirectory.isEmpty() ? home.path() : workingDirectory);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HOME", home.path());
    environment.remove("DISPLAY");
    environment.remove("WAYLAND_DISPLAY");
    environment.insert("PATH", pathVariable);
    environment.insert("XDG_CONFIG_HOME", home.filePath("config"));
    environment.insert("NIMBREL_LINK_ADDRESS", "127.0.0.1");
    environment.insert("NIMBREL_LINK_PORT", "0");
    // display: variable, value and the platform plugin that stands in for it.
    if (display.size() == 3) {
        environment.insert(display[0], display[1]);
        environment.insert("QT_QPA_PLATFORM", display[2]);
    }
    program.setProcessEnvironment(environment);
    program.start(QStringLiteral(NIMBREL_BRIDGE_PATH), arguments);
    QString output;
    waitFor([&] {
        program.waitForReadyRead(10);
        output += QString::fromUtf8(program.readAllStandardError());
        return std::all_of(expected.begin(), expected.end(),
                           [&](const QString& line) { return output.contains(line); });
    });
    *stillRunning = program.state() == QProcess::Running;
    program.terminate();
    program.waitForFinished(5000);
    return output;
}

} // namespace

TEST(NimbrelBridgeProgram, RunsTheEngineFoundOnPath)
{
    TemporaryHome home;
    FakeEngine engine(JSONValue::object(
        {{"methods",
          JSONValue::object(
              {{"account/read",
                JSONValue::object(
                    {{"result", JSONValue::object(
                                    {{"account", JSONValue::object(
                                                     {{"type", "chatgpt"},
                                                      {"email", "dev@example.com"}})}})}})}})}}));
    // A relative PATH entry, from a folder that is not the home folder the engine runs in.
    home.makeLink("project/bin/codex", FakeEngine::executablePath());
    bool running = false;
    const QString output =
        runUntil(home, "bin:/usr/bin:/bin",
                 {"Codex app-server ready", "Signed in with chatgpt: dev@example.com",
                  "Listening on wss://127.0.0.1:"},
                 &running, home.filePath("project"));
    EXPECT_TRUE(output.contains("Listening on wss://127.0.0.1:")) << output.toStdString();
    EXPECT_TRUE(output.contains("Codex app-server ready")) << output.toStdString();
    EXPECT_TRUE(output.contains("Signed in with chatgpt: dev@example.com")) << output.toStdString();
    EXPECT_TRUE(running);
}

TEST(NimbrelBridgeProgram, KeepsRunningWithoutCodex)
{
    TemporaryHome home;
    bool running = false;
    const QString notFound =
        "Codex CLI was not found. Install Codex or choose its executable in Settings.";
    const QString output = runUntil(home, home.filePath("bin"), {notFound}, &running);
    EXPECT_TRUE(output.contains(notFound)) << output.toStdString();
    EXPECT_TRUE(running);
}

TEST(NimbrelBridgeProgram, WithADisplayItsWindowStartsTheBridge)
{
    TemporaryHome home;
    FakeEngine engine;
    home.makeLink("bin/codex", FakeEngine::executablePath());
    bool running = false;
    const QString output =
        runUntil(home, home.filePath("bin") + ":/usr/bin:/bin", {"Codex app-server ready"},
                 &running, {}, {"WAYLAND_DISPLAY", "wayland-test", "offscreen"});
    EXPECT_TRUE(output.contains("Codex app-server ready")) << output.toStdString();
    EXPECT_FALSE(output.contains("could not be opened")) << output.toStdString();
    EXPECT_TRUE(running);
}

TEST(NimbrelBridgeProgram, TheOfflineTourOpensItsWindowWithoutCodex)
{
    TemporaryHome home;
    bool running = false;
    const QString output = runUntil(
        home, home.filePath("bin"),
        {"Offline tour: the window's sessions answer without Codex.", "Codex CLI was not found."},
        &running, {}, {"WAYLAND_DISPLAY", "wayland-test", "offscreen"}, {"--demo"});
    EXPECT_TRUE(output.contains("Offline tour")) << output.toStdString();
    EXPECT_FALSE(output.contains("could not be opened")) << output.toStdString();
    EXPECT_TRUE(running);
}
