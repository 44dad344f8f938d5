// Renders the window offscreen in named states, over the fake engine in a temporary home, and
// writes one PNG per state. Fails when a state cannot be reached or renders blank.
#include "app/BridgeWindow.h"
#include "app/SessionGallery.h"
#include "support/BridgeUnderTest.h"
#include "support/EventLoop.h"
#include "support/PairedPeer.h"
#include "ui/sessions/BridgeWorkspaceViewModel.h"
#include "ui/sessions/ComposerImages.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QSet>

#include <csignal>
#include <cstdio>
#include <functional>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

const char* approvalScenario = R"({"cues": [{"when": "approve", "actions": [
    {"send": {"id": 0, "method": "item/commandExecution/requestApproval", "params": {"threadId": "thr_1",
     "turnId": "u", "command": "cmake --build build --target install && ctest --test-dir build",
     "cwd": "/home/ada/src/nimbrel", "reason": "Installs the build into /usr/local."}}}]}]})";

// Codex asks for more access, a form and an address, on cue words.
const char* askingScenario = R"({"cues": [
  {"when": "access", "actions": [{"send": {"id": 1, "method": "item/permissions/requestApproval",
    "params": {"threadId": "thr_1", "turnId": "u", "itemId": "c", "cwd": "/home/ada/src/nimbrel",
     "reason": "The tests need the package cache and the network.",
     "permissions": {"fileSystem": {"write": ["/home/ada/.cache/pip"], "read": ["/etc/ssl/certs"]},
                     "network": {"enabled": true}}}}}]},
  {"when": "form", "actions": [{"send": {"id": 2, "method": "mcpServer/elicitation/request",
    "params": {"threadId": "thr_1", "turnId": "u", "serverName": "tickets", "mode": "form",
     "message": "Open a ticket for the failing build?",
     "requestedSchema": {"type": "object", "required": ["title", "team"], "properties": {
       "title": {"type": "string", "title": "Title", "description": "One line that says what broke.",
                 "default": "Clean build fails"},
       "team": {"type": "string", "title": "Team", "oneOf": [{"const": "build", "title": "Build and release"},
                 {"const": "core", "title": "Core libraries"}]},
       "priority": {"type": "integer", "title": "Priority", "minimum": 1, "maximum": 4, "default": 2},
       "labels": {"type": "array", "title": "Labels", "items": {"type": "string", "enum": ["ci", "regression", "linux"]},
                  "default": ["ci"]},
       "notify": {"type": "boolean", "title": "Tell the team now", "default": true}}}}}}]},
  {"when": "address", "actions": [{"send": {"id": 3, "method": "mcpServer/elicitation/request",
    "params": {"threadId": "thr_1", "turnId": "u", "serverName": "calendar", "mode": "url",
     "elicitationId": "e-1", "message": "Let the calendar tool read your work calendar.",
     "url": "https://calendar.example.com/oauth/consent?client=codex-tools&scope=read"}}}]}]})";

// Codex without an account; a sign-in by code stays waiting.
const char* signInScenario = R"({"methods": {"account/read": {"result": {"account": null}}},
  "login": {"completeOn": "never", "userCode": "QX7P-4KMD", "verificationUrl": "https://auth.openai.com/codex/device"}})";

// A blank render has one colour, or nearly: a drawn window has text in it.
bool looksBlank(const QImage& image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 3)
        for (int x = 0; x < image.width(); x += 3)
            if (colours.size() < 16)
                colours.insert(image.pixel(x, y));
    return colours.size() < 16;
}

bool ready(BridgeUnderTest& bridge)
{
    return waitFor([&] { return bridge.controller().appServerReady(); });
}

const char* catalogueScenario = R"({"methods": {"model/list": {"result": {"data": [
 {"id":"gpt-5-codex","model":"gpt-5-codex","displayName":"GPT-5 Codex","description":"Optimised for long agentic coding work.",
  "defaultReasoningEffort":"medium","isDefault":true,
  "supportedReasoningEfforts":[{"reasoningEffort":"low","description":"Fast answers for small edits"},
   {"reasoningEffort":"medium","description":"Balanced depth and speed"},{"reasoningEffort":"high","description":"Thorough"},
   {"reasoningEffort":"xhigh","description":"The deepest thinking, slowest"}]},
 {"id":"gpt-5-mini","model":"gpt-5-mini","displayName":"GPT-5 Mini","description":"Quick and light."}]}}}})";

