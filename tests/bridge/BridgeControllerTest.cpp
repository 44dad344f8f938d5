#include "bridge/BridgeController.h"
#include "support/EventLoop.h"
#include "support/FakeEngine.h"
#include "support/TemporaryHome.h"
#include "support/VirtualScheduler.h"

#include <QFile>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;
using ::testing::ElementsAre;

namespace {

const JSONValue signedIn = JSONValue::object(
    {{"methods",
      JSONValue::object(
          {{"account/read",
            JSONValue::object(
                {{"result",
                  JSONValue::object(
                      {{"account", JSONValue::object({{"type", "chatgpt"},
                                                      {"email", "dev@example.com"}})}})}})}})}});

// A controller in a temporary home whose PATH holds the fake engine as `codex`.
class BridgeControllerTest : public ::testing::Test {
protected:
    BridgeControllerTest()
        : engine(signedIn)
        , defaults(home.filePath(QStringLiteral("defaults.ini")))
    {
        codexPath = home.makeLink(QStringLiteral("bin/codex"), FakeEngine::executablePath());
        home.setPath(home.filePath(QStringLiteral("bin")));
    }

    void makeController()
    {
        controller = std::make_unique<BridgeController>(
            scheduler, defaults, PeerLinkSettings{QHostAddress::LocalHost, 0});
        QObject::connect(controller.get(), &BridgeController::codexAccountStatusChanged,
                         [this] { accountTexts.push_back(controller->codexAccountStatus()); });
    }

    // Writes a scenario beside a copy of the fake engine in its own folder; returns its path.
    QString fakeCodexIn(const QString& folder, const JSONValue& scenario)
    {
        const QString path = home.makeLink(folder + "/codex", FakeEngine::executablePath());
        QFile file(home.filePath(folder + "/fake-codex-scenario.json"));
        file.open(QIODevice::WriteOnly);
        file.write(QByteArray::fromStdString(*scenario.encode()));
        return path;
    }