// An allowance of 5 hours and a week, the first resetting in 2 hours 14 minutes, with credits.
std::string usageScenario(int fiveHourUsed, int weekUsed, const char* thenAnswer = nullptr)
{
    const qint64 resets = QDateTime::currentSecsSinceEpoch() + 2 * 3600 + 14 * 60 + 30;
    const std::string reading =
        R"({"result": {"rateLimits": {"limitId": "codex", "planType": "pro",
            "primary": {"usedPercent": )" +
        std::to_string(fiveHourUsed) + R"(, "windowDurationMins": 300, "resetsAt": )" +
        std::to_string(resets) + R"(}, "secondary": {"usedPercent": )" + std::to_string(weekUsed) +
        R"(, "windowDurationMins": 10080, "resetsAt": )" + std::to_string(resets + 4 * 86400) +
        R"(}, "credits": {"hasCredits": true, "balance": "38.20"}},
            "rateLimitResetCredits": {"availableCount": 2}}})";
    return R"({"methods": {"account/rateLimits/read": [)" + reading +
           (thenAnswer ? std::string(", ") + thenAnswer : std::string()) + "]}}";
}

bool usageRead(BridgeUnderTest& bridge)
{
    return ready(bridge) && waitFor([&] { return bridge.workspace().accountUsage().has_value(); });
}

void openUsage(BridgeWindow& window)
{
    QMetaObject::invokeMethod(window.find(QStringLiteral("account-usage-details")), "clicked");
}

// Six listed sessions of various ages, folders and states, with history for three of them.
std::string sessionsScenario()
{
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    auto thread = [&](const char* id, const char* preview, const char* cwd, const char* source,
                      const char* status, qint64 age) {
        return std::string(R"({"id": ")") + id + R"(", "preview": ")" + preview + R"(", "cwd": ")" +
               cwd + R"(", "source": ")" + source + R"(", "status": {"type": ")" + status +
               R"("}, "updatedAt": )" + std::to_string(now - age) + "}";
    };
    return R"({"history": {"thr_1": {"items": 45}, "thr_2": {"items": 6}, "thr_3": {"items": 3}},
        "methods": {"thread/list": {"result": {"data": [)" +
           thread("thr_1", "The build fails on a clean clone. Find out why and fix it.",
                  "/home/ada/src/nimbrel", "cli", "active", 40) +
           ", " +
           thread("thr_2", "Add a --json flag to the export command", "/home/ada/src/ledger",
                  "vscode", "idle", 3 * 3600) +
           ", " +
           thread("thr_3", "Why is the nightly backup slow?", "", "appServer", "idle", 26 * 3600) +
           ", " +
           thread("thr_4", "Port the settings page to the new form layout",
                  "/home/ada/src/ledger/web", "cli", "systemError", 4 * 86400) +
           ", " +
           thread("thr_5", "Write release notes for 2.4", "/home/ada/src/nimbrel", "exec", "idle",
                  9 * 86400) +
           ", " +
           thread("thr_6", "Bump the OpenSSL pin and rebuild the containers", "/srv/infra", "cli",
                  "notLoaded", 40 * 86400) +
           R"(]}}}})";
}

bool sessionLoaded(BridgeUnderTest& bridge, const char* id)
{
    return waitFor([&] { return bridge.workspace().sessionState(id).hasLoadedTranscript; });
}

// The Sessions page with three tabs, the first listed session selected.
void openThreeTabs(BridgeUnderTest& bridge)
{
    ready(bridge);
    waitFor([&] { return bridge.workspace().threads().size() == 6; });
    for (const char* id : {"thr_2", "thr_3", "thr_1"})
        bridge.workspace().openThread(id);
    sessionLoaded(bridge, "thr_1");
}

TranscriptEntry entry(const char* id, TranscriptKind kind, const char* title, const QString& text,
                      std::optional<QString> status = {})
{
    return {id, kind, title, text, std::move(status), std::nullopt, {}};
}

// A session with one entry of every kind, a long command log and a reasoning step without text.
void fillSession(BridgeUnderTest& bridge, bool running, int logLines = 6)
{
    QString log;
    for (int i = 1; i <= logLines; ++i)
        log += QStringLiteral("[%1] Building CXX object src/CMakeFiles/core.dir/part%1.cpp.o\n")
                   .arg(i);
    const std::optional<QString> live =
        running ? std::optional(QStringLiteral("inProgress")) : std::nullopt;
    bridge.workspace().changeSession(SessionGallery::threadID, [&](CodexSessionState& session) {
        session.transcript = {
            entry("u1", TranscriptKind::User, "You",
                  "The build fails on a clean clone. Find out why and fix it."),
            entry("r1", TranscriptKind::Reasoning, "Thinking", "",
                  running ? std::optional(QStringLiteral("thinking")) : std::nullopt),
            entry("c1", TranscriptKind::Command, "cmake --build build", log,
                  running ? live : std::optional(QStringLiteral("completed"))),
            entry("f1", TranscriptKind::FileChange, "Edited CMakeLists.txt",
                  "src/CMakeLists.txt: +2 −1"),
            entry("a1", TranscriptKind::Assistant, "Codex",
                  "The generated header was not a dependency of the library. I added it, and a "
                  "clean build now passes."),
            entry("s1", TranscriptKind::System, "Plan",
                  "1. Reproduce\n2. Fix the dependency\n3. Run the tests")};
        if (running) {
            session.turnControl.phase = TurnControlState::Phase::Running;
            session.activityText = QStringLiteral("Running cmake --build build");
        }
    });
}

// An answer in Markdown with every construct the window lays out.
const char* markdownAnswer = R"(## What was wrong

The generated header `version.h` was **not a dependency** of the library, so a *clean* build compiled `main.cpp` before it existed. See [the CMake manual](https://cmake.org/cmake/help/latest/) and the note at https://example.com/notes.

1. Reproduce on a clean clone
2. Fix the dependency
   - add `version.h` to the sources
   - regenerate on every configure
3. Run the tests

> A clean build is what the release job runs, so it failed there first.

| File | Change |
|---|---|
| `src/CMakeLists.txt` | **+2** −1 |
| `cmake/Version.cmake` | +14 |

```cmake
add_custom_command(OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/version.h
                   COMMAND ${CMAKE_COMMAND} -P ${PROJECT_SOURCE_DIR}/cmake/Version.cmake --output ${CMAKE_CURRENT_BINARY_DIR}/version.h
                   DEPENDS ${PROJECT_SOURCE_DIR}/cmake/Version.cmake)
```

Nothing here loads by itself: ![build graph](https://example.com/graph.png), <img src="https://example.com/t.png"> and [a script link](javascript:alert(1)) stay text.)";

void fillMarkdownAnswer(BridgeUnderTest& bridge)
{
    bridge.workspace().changeSession(SessionGallery::threadID, [&](CodexSessionState& session) {
        session.transcript = {
            entry("u1", TranscriptKind::User, "You",
                  "The build fails on a clean clone. Find out why and fix it."),
            entry("a1", TranscriptKind::Assistant, "Codex", QString::fromUtf8(markdownAnswer))};
    });
}

// An answer of some hundred kilobytes: shown a part at a time.
void fillLongAnswer(BridgeUnderTest& bridge)
{
    bridge.workspace().changeSession(SessionGallery::threadID, [&](CodexSessionState& session) {
        session.transcript = {
            entry("u1", TranscriptKind::User, "You", "Write down everything the build does."),
            entry("a1", TranscriptKind::Assistant, "Codex",
                  (QString::fromUtf8(markdownAnswer) + QStringLiteral("\n\n")).repeated(60))};
    });
}

// What a turn changed: a build file edited and a script added.
const char* sampleDiff = "diff --git a/src/CMakeLists.txt b/src/CMakeLists.txt\n"
                         "index 3b18e51..a9c4f2d 100644\n"
                         "--- a/src/CMakeLists.txt\n"
                         "+++ b/src/CMakeLists.txt\n"
                         "@@ -12,7 +12,8 @@ add_library(core STATIC\n"
                         "     part1.cpp\n"
                         "     part2.cpp\n"
                         "-    part3.cpp\n"
                         "+    part3.cpp\n"
                         "+    ${CMAKE_CURRENT_BINARY_DIR}/version.h\n"
                         " )\n"
                         " target_include_directories(core PUBLIC ${CMAKE_CURRENT_BINARY_DIR})\n"
                         " target_link_libraries(core PUBLIC Threads::Threads)\n"
                         "diff --git a/cmake/Version.cmake b/cmake/Version.cmake\n"
                         "new file mode 100644\n"
                         "index 0000000..5d1e2b7\n"
                         "--- /dev/null\n"
                         "+++ b/cmake/Version.cmake\n"
                         "@@ -0,0 +1,4 @@\n"
                         "+execute_process(COMMAND git describe --always OUTPUT_VARIABLE version\n"
                         "+                OUTPUT_STRIP_TRAILING_WHITESPACE)\n"
                         "+file(WRITE ${output} \"#define VERSION \\\"${version}\\\"\\n\")\n"
                         "+message(STATUS \"version ${version}\")\n";

// The session's turn sent its diff and ended: the changes follow its last entry.
void finishTurnWithChanges(BridgeUnderTest& bridge)
{
    fillSession(bridge, false);
    bridge.workspace().changeSession(SessionGallery::threadID, [](CodexSessionState& session) {
        session.transcript[3].text = QStringLiteral(
            "/home/ada/src/nimbrel/src/CMakeLists.txt\n/home/ada/src/nimbrel/cmake/Version.cmake");
        session.transcript.pop_back();
    });
    auto notify = [&](const char* method, JSONValue params) {
        bridge.workspace().handleNotification(QString::fromLatin1(method), params);
    };
    notify("turn/diff/updated", JSONValue::object({{"threadId", SessionGallery::threadID},
                                                   {"turnId", "turn-7"},
                                                   {"diff", sampleDiff}}));
    notify("turn/completed",
           JSONValue::object(
               {{"threadId", SessionGallery::threadID},
                {"turn", JSONValue::object({{"id", "turn-7"}, {"status", "completed"}})}}));
}

// A screenshot-like picture: a window's title bar and a few lines of text, in colour.
QImage samplePicture(int width, int height, QColor accent)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(QColor(0xf4, 0xf4, 0xf6));
    QPainter painter(&image);
    painter.fillRect(0, 0, width, height / 8, accent);
    painter.setPen(QColor(0x30, 0x30, 0x38));
    QFont font = painter.font();
    font.setPixelSize(height / 14);
    painter.setFont(font);
    for (int line = 0; line < 5; ++line)
        painter.drawText(width / 16, height / 4 + line * height / 7,
                         QStringLiteral("error: undefined reference to 'version' (%1)").arg(line));
    return image;
}

// A message with a screenshot in the transcript, and another attached in the composer.
void attachImages(BridgeUnderTest& bridge, BridgeWindow& window)
{
    const std::optional<DraftImage> sent =
        preparedImage(samplePicture(1600, 1000, QColor(0xd9, 0x3f, 0x3f)), "error.png");
    bridge.workspace().changeSession(SessionGallery::threadID, [&](CodexSessionState& session) {
        TranscriptEntry user = entry("u1", TranscriptKind::User, "You",
                                     "The build fails like this on a clean clone. Why?");
        user.images = {sent->url, QStringLiteral("/home/ada/Pictures/build-log.png")};
        session.transcript = {user, entry("a1", TranscriptKind::Assistant, "Codex",
                                          "The linker cannot find `version`: the generated header "
                                          "is not a dependency of the library.")};
    });
    waitFor([] { return false; }, 300);
    window.sessions().sessionView()->setDraft(QStringLiteral("And this one after the fix?"));
    window.sessions().sessionView()->composerImages()->attachImage(
        samplePicture(1200, 800, QColor(0x34, 0xa8, 0x53)), "after.png");
    window.sessions().sessionView()->composerImages()->attachImage(
        samplePicture(800, 1200, QColor(0x2d, 0x6c, 0xdf)), "phone.png");
}

// Codex gone from the bridge's PATH, and the bridge told so.
void loseCodex(BridgeUnderTest& bridge)
{
    bridge.home.setPath(bridge.home.filePath("nowhere"));
    bridge.controller().restartCodex();
    waitFor([&] {
        return bridge.controller().codexInstallSource() == QStringLiteral("Not installed");
    });
}

// The offline tour as --demo starts it on a computer without Codex.
void startTourWithoutCodex(BridgeUnderTest& bridge)
{
    loseCodex(bridge);
    bridge.workspace().setDemoMode(true);
    bridge.workspace().seedDemoSessions();
}

// The narrow window: the smallest a user is likely to make it.
const QSize narrow(800, 600);

class Tour {
public:
    Tour(QString folder, QStringList only)
        : m_folder(std::move(folder))
        , m_only(std::move(only))
    {
        QDir().mkpath(m_folder);
    }

    // Builds a bridge with scenario, lets prepare put it into the state, then shots the window
    // (or the Settings window) to <name>.png; at size where one is given.
    void state(const QString& name, const std::string& scenario,
               const std::function<void(BridgeUnderTest&, BridgeWindow&)>& prepare,
               bool settings = false, QSize size = {})
    {
        if (!m_only.isEmpty() && !m_only.contains(name))
            return;
        BridgeUnderTest bridge(json(scenario.c_str()));
        BridgeWindow window(bridge.controller(), bridge.defaults);
        if (!window.mainWindow())
            return fail(name, "the window did not load");
        if (size.isValid()) {
            window.mainWindow()->setMinimumSize(size);
            window.mainWindow()->resize(size);
        }
        window.mainWindow()->show();
        QQuickWindow* shown = window.mainWindow();
        prepare(bridge, window);
        if (settings) {
            shown = window.settingsWindow();
            QMetaObject::invokeMethod(shown, "open");
        }
        save(name, shown);
    }

    // A state of the session's views: prepare fills the session, shots the gallery.
    void galleryState(const QString& name, const std::function<void(BridgeUnderTest&)>& prepare,
                      const std::function<void(QQuickWindow*)>& open = {},
                      const QStringList& questions = {})
    {
        if (!m_only.isEmpty() && !m_only.contains(name))
            return;
        BridgeUnderTest bridge(json(catalogueScenario));
        ready(bridge);
        waitFor([&] { return !bridge.workspace().availableModels().empty(); });
        prepare(bridge);
        SessionGallery gallery(bridge, questions);
        if (!gallery.window())
            return fail(name, "the gallery did not load");
        gallery.window()->show();
        settle();
        if (open)
            open(gallery.window());
        save(name, gallery.window());
    }

    void save(const QString& name, QQuickWindow* shown)
    {
        settle();
        const QImage image = shown->grabWindow();
        const QString path = QDir(m_folder).filePath(name + QStringLiteral(".png"));
        if (image.isNull() || looksBlank(image))
            return fail(name, "the picture is blank");
        if (!image.save(path))
            return fail(name, "the picture could not be written");
        std::printf("%s\n", qPrintable(path));
    }
    int failures() const { return m_failures; }

    static void settle()
    {
        waitFor([] { return false; }, 300);
    }
    static void showSetupPage(BridgeWindow& window)
    {
        window.find(QStringLiteral("pagePicker"))->setProperty("currentIndex", 1);
    }

private:
    void fail(const QString& name, const char* why)
    {
        std::fprintf(stderr, "%s: %s\n", qPrintable(name), why);
        ++m_failures;
    }

    QString m_folder;
    QStringList m_only;
    int m_failures = 0;
};

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    QGuiApplication app(argc, argv);
    BridgeWindow::useIconTheme();
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Renders the window in named states to PNG files."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("folder"),
                                 QStringLiteral("Where the PNG files go."));
    parser.addPositionalArgument(QStringLiteral("states"),
                                 QStringLiteral("Only these states (all without any)."),
                                 QStringLiteral("[states…]"));
    parser.process(app);
    const QStringList arguments = parser.positionalArguments();
    Tour tour(arguments.value(0, QStringLiteral("screenshots")), arguments.mid(1));

    tour.state("setup-ready", "{}", [](BridgeUnderTest& bridge, BridgeWindow& window) {
        ready(bridge);
        Tour::showSetupPage(window);
    });
    std::unique_ptr<TestPeer> asking;
    tour.state("setup-pairing-request", "{}", [&](BridgeUnderTest& bridge, BridgeWindow& window) {
        ready(bridge);
        Tour::showSetupPage(window);
        asking = std::make_unique<TestPeer>(bridge.port(), "Phone", "Ada's phone");
        asking->waitFor(BridgeMessageKind::Hello);
        asking->sendHello();
        asking->send({bridgeProtocolVersion, BridgeMessageKind::PairingRequest, {}, {}, {}});
        waitFor([&] { return !bridge.controller().pairingRequests().empty(); });
    });
    asking.reset();
    std::vector<std::unique_ptr<TestPeer>> paired;
    tour.state("setup-trusted-devices", "{}", [&](BridgeUnderTest& bridge, BridgeWindow& window) {
        ready(bridge);
        Tour::showSetupPage(window);
        for (const QString name : {"Ada's phone", "Studio tablet", "Grace's phone"})
            paired.push_back(pairedPeer(bridge.controller(), bridge.port(), name, name));
        for (int i = 1; i <= 6; ++i)
            bridge.controller().appendLog(
                QStringLiteral("Ada's phone called thread/list (%1 ms)").arg(i * 7));
    });
    paired.clear();
    for (const QSize size : {QSize(), narrow})
        tour.state(
            size.isValid() ? "setup-codex-not-found-narrow" : "setup-codex-not-found", "{}",
            [](BridgeUnderTest& bridge, BridgeWindow& window) {
                ready(bridge);
                loseCodex(bridge);
                Tour::showSetupPage(window);
            },
            false, size);
    tour.state("sessions-offer-tour", "{}", [](BridgeUnderTest& bridge, BridgeWindow&) {
        ready(bridge);
        loseCodex(bridge);
    });
    for (const QSize size : {QSize(), narrow})
        tour.state(
            size.isValid() ? "offline-tour-narrow" : "offline-tour-without-codex", "{}",
            [](BridgeUnderTest& bridge, BridgeWindow&) { startTourWithoutCodex(bridge); }, false,
            size);
    tour.state("offline-tour-question", "{}", [](BridgeUnderTest& bridge, BridgeWindow&) {
        startTourWithoutCodex(bridge);
        bridge.workspace().selectThread("demo-thread-question");
    });
    tour.state("offline-tour-paging", "{}", [](BridgeUnderTest& bridge, BridgeWindow& window) {
        startTourWithoutCodex(bridge);
        bridge.workspace().selectThread("demo-thread-notes");
        Tour::settle();
        window.sessions().sessionView()->showEarlier();
    });
    tour.state("offline-tour-reply", "{}", [](BridgeUnderTest& bridge, BridgeWindow&) {
        startTourWithoutCodex(bridge);
        bridge.workspace().send(QStringLiteral("What did you change?"), "demo-thread-build");
        bridge.scheduler.advance(CodexWorkspace::demoReplyDelaySeconds);
        waitFor([&] {
            return bridge.workspace().sessionState("demo-thread-build").turnControl.phase ==
                   TurnControlState::Phase::Idle;
        });
    });
    tour.state("approval-command", approvalScenario, [](BridgeUnderTest& bridge, BridgeWindow&) {
        ready(bridge);
        bridge.say("approve");
        waitFor([&] { return bridge.controller().hasApproval(); });
    });
    for (const char* word : {"access", "form", "address"})
        for (const QSize size : {QSize(), narrow})
            tour.state(
                QStringLiteral("approval-") + QLatin1String(word) +
                    (size.isValid() ? QStringLiteral("-narrow") : QString()),
                askingScenario,
                [word](BridgeUnderTest& bridge, BridgeWindow& window) {
                    ready(bridge);
                    window.setup().openAddress = [](const QUrl&) {};
                    bridge.say(word);
                    waitFor([&] { return bridge.controller().hasApproval(); });
                },
                false, size);
    for (const QSize size : {QSize(), narrow})
        tour.state(
            size.isValid() ? "setup-sign-in-narrow" : "setup-sign-in", signInScenario,
            [](BridgeUnderTest& bridge, BridgeWindow& window) {
                ready(bridge);
                waitFor([&] { return bridge.controller().signInRequired(); });
                Tour::showSetupPage(window);
            },
            false, size);
    for (const QSize size : {QSize(), narrow})
        tour.state(
            size.isValid() ? "setup-sign-in-code-narrow" : "setup-sign-in-code", signInScenario,
            [](BridgeUnderTest& bridge, BridgeWindow& window) {
                ready(bridge);
                waitFor([&] { return bridge.controller().signInRequired(); });
                bridge.controller().startSignIn("chatgptDeviceCode");
                waitFor([&] {
                    return bridge.controller().signInState().phase == SignInState::Phase::Waiting;
                });
                Tour::showSetupPage(window);
            },
            false, size);
    tour.state(
        "settings", "{}", [](BridgeUnderTest& bridge, BridgeWindow&) { ready(bridge); }, true);
    tour.state(
        "settings-notifications-off", "{}",
        [](BridgeUnderTest& bridge, BridgeWindow& window) {
            ready(bridge);
            window.setup().setShowNotifications(false);
        },
        true);
    tour.state("offline-tour", "{}", [](BridgeUnderTest& bridge, BridgeWindow&) {
        bridge.workspace().setDemoMode(true);
        ready(bridge);
    });
    tour.galleryState(
        "transcript-every-kind",
        [](BridgeUnderTest& bridge) {
            fillSession(bridge, false);
            UserInputRequest request{"q-1", SessionGallery::threadID, "turn-1", {}, true};
            request.questions.push_back(
                {"db", "Storage", "Which database should the service use?",
                 std::vector<UserInputQuestion::Option>{{"Postgres", "A server, for production"},
                                                        {"SQLite", "One file, for tests"}},
                 std::nullopt});
            request.questions.push_back(
                {"key", "Secret", "Paste the staging API key", std::nullopt, true});
            bridge.workspace().addUserInputPrompt(request);
        },
        {}, {"q-1"});
    tour.galleryState(
        "question-cards",
        [](BridgeUnderTest& bridge) {
            fillSession(bridge, false);
            UserInputRequest request{"q-2", SessionGallery::threadID, "turn-1", {}, false};
            request.questions.push_back(
                {"key", "Secret", "Paste the staging API key", std::nullopt, true});
            request.questions.push_back(
                {"why", "", "Anything else Codex should know?", std::nullopt, std::nullopt});
            bridge.workspace().addUserInputPrompt(request);
        },
        [](QQuickWindow* window) { QMetaObject::invokeMethod(window, "scrollToEnd"); }, {"q-2"});
    tour.galleryState(
        "transcript-streaming", [](BridgeUnderTest& bridge) { fillSession(bridge, true, 400); },
        [](QQuickWindow* window) { QMetaObject::invokeMethod(window, "scrollToEnd"); });
    tour.galleryState(
        "long-output-settled", [](BridgeUnderTest& bridge) { fillSession(bridge, false, 400); },
        [](QQuickWindow* window) { QMetaObject::invokeMethod(window, "scrollToEnd"); });
    tour.galleryState("transcript-group-collapsed", [](BridgeUnderTest& bridge) {
        fillSession(bridge, false);
        bridge.defaults.setValue(SessionActivityPreference::key, false);
    });
    tour.galleryState(
        "model-menu-open", [](BridgeUnderTest& bridge) { fillSession(bridge, false); },
        [](QQuickWindow* window) { QMetaObject::invokeMethod(window, "openModelMenu"); });
    tour.galleryState(
        "effort-menu-open", [](BridgeUnderTest& bridge) { fillSession(bridge, false); },
        [](QQuickWindow* window) { QMetaObject::invokeMethod(window, "openEffortMenu"); });
    tour.galleryState(
        "permission-menu-open",
        [](BridgeUnderTest& bridge) {
            fillSession(bridge, false);
            bridge.workspace().setPermissionMode("ask", SessionGallery::threadID);
        },
        [](QQuickWindow* window) { QMetaObject::invokeMethod(window, "openPermissionMenu"); });
    tour.galleryState(
        "session-settings-idle", [](BridgeUnderTest& bridge) { fillSession(bridge, false); },
        [](QQuickWindow* window) { QMetaObject::invokeMethod(window, "openSettings"); });
    tour.galleryState(
        "session-settings-during-turn", [](BridgeUnderTest& bridge) { fillSession(bridge, true); },
        [](QQuickWindow* window) { QMetaObject::invokeMethod(window, "openSettings"); });
    for (const QSize size : {QSize(), narrow})
        tour.state(
            size.isValid() ? "usage-sheet-narrow" : "usage-sheet", usageScenario(42, 12),
            [](BridgeUnderTest& bridge, BridgeWindow& window) {
                usageRead(bridge);
                openUsage(window);
            },
            false, size);
    const char* refused = R"({"error": {"code": -32600, "message": "authentication required"}})";
    tour.state("usage-stale-after-failed-refresh", usageScenario(42, 12, refused),
               [](BridgeUnderTest& bridge, BridgeWindow& window) {
                   usageRead(bridge);
                   bridge.scheduler.advance(150);
                   openUsage(window);
                   waitFor([&] { return bridge.workspace().usageError().has_value(); });
               });
    tour.state("usage-disconnected", "{}", [](BridgeUnderTest& bridge, BridgeWindow& window) {
        ready(bridge);
        bridge.home.setPath(bridge.home.filePath("nowhere"));
        bridge.controller().restartCodex();
        waitFor([&] { return !bridge.workspace().engineReady(); });
        openUsage(window);
    });
    for (const auto& [tint, used] : {std::pair{"cyan", 30}, {"orange", 80}, {"red", 95}})
        tour.state(QStringLiteral("usage-button-") + QLatin1String(tint), usageScenario(used, 12),
                   [](BridgeUnderTest& bridge, BridgeWindow&) { usageRead(bridge); });
    for (const QSize size : {QSize(), narrow})
        tour.state(
            size.isValid() ? "sessions-mid-turn-narrow" : "sessions-mid-turn", sessionsScenario(),
            [](BridgeUnderTest& bridge, BridgeWindow&) {
                openThreeTabs(bridge);
                fillSession(bridge, true, 30);
            },
            false, size);
    for (const QSize size : {QSize(), narrow})
        tour.state(
            size.isValid() ? "markdown-answer-narrow" : "markdown-answer", sessionsScenario(),
            [](BridgeUnderTest& bridge, BridgeWindow&) {
                openThreeTabs(bridge);
                fillMarkdownAnswer(bridge);
            },
            false, size);
    for (const bool paged : {false, true})
        tour.state(paged ? "long-answer-paged" : "long-answer", sessionsScenario(),
                   [paged](BridgeUnderTest& bridge, BridgeWindow& window) {
                       openThreeTabs(bridge);
                       fillLongAnswer(bridge);
                       if (!paged)
                           return;
                       Tour::settle();
                       QMetaObject::invokeMethod(window.find(QStringLiteral("toggle-a1")),
                                                 "clicked");
                       Tour::settle();
                       QMetaObject::invokeMethod(window.find(QStringLiteral("next-part-a1")),
                                                 "clicked");
                   });
    for (const QSize size : {QSize(), narrow})
        tour.state(
            size.isValid() ? "composer-images-narrow" : "composer-images", sessionsScenario(),
            [](BridgeUnderTest& bridge, BridgeWindow& window) {
                openThreeTabs(bridge);
                attachImages(bridge, window);
            },
            false, size);
    for (const bool unfolded : {false, true})
        for (const QSize size : {QSize(), narrow})
            tour.state(
                QStringLiteral("changes-card") + (unfolded ? "-unfolded" : "") +
                    (size.isValid() ? "-narrow" : ""),
                sessionsScenario(),
                [unfolded](BridgeUnderTest& bridge, BridgeWindow& window) {
                    openThreeTabs(bridge);
                    finishTurnWithChanges(bridge);
                    if (!unfolded)
                        return;
                    Tour::settle();
                    QMetaObject::invokeMethod(window.find(QStringLiteral("change-link-f1-0")),
                                              "clicked");
                },
                false, size);
    tour.state(
        "setup-cockpit-narrow", "{}",
        [](BridgeUnderTest& bridge, BridgeWindow& window) {
            ready(bridge);
            Tour::showSetupPage(window);
        },
        false, narrow);
    tour.state("sessions-empty", sessionsScenario(), [](BridgeUnderTest& bridge, BridgeWindow&) {
        ready(bridge);
        waitFor([&] { return bridge.workspace().threads().size() == 6; });
    });
    for (const QSize size : {QSize(), narrow})
        tour.state(
            size.isValid() ? "sessions-new-session-narrow" : "sessions-new-session",
            sessionsScenario(),
            [](BridgeUnderTest& bridge, BridgeWindow& window) {
                ready(bridge);
                window.sessions().showNewSession();
            },
            false, size);
    tour.state("session-header-ask-mode", sessionsScenario(),
               [](BridgeUnderTest& bridge, BridgeWindow&) {
                   openThreeTabs(bridge);
                   bridge.workspace().setPermissionMode("ask", "thr_1");
               });
    for (const char* step : {"session-actions-menu", "session-rename-sheet"})
        tour.state(step, sessionsScenario(), [step](BridgeUnderTest& bridge, BridgeWindow& window) {
            openThreeTabs(bridge);
            Tour::settle();
            QMetaObject::invokeMethod(window.find(QStringLiteral("session-actions")), "clicked");
            if (QLatin1String(step) == QLatin1String("session-rename-sheet")) {
                Tour::settle();
                QMetaObject::invokeMethod(window.find(QStringLiteral("session-rename")),
                                          "triggered");
            }
        });
    tour.state("session-loading", sessionsScenario(), [](BridgeUnderTest& bridge, BridgeWindow&) {
        openThreeTabs(bridge);
        bridge.workspace().changeSession("thr_1", [](CodexSessionState& session) {
            session.transcript.clear();
            session.isLoadingTranscript = true;
        });
    });
    tour.state("session-unavailable", sessionsScenario(),
               [](BridgeUnderTest& bridge, BridgeWindow&) {
                   openThreeTabs(bridge);
                   bridge.workspace().changeSession("thr_1", [](CodexSessionState& session) {
                       session.transcript.clear();
                       session.transcriptLoadError =
                           QStringLiteral("Codex took too long to return this session.");
                   });
               });
    tour.state("session-ready-for-task", sessionsScenario(),
               [](BridgeUnderTest& bridge, BridgeWindow&) {
                   openThreeTabs(bridge);
                   bridge.workspace().changeSession(
                       "thr_1", [](CodexSessionState& session) { session.transcript.clear(); });
               });
    tour.state("session-older-page", sessionsScenario(),
               [](BridgeUnderTest& bridge, BridgeWindow& window) {
                   openThreeTabs(bridge);
                   window.sessions().sessionView()->showEarlier();
               });
    tour.state("session-follow-live", sessionsScenario(),
               [](BridgeUnderTest& bridge, BridgeWindow& window) {
                   openThreeTabs(bridge);
                   fillSession(bridge, true, 60);
                   Tour::settle();
                   window.sessions().sessionView()->userMoved(-200);
               });
    tour.state(
        "session-question", sessionsScenario(), [](BridgeUnderTest& bridge, BridgeWindow& window) {
            openThreeTabs(bridge);
            window.sessions().sessionView()->showEarlier();
            UserInputRequest request{"q-1", SessionGallery::threadID, "turn-1", {}, false};
            request.questions.push_back(
                {"db", "Storage", "Which database should the service use?",
                 std::vector<UserInputQuestion::Option>{{"Postgres", "A server, for production"},
                                                        {"SQLite", "One file, for tests"}},
                 std::nullopt});
            bridge.workspace().addUserInputPrompt(request);
        });
    tour.state("offline-tour-after-message", sessionsScenario(),
               [](BridgeUnderTest& bridge, BridgeWindow&) {
                   openThreeTabs(bridge);
                   bridge.workspace().setDemoMode(true);
                   bridge.workspace().send(QStringLiteral("Show me around"), "thr_3");
                   bridge.workspace().selectThread("thr_3");
                   bridge.scheduler.advance(CodexWorkspace::demoReplyDelaySeconds);
                   waitFor([&] {
                       return bridge.workspace().sessionState("thr_3").turnControl.phase ==
                              TurnControlState::Phase::Idle;
                   });
               });
    tour.galleryState(
        "usage-session-context",
        [](BridgeUnderTest& bridge) {
            fillSession(bridge, false);
            bridge.workspace().handleNotification(
                QStringLiteral("thread/tokenUsage/updated"),
                json(R"({"threadId": "thr_1", "tokenUsage": {"modelContextWindow": 272000,
                    "total": {"totalTokens": 1843200, "inputTokens": 1790000, "cachedInputTokens": 1520000,
                              "outputTokens": 53200, "reasoningOutputTokens": 31000},
                    "last": {"totalTokens": 204000}}})"));
        },
        [](QQuickWindow* window) { QMetaObject::invokeMethod(window, "openUsage"); });
    return tour.failures() == 0 ? 0 : 1;
}