    TemporaryHome home;
    FakeEngine engine;
    VirtualScheduler scheduler;
    SettingsUserDefaults defaults;
    QString codexPath;
    std::unique_ptr<BridgeController> controller;
    std::vector<QString> accountTexts;
};

TEST_F(BridgeControllerTest, NormalStartShowsTheInstallationAndTheSignIn)
{
    makeController();
    EXPECT_EQ(controller->appServerStatus(), "Starting…");
    EXPECT_EQ(controller->codexAccountStatus(), "Waiting for Codex…");
    controller->startOnce();
    EXPECT_EQ(controller->codexInstallSource(), "Shell PATH");
    EXPECT_EQ(controller->codexExecutablePath(), codexPath);
    ASSERT_TRUE(waitFor([&] { return controller->codexAccountStatus().startsWith("Signed in"); }));
    EXPECT_THAT(accountTexts,
                ElementsAre("Checking sign-in…", "Unavailable until the engine is ready",
                            "Checking sign-in…", "Signed in with chatgpt: dev@example.com"));
    EXPECT_TRUE(controller->appServerReady());
    EXPECT_EQ(controller->appServerStatus(), "Codex app-server ready");
    ASSERT_TRUE(waitFor([&] { return controller->codexVersion() != "Checking…"; }));
    EXPECT_EQ(controller->codexVersion(), "codex-cli 0.0.0-fake");
    EXPECT_THAT(controller->logs(),
                ElementsAre("Codex app-server ready", "Starting Codex app-server…",
                            "Bridge started. Only paired devices can call the Codex allowlist."));

    // A second start changes nothing and logs nothing.
    const QStringList logs = controller->logs();
    controller->startOnce();
    settle(100);
    EXPECT_EQ(controller->logs(), logs);
    EXPECT_EQ(engine.launches(), 1);
}

TEST_F(BridgeControllerTest, NothingFoundWithAndWithoutAStoredPath)
{
    QFile::remove(codexPath);
    makeController();
    controller->startOnce();
    EXPECT_EQ(controller->codexInstallSource(), "Not installed");
    EXPECT_EQ(controller->codexExecutablePath(), "Not found");
    EXPECT_EQ(controller->codexVersion(), "Unavailable");
    ASSERT_TRUE(waitFor([&] { return controller->appServerStatus() != "Starting…"; }));
    EXPECT_EQ(controller->appServerStatus(),
              "Codex CLI was not found. Install Codex or choose its executable in Settings.");
    EXPECT_FALSE(controller->appServerReady());
    EXPECT_EQ(controller->codexAccountStatus(), "Install Codex, then recheck");

    defaults.setValue(BridgeController::customCodexPathKey, home.filePath("gone/codex"));
    controller->restartCodex();
    EXPECT_EQ(controller->codexInstallSource(), "Custom path unavailable");
    EXPECT_EQ(controller->codexExecutablePath(), home.filePath("gone/codex"));
    EXPECT_EQ(controller->logs().first(), "Restarting Codex app-server.");
}

TEST_F(BridgeControllerTest, EngineThatKeepsFailingLeavesTheAccountUnavailable)
{
    engine.setScenario(
        JSONValue::object({{"onStart", JSONValue::array({JSONValue::object({{"exit", 1}})})}}));
    makeController();
    controller->startOnce();
    ASSERT_TRUE(waitFor([&] { return controller->logs().first().endsWith("Retry 1 of 2."); }));
    scheduler.advance(0.5);
    ASSERT_TRUE(waitFor([&] { return controller->logs().first().endsWith("Retry 2 of 2."); }));
    scheduler.advance(1.0);
    ASSERT_TRUE(waitFor(
        [&] { return controller->appServerStatus() == "Codex app-server exited with code 1."; }));
    EXPECT_EQ(controller->codexAccountStatus(), "Unavailable until the engine is ready");
}

TEST_F(BridgeControllerTest, TheLinkShowsTheSameCertificateAfterARestart)
{
    makeController();
    const QByteArray fingerprint =
        controller->link().certificate().digest(QCryptographicHash::Sha256);
    controller.reset();
    makeController();
    EXPECT_FALSE(fingerprint.isEmpty());
    EXPECT_EQ(controller->link().certificate().digest(QCryptographicHash::Sha256), fingerprint);
}

TEST_F(BridgeControllerTest, LogKeepsTheNewestHundredLines)
{
    makeController();
    for (int i = 1; i <= 101; ++i)
        controller->appendLog(QString::number(i));
    controller->appendLog(QString());
    ASSERT_EQ(controller->logs().size(), 100);
    EXPECT_EQ(controller->logs().first(), "101");
    EXPECT_EQ(controller->logs().last(), "2");
}

TEST_F(BridgeControllerTest, ChoosingExecutables)
{
    makeController();
    controller->startOnce();
    ASSERT_TRUE(waitFor([&] { return controller->appServerReady(); }));

    // A file that is not executable: a message, nothing stored, the engine left alone.
    const QString plain = home.makeFile(QStringLiteral("plain/codex"), "text", false);
    controller->useCustomExecutable(plain);
    EXPECT_EQ(controller->appServerStatus(), "The selected file is not executable.");
    EXPECT_FALSE(controller->appServerReady());
    EXPECT_FALSE(defaults.string(BridgeController::customCodexPathKey));
    std::optional<AppServerClient::RequestResult> outcome;
    controller->appServer().request("thread/list", JSONValue::object({}),
                                    [&](const auto& r) { outcome = r; });
    ASSERT_TRUE(waitFor([&] { return outcome.has_value(); }));
    EXPECT_TRUE(outcome->ok());
    EXPECT_EQ(engine.launches(), 1);

    // An executable: stored, the engine restarted on it.
    const QString chosen = fakeCodexIn(QStringLiteral("chosen"), signedIn);
    controller->useCustomExecutable(chosen);
    EXPECT_EQ(defaults.string(BridgeController::customCodexPathKey), chosen);
    EXPECT_EQ(controller->codexInstallSource(), "Custom path");
    EXPECT_EQ(controller->codexExecutablePath(), chosen);
    EXPECT_EQ(controller->logs().first(), "Restarting Codex app-server.");
    ASSERT_TRUE(waitFor([&] { return controller->appServerReady(); }));
    EXPECT_EQ(engine.launches(), 2);

    controller->clearCustomExecutable();
    EXPECT_FALSE(defaults.string(BridgeController::customCodexPathKey));
    EXPECT_EQ(controller->codexExecutablePath(), codexPath);
}

TEST_F(BridgeControllerTest, LateVersionOfAReplacedExecutableIsDropped)
{
    const QString slow =
        fakeCodexIn(QStringLiteral("slow"),
                    JSONValue::object({{"version", JSONValue::object({{"hangSeconds", 600}})}}));
    const QString quick = fakeCodexIn(
        QStringLiteral("quick"),
        JSONValue::object({{"version", JSONValue::object({{"output", "codex-cli 2.0.0"}})}}));
    defaults.setValue(BridgeController::customCodexPathKey, slow);
    makeController();
    controller->startOnce();
    EXPECT_EQ(controller->codexVersion(), "Checking…");
    controller->useCustomExecutable(quick);
    ASSERT_TRUE(waitFor([&] { return controller->codexVersion() == "codex-cli 2.0.0"; }));
    settle(50);
    scheduler.advance(codexVersionLimitSeconds);
    settle(300);
    EXPECT_EQ(controller->codexVersion(), "codex-cli 2.0.0");
}

TEST_F(BridgeControllerTest, AVersionProbeThatFailsSaysSo)
{
    const QString broken =
        fakeCodexIn(QStringLiteral("broken"),
                    JSONValue::object({{"version", JSONValue::object({{"exitCode", 1}})}}));
    defaults.setValue(BridgeController::customCodexPathKey, broken);
    makeController();
    controller->startOnce();
    ASSERT_TRUE(waitFor([&] { return controller->codexVersion() != "Checking…"; }));
    EXPECT_EQ(controller->codexVersion(), "Could not run codex --version");
    EXPECT_EQ(controller->codexInstallSource(), "Custom path");
}

TEST_F(BridgeControllerTest, ASignInThatFailsShowsCodexsTextAndAnotherCanFollow)
{
    engine.setScenario(JSONValue::decode(R"({
        "methods": {"account/read": {"result": {"account": null}},
                    "account/login/start": [
                      {"error": {"code": -32600, "message": "ChatGPT sign-in is turned off"}},
                      {"result": {"type": "chatgptDeviceCode", "loginId": "L2", "userCode": "AB-12",
                                  "verificationUrl": "https://auth.example.invalid/device"},
                       "after": [{"send": {"method": "account/login/completed",
                                           "params": {"loginId": "L2", "success": false,
                                                      "error": "The code expired."}}}]}]}})")
                           .value());
    makeController();
    controller->startOnce();
    ASSERT_TRUE(waitFor([&] { return controller->signInRequired(); }));
    controller->startSignIn("password");
    EXPECT_EQ(controller->signInState(), SignInState{});

    controller->startSignIn("chatgpt");
    ASSERT_TRUE(
        waitFor([&] { return controller->signInState().phase == SignInState::Phase::Failed; }));
    EXPECT_EQ(controller->signInState().error, "ChatGPT sign-in is turned off");

    controller->startSignIn("chatgptDeviceCode");
    ASSERT_TRUE(waitFor([&] { return controller->signInState().error == "The code expired."; }));
    EXPECT_EQ(controller->signInState().phase, SignInState::Phase::Failed);
    EXPECT_TRUE(controller->signInRequired());
    EXPECT_TRUE(controller->logs().contains("Signing in failed: The code expired."));
}

TEST(AccountStatusText, EveryOutcomeHasItsText)
{
    auto text = [](const char* json) { return accountStatusText(JSONValue::decode(json).value()); };
    EXPECT_EQ(text(R"({"account":null})"), "Sign-in required");
    EXPECT_EQ(text(R"({})"), "Sign-in required");
    EXPECT_EQ(text(R"([1])"), "Sign-in required");
    EXPECT_EQ(text(R"({"account":{"type":"apiKey","email":""}})"), "Signed in with apiKey");
    EXPECT_EQ(text(R"({"account":{"email":"e@x.org"}})"), "Signed in with authenticated: e@x.org");
    EXPECT_EQ(text(R"({"account":{"type":"","email":"e@x.org"}})"), "Signed in with : e@x.org");
    EXPECT_EQ(text(R"({"account":{"type":7,"email":5}})"), "Signed in with authenticated");
    EXPECT_EQ(text(R"({"account":"yes"})"), "Signed in with authenticated");
    EXPECT_EQ(text(R"({"account":{}})"), "Signed in with authenticated");
    EXPECT_EQ(accountStatusText(AppServerError::terminated(1)),
              "Account check failed: Codex app-server exited with code 1.");
}

} // namespace
