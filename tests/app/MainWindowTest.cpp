#include "app/BridgeWindow.h"
#include "support/BridgeUnderTest.h"
#include "support/EventLoop.h"
#include "support/RunningProgram.h"
#include "ui/sessions/BridgeWorkspaceViewModel.h"

#include <QDirIterator>
#include <QFile>
#include <QGuiApplication>
#include <QQuickItem>
#include <QQuickTextDocument>
#include <QQuickWindow>
#include <QStyleHints>
#include <QTest>
#include <QTextBlock>
#include <QTextDocument>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

// The real window, shown offscreen over a controller that talks to the fake engine.
struct ShownWindow {
    explicit ShownWindow(BridgeUnderTest& bridge)
        : window(bridge.controller(), bridge.defaults)
    {
        if (window.mainWindow()) {
            window.mainWindow()->show();
            EXPECT_TRUE(QTest::qWaitForWindowExposed(window.mainWindow()));
        }
    }
    QQuickItem* item(const char* name) const
    {
        return qobject_cast<QQuickItem*>(window.find(name));
    }
    QString text(const char* name) const { return window.find(name)->property("text").toString(); }
    // The item of this name drawn in the main window (the Settings window holds some names too).
    QQuickItem* shownItem(const char* name) const
    {
        std::function<QQuickItem*(QQuickItem*)> search = [&](QQuickItem* item) -> QQuickItem* {
            if (item->objectName() == QLatin1String(name))
                return item;
            for (QQuickItem* child : item->childItems())
                if (QQuickItem* found = search(child))
                    return found;
            return nullptr;
        };
        return search(window.mainWindow()->contentItem());
    }
    // A mouse click in the middle of the item, where the user would press it.
    void click(QQuickItem* target) const
    {
        ASSERT_TRUE(target && target->isVisible());
        QTest::mouseClick(
            target->window(), Qt::LeftButton, {},
            target->mapToScene(QPointF(target->width() / 2, target->height() / 2)).toPoint());
    }

    BridgeWindow window;
};

const char* approvalScenario = R"({"cues": [{"when": "approve", "actions": [
    {"send": {"id": 0, "method": "item/commandExecution/requestApproval", "params": {"threadId": "t", "turnId": "u", "command": "make test", "cwd": "/srv/\u202Eniam"}}},
    {"send": {"id": 1, "method": "item/fileChange/requestApproval", "params": {"threadId": "t", "turnId": "u"}}}]}]})";

bool engineRead(BridgeUnderTest& bridge, const char* message)
{
    return waitFor([&] {
        const auto received = bridge.engine.received();
        return std::any_of(received.begin(), received.end(),
                           [&](const JSONValue& m) { return m == json(message); });
    });
}

// Keys typed into the focused field, one by one.
void typeInto(QWindow* window, const QString& text)
{
    for (const QChar c : text)
        QTest::keyClick(window, c.toLatin1());
}

const char* askingScenario = R"({"cues": [
  {"when": "access", "actions": [{"send": {"id": 5, "method": "item/permissions/requestApproval",
    "params": {"threadId": "t", "turnId": "u", "itemId": "c", "cwd": "/srv", "reason": "Needs the cache",
     "permissions": {"fileSystem": {"write": ["/var/cache/app"]}}}}}]},
  {"when": "form", "actions": [{"send": {"id": 6, "method": "mcpServer/elicitation/request",
    "params": {"threadId": "t", "serverName": "tickets", "mode": "form", "message": "New ticket",
     "requestedSchema": {"type": "object", "required": ["title"], "properties": {
       "title": {"type": "string", "title": "Title"},
       "team": {"type": "string", "oneOf": [{"const": "build", "title": "Build"}, {"const": "core", "title": "Core"}]},
       "notify": {"type": "boolean", "default": true}}}}}}]},
  {"when": "grants", "actions": [{"send": {"id": 8, "method": "item/permissions/requestApproval",
    "params": {"threadId": "t", "turnId": "u", "itemId": "c", "permissions": {"network": {"enabled": true},
      "fileSystem": {"read": ["/home/ada/xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"], "write": ["/srv/0", "/srv/1", "/srv/2", "/srv/3", "/srv/4", "/srv/5", "/srv/6", "/srv/7", "/srv/8", "/srv/9", "/srv/10", "/srv/11", "/srv/12", "/srv/13", "/srv/14", "/srv/15", "/srv/16", "/srv/17", "/srv/18", "/srv/19", "/srv/20", "/srv/21", "/srv/22", "/srv/23", "/srv/24", "/srv/25", "/srv/26", "/srv/27", "/srv/28", "/srv/29", "/srv/30", "/srv/31", "/srv/32", "/srv/33", "/srv/34", "/srv/35", "/srv/36", "/srv/37", "/srv/38", "/srv/39", "/srv/40", "/srv/41", "/srv/42", "/srv/43", "/srv/44", "/srv/45", "/srv/46", "/srv/47", "/srv/48", "/srv/49", "/srv/50", "/srv/51", "/srv/52", "/srv/53", "/srv/54", "/srv/55", "/srv/56", "/srv/57"],
        "entries": [{"access": "write", "path": {"type": "special", "value": {"kind": "root"}}}]}}}}}]},
  {"when": "unreadable", "actions": [{"send": {"id": 9, "method": "item/permissions/requestApproval",
    "params": {"threadId": "t", "turnId": "u", "itemId": "c", "permissions": {"fileSystem": {"entries": [
      {"access": "write", "path": {"type": "special", "value": {"kind": "everything"}}}]}}}}}]},
  {"when": "address", "actions": [{"send": {"id": 7, "method": "mcpServer/elicitation/request",
    "params": {"threadId": "t", "serverName": "calendar", "mode": "url", "elicitationId": "e",
     "message": "Authorise", "url": "https://calendar.example/consent"}}}]}]})";

} // namespace

TEST(MainWindow, MoreAccessAFormAndAnAddressAreDecidedInTheSheet)
{
    BridgeUnderTest bridge(json(askingScenario));
    ShownWindow shown(bridge);
    ASSERT_TRUE(shown.window.mainWindow());
    QList<QUrl> opened;
    shown.window.setup().openAddress = [&](const QUrl& url) { opened.append(url); };
    ASSERT_TRUE(waitFor([&] { return bridge.controller().appServerReady(); }));
    QObject* sheet = shown.window.find("approvalSheet");

    bridge.say("access");
    ASSERT_TRUE(waitFor([&] { return sheet->property("opened").toBool(); }));
    EXPECT_EQ(shown.text("approvalTitle"), "Grant additional access?");
    EXPECT_EQ(shown.text("approvalAccess"), "Write: /var/cache/app");
    EXPECT_EQ(shown.text("acceptForSessionButton"), "Allow for This Session");
    shown.click(shown.item("acceptForSessionButton"));
    ASSERT_TRUE(engineRead(
        bridge,
        R"({"id":5,"result":{"permissions":{"fileSystem":{"write":["/var/cache/app"]}},"scope":"session"}})"));

    // A form sends nothing while a required field is empty, then what the user gave.
    bridge.say("form");
    ASSERT_TRUE(
        waitFor([&] { return shown.text("approvalTitle") == "tickets asks for your input"; }));
    ASSERT_TRUE(waitFor([&] { return shown.item("form-field-title") != nullptr; }));
    shown.click(shown.item("acceptButton"));
    ASSERT_TRUE(waitFor([&] { return shown.text("approvalFormError") == "Title is required."; }));
    shown.click(shown.item("form-field-title"));
    typeInto(shown.window.mainWindow(), "Printer jams");
    shown.click(shown.item("acceptButton"));
    ASSERT_TRUE(engineRead(
        bridge,
        R"({"id":6,"result":{"action":"accept","content":{"title":"Printer jams","notify":true}}})"));

    // An address opens only on the user's click, and is answered once they say they are done.
    bridge.say("address");
    ASSERT_TRUE(waitFor([&] {
        return shown.item("openRequestedAddress") &&
               shown.item("openRequestedAddress")->isVisible();
    }));
    settle(100);
    EXPECT_TRUE(opened.isEmpty());
    shown.click(shown.item("openRequestedAddress"));
    EXPECT_EQ(opened, QList<QUrl>{QUrl("https://calendar.example/consent")});
    EXPECT_TRUE(sheet->property("visible").toBool());
    shown.click(shown.item("acceptButton"));
    ASSERT_TRUE(engineRead(bridge, R"({"id":7,"result":{"action":"accept"}})"));
    EXPECT_TRUE(waitFor([&] { return !sheet->property("visible").toBool(); }));
}

TEST(MainWindow, MoreAccessShowsEveryGrantBeforeAnyIsGivenAndAnUnreadableRequestIsRefused)
{
    BridgeUnderTest bridge(json(askingScenario));
    ShownWindow shown(bridge);
    ASSERT_TRUE(shown.window.mainWindow());
    ASSERT_TRUE(waitFor([&] { return bridge.controller().appServerReady(); }));
    QObject* sheet = shown.window.find("approvalSheet");

    bridge.say("unreadable");
    ASSERT_TRUE(waitFor([&] {
        const auto received = bridge.engine.received();
        return std::any_of(received.begin(), received.end(), [](const JSONValue& m) {
            return m["id"] == JSONValue(9) && m.find("error");
        });
    }));
    EXPECT_FALSE(sheet->property("opened").toBool());

    bridge.say("grants");
    ASSERT_TRUE(waitFor([&] { return sheet->property("opened").toBool(); }));
    const QString longPath = QStringLiteral("/home/ada/") + QString(1990, QLatin1Char('x'));
    QStringList first = shown.text("approvalAccess").split('\n');
    ASSERT_EQ(first.size(), 12);
    EXPECT_EQ(first[0], "Network access");
    EXPECT_EQ(first[1], "Read: " + longPath);
    EXPECT_EQ(shown.text("approvalAccessMore"), "and 49 more");
    EXPECT_EQ(shown.text("approvalAccessToggle"), "Show all 61");
    shown.click(shown.shownItem("approvalAccessToggle"));
    ASSERT_TRUE(waitFor([&] { return shown.text("approvalAccess").count('\n') == 60; }));
    EXPECT_TRUE(shown.text("approvalAccess").endsWith("Write: /srv/57\nWrite: the whole disk"));
    EXPECT_EQ(shown.text("approvalAccessToggle"), "Show fewer");
    shown.click(shown.item("acceptButton"));
    ASSERT_TRUE(waitFor([&] {
        const auto received = bridge.engine.received();
        return std::any_of(received.begin(), received.end(), [](const JSONValue& m) {
            return m["id"] == JSONValue(8) &&
                   m["result"].value_or(JSONValue())["scope"] == JSONValue("turn");
        });
    }));
}

TEST(MainWindow, SignsInByBrowserCodeOrKeyAndTheKeyLeavesNoTrace)
{
    const char* secret = "sk-test-NEVER-LOGGED-4711";
    // Signed out until the third check; each sign-in completes once the engine next lists threads.
    BridgeUnderTest bridge(json(R"({"methods": {"account/read": [
          {"result": {"account": null}}, {"result": {"account": null}}, {"result": {"account": null}},
          {"result": {"account": {"type": "apiKey"}}}]},
        "login": {"completeOn": "thread/list"}})"));
    ShownWindow shown(bridge);
    ASSERT_TRUE(shown.window.mainWindow());
    QList<QUrl> opened;
    shown.window.setup().openAddress = [&](const QUrl& url) { opened.append(url); };
    shown.click(shown.item("bridgeSetupPage"));
    ASSERT_TRUE(waitFor([&] { return shown.shownItem("signInPanel") != nullptr; }));
    const auto completeSignIn = [&] { bridge.workspace().refreshThreads(); };

    // ChatGPT: the address Codex gives opens in the browser; the account is checked again after.
    shown.click(shown.shownItem("signInChatGPT"));
    ASSERT_TRUE(waitFor([&] { return !opened.isEmpty(); }))
        << bridge.controller().logs().join("\n").toStdString();
    EXPECT_EQ(opened, QList<QUrl>{QUrl("https://auth.example.invalid/oauth/authorize")});
    const long checks = bridge.received("account/read");
    completeSignIn();
    ASSERT_TRUE(waitFor([&] { return bridge.received("account/read") == checks + 1; }));

    // A code: the address and the code to enter there, from any device.
    ASSERT_TRUE(waitFor([&] { return shown.shownItem("signInCodeButton")->isEnabled(); }));
    shown.click(shown.shownItem("signInCodeButton"));
    ASSERT_TRUE(waitFor(
        [&] { return shown.shownItem("signInCode")->property("text").toString() == "ABCD-1234"; }));
    EXPECT_EQ(shown.shownItem("signInAddress")->property("text").toString(),
              "https://auth.example.invalid/device");
    EXPECT_EQ(opened.size(), 1);
    completeSignIn();
    ASSERT_TRUE(waitFor([&] { return bridge.received("account/read") == checks + 2; }));

    // A key: sent once, the field emptied, the account row updated.
    ASSERT_TRUE(waitFor([&] { return shown.shownItem("apiKeyField")->isEnabled(); }));
    shown.click(shown.shownItem("apiKeyField"));
    typeInto(shown.window.mainWindow(), secret);
    shown.click(shown.shownItem("signInAPIKey"));
    ASSERT_TRUE(waitFor([&] { return bridge.received("account/login/start") == 3; }));
    EXPECT_EQ(shown.shownItem("apiKeyField")->property("text").toString(), "");
    completeSignIn();
    ASSERT_TRUE(waitFor(
        [&] { return bridge.controller().codexAccountStatus() == "Signed in with apiKey"; }));
    EXPECT_TRUE(waitFor([&] { return shown.shownItem("signInPanel") == nullptr; }));
    const auto received = bridge.engine.received();
    EXPECT_TRUE(std::any_of(received.begin(), received.end(), [&](const JSONValue& message) {
        const JSONValue* params = message.find("params");
        return params && params->find("apiKey") && *params->find("apiKey") == JSONValue(secret);
    }));

    // The key is in no log line and no file of the bridge's.
    for (const QString& line : bridge.controller().logs())
        EXPECT_FALSE(line.contains(secret)) << line.toStdString();
    bridge.defaults.setValue("flush", true);
    QDirIterator files(bridge.home.path(), QDir::Files | QDir::Hidden,
                       QDirIterator::Subdirectories);
    int read = 0;
    while (files.hasNext()) {
        QFile file(files.next());
        if (file.open(QIODevice::ReadOnly)) {
            ++read;
            EXPECT_FALSE(file.readAll().contains(secret)) << file.fileName().toStdString();
        }
    }
    EXPECT_GT(read, 0);
}

// The params of the last request of method the engine read.
JSONValue lastParams(BridgeUnderTest& bridge, const char* method)
{
    JSONValue params;
    for (const JSONValue& message : bridge.engine.received())
        if (message.find("method") && *message.find("method") == JSONValue(method))
            params = message.find("params") ? *message.find("params") : JSONValue();
    return params;
}

TEST(MainWindow, ANewSessionsModeAndTheHeadersChoiceReachCodex)
{
    BridgeUnderTest bridge(json(R"({"methods": {
        "thread/list": {"result": {"data": [{"id": "thr_new", "preview": "Look around", "cwd": "/work"}]}},
        "thread/start": {"result": {"thread": {"id": "thr_new"}}},
        "turn/start": {"result": {"turn": {"id": "T1"}}}}})"));
    {
        ShownWindow shown(bridge);
        ASSERT_TRUE(shown.window.mainWindow());
        ASSERT_TRUE(waitFor([&] { return bridge.controller().appServerReady(); }));

        // The sheet offers full access first; the user asks to be asked.
        shown.click(shown.shownItem("new-session"));
        ASSERT_TRUE(waitFor([&] { return shown.shownItem("permission-mode-ask") != nullptr; }));
        EXPECT_TRUE(shown.shownItem("permission-mode-full-access")->property("checked").toBool());
        shown.click(shown.shownItem("permission-mode-ask"));
        shown.click(shown.shownItem("new-session-create"));
        ASSERT_TRUE(waitFor([&] { return bridge.received("thread/start") == 1; }));
        EXPECT_EQ(lastParams(bridge, "thread/start")["approvalPolicy"], JSONValue("untrusted"));
        EXPECT_EQ(lastParams(bridge, "thread/start")["sandbox"], JSONValue("workspace-write"));

        // The header shows the mode; read only, chosen there, goes with the next turn.
        ASSERT_TRUE(waitFor([&] {
            QQuickItem* pill = shown.shownItem("session-permission-selector");
            return pill && pill->property("label").toString() == "Ask before acting";
        }));
        shown.click(shown.shownItem("session-permission-selector"));
        ASSERT_TRUE(
            waitFor([&] { return shown.shownItem("session-permission-read-only") != nullptr; }));
        shown.click(shown.shownItem("session-permission-read-only"));
        ASSERT_TRUE(waitFor([&] {
            return shown.shownItem("session-permission-selector")->property("label").toString() ==
                   "Read only";
        }));
        shown.window.find("composer")->setProperty("text", "Look around");
        shown.click(shown.shownItem("composer-send"));
        ASSERT_TRUE(waitFor([&] { return bridge.received("turn/start") == 1; }));
        EXPECT_EQ(lastParams(bridge, "thread/resume")["sandbox"], JSONValue("read-only"));
        EXPECT_EQ(lastParams(bridge, "turn/start")["approvalPolicy"], JSONValue("on-request"));
        EXPECT_EQ(lastParams(bridge, "turn/start")["sandboxPolicy"],
                  json(R"({"type":"readOnly"})"));
    }

    // After a restart the reopened tab still shows read only, and its next turn carries it.
    bridge.restart();
    ShownWindow shown(bridge);
    ASSERT_TRUE(waitFor([&] { return bridge.controller().appServerReady(); }));
    ASSERT_TRUE(waitFor([&] {
        QQuickItem* pill = shown.shownItem("session-permission-selector");
        return pill && pill->property("label").toString() == "Read only";
    }));
    shown.window.find("composer")->setProperty("text", "Go on");
    shown.click(shown.shownItem("composer-send"));
    ASSERT_TRUE(waitFor([&] { return bridge.received("turn/start") == 2; }));
    EXPECT_EQ(lastParams(bridge, "thread/resume")["sandbox"], JSONValue("read-only"));
    EXPECT_EQ(lastParams(bridge, "turn/start")["sandboxPolicy"], json(R"({"type":"readOnly"})"));
}

namespace {

// A listed session whose turn sends its diff and echoes the message's input items back.
const char* changesScenario = R"({
    "methods": {
        "thread/list": {"result": {"data": [{"id": "thr_1", "preview": "Fix the build", "cwd": "/work",
            "source": "cli", "status": {"type": "idle"}, "updatedAt": 1700000000}]}},
        "turn/start": {"result": {"turn": {"id": "turn-1"}}}},
    "cues": [{"when": "Fix the build", "actions": [{"streamTurn": {"threadId": "thr_1", "turnId": "turn-1",
        "echoInput": true, "reply": "## Fixed\n\nThe flags now read `-O2`. <script>alert(1)</script> <img src=\"http://127.0.0.1:9/x.png\"> [run](javascript:alert(1)) [docs](https://example.com/d)\n",
        "diff": "diff --git a/Makefile b/Makefile\n--- a/Makefile\n+++ b/Makefile\n@@ -1,2 +1,3 @@\n all:\n-CFLAGS=-O0\n+CFLAGS=-O2\n+LDFLAGS=-s\ndiff --git a/notes.txt b/notes.txt\ndeleted file mode 100644\n--- a/notes.txt\n+++ /dev/null\n@@ -1 +0,0 @@\n-old\n"}}]}]})";

// The listed session opened in the window, with a photo larger than the limit attached, chosen as
// the file dialog would hand it over.
void openWithPhoto(BridgeUnderTest& bridge, ShownWindow& shown, const QImage& photo)
{
    ASSERT_TRUE(shown.window.mainWindow());
    ASSERT_TRUE(waitFor([&] { return bridge.workspace().threads().size() == 1; }));
    bridge.workspace().openThread("thr_1");
    bridge.workspace().selectThread("thr_1");
    ASSERT_TRUE(waitFor([&] { return shown.window.find("composer-attach") != nullptr; }));
    const QString path = bridge.home.filePath("photo.png");
    ASSERT_TRUE(photo.save(path));
    shown.window.sessions().sessionView()->composerImages()->attachFiles(
        {QUrl::fromLocalFile(path)});
    ASSERT_TRUE(waitFor([&] { return shown.window.find("composer-image-0") != nullptr; }));
}

} // namespace

// A message larger than Codex reads, pasted with a photo: refused once the click is handled, before
// anything is sent or shown as sent; the words and the photo stay in the composer.
TEST(MainWindow, AMessageTooLargeToSendIsRefusedAtOnceAndStaysInTheComposer)
{
    BridgeUnderTest bridge(json(changesScenario));
    ShownWindow shown(bridge);
    QImage photo(4000, 3000, QImage::Format_ARGB32);
    photo.fill(QColor(0x20, 0x80, 0xc0, 0x80));
    ASSERT_NO_FATAL_FAILURE(openWithPhoto(bridge, shown, photo));
    MacSessionViewModel* session = shown.window.sessions().sessionView();

    const QString line =
        QStringLiteral("A line of a log pasted whole into the message. ").repeated(20) + '\n';
    QString huge;
    while (huge.size() < 20 * 1024 * 1024)
        huge += line;
    session->setDraft(huge);
    shown.click(shown.item("composer-send"));
    ASSERT_TRUE(bridge.workspace().errorMessage().has_value());
    EXPECT_TRUE(
        shown.text("codexAlertMessage").startsWith("This message is too large to send (20."))
        << shown.text("codexAlertMessage").left(200).toStdString();
    EXPECT_EQ(shown.text("composer").size(), huge.size());
    EXPECT_NE(shown.window.find("composer-image-0"), nullptr);
    EXPECT_EQ(bridge.received("turn/start") + bridge.received("thread/resume"), 0);
}

TEST(MainWindow, ATurnSentWithAnImageShowsItAndItsChangesCard)
{
    BridgeUnderTest bridge(json(changesScenario));
    ShownWindow shown(bridge);
    QImage photo(4000, 3000, QImage::Format_RGB32);
    photo.fill(QColor(0x20, 0x80, 0xc0));
    ASSERT_NO_FATAL_FAILURE(openWithPhoto(bridge, shown, photo));
    MacSessionViewModel* session = shown.window.sessions().sessionView();
    session->setDraft(QStringLiteral("Fix the build"));
    shown.click(shown.item("composer-send"));

    ASSERT_TRUE(waitFor([&] { return bridge.received("turn/start") == 1; }));
    JSONValue input;
    for (const JSONValue& message : bridge.engine.received())
        if (message["method"]->stringView() == std::string_view("turn/start"))
            input = *(*message["params"])["input"];
    ASSERT_EQ(input.items().size(), 2u);
    EXPECT_EQ(*input.items()[0]["text"]->stringView(), "Fix the build");
    EXPECT_EQ(*input.items()[1]["type"]->stringView(), "image");
    const QString url = QString::fromUtf8(*input.items()[1]["url"]->stringView());
    ASSERT_TRUE(url.startsWith("data:image/jpeg;base64,")) << url.left(40).toStdString();
    const QImage sent = QImage::fromData(QByteArray::fromBase64(url.section(',', 1).toLatin1()));
    EXPECT_EQ(sent.size(), QSize(2048, 1536));
    EXPECT_TRUE(waitFor([&] { return shown.window.find("composer-image-0") == nullptr; }));

    // The engine's copy of the message shows the image; the turn's changes follow its reply.
    ASSERT_TRUE(waitFor([&] {
        bridge.scheduler.advance(0.2);
        return shown.window.find("changes-turn-1") != nullptr &&
               shown.window.find("image-turn-1-user-0") != nullptr;
    }));
    EXPECT_EQ(shown.text("changes-summary-turn-1"), "2 files changed  +2 −2");
    EXPECT_EQ(shown.text("added-changes-file-0-turn-1"), "+2");
    EXPECT_EQ(shown.text("removed-changes-file-0-turn-1"), "−1");
    EXPECT_EQ(shown.text("removed-changes-file-1-turn-1"), "−1");
    EXPECT_FALSE(shown.item("diff-changes-file-0-turn-1")->isVisible());
    shown.click(shown.item("toggle-changes-file-0-turn-1"));
    EXPECT_TRUE(waitFor([&] { return shown.item("diff-changes-file-0-turn-1")->isVisible(); }));
    EXPECT_EQ(shown.text("diff-changes-file-0-turn-1"),
              "@@ -1,2 +1,3 @@\n all:\n-CFLAGS=-O0\n+CFLAGS=-O2\n+LDFLAGS=-s");
    // The reply is Markdown: a heading, then a paragraph whose markup is text and whose only link
    // is the web one.
    EXPECT_TRUE(waitFor([&] { return shown.window.find("markdown-heading-0") != nullptr; }));
    QObject* paragraph = shown.window.find("markdown-paragraph-1");
    ASSERT_TRUE(paragraph);
    QObject* spans = nullptr;
    for (QObject* child : paragraph->findChildren<QObject*>())
        if (child->property("textDocument").isValid())
            spans = child;
    ASSERT_TRUE(spans);
    const QTextDocument* document =
        spans->property("textDocument").value<QQuickTextDocument*>()->textDocument();
    EXPECT_EQ(document->toPlainText(),
              "The flags now read -O2. <script>alert(1)</script> "
              "<img src=\"http://127.0.0.1:9/x.png\"> run (javascript:alert(1)) docs "
              "(https://example.com/d)");
    QStringList anchors;
    for (QTextBlock block = document->begin(); block.isValid(); block = block.next())
        for (auto fragment = block.begin(); !fragment.atEnd(); ++fragment)
            if (fragment.fragment().charFormat().isAnchor())
                anchors.append(fragment.fragment().charFormat().anchorHref());
    EXPECT_EQ(anchors, QStringList({"https://example.com/d"}));
}

TEST(MainWindow, ApprovalsAreDecidedInTheSheetOneAfterAnother)
{
    BridgeUnderTest bridge(json(approvalScenario));
    ShownWindow shown(bridge);
    ASSERT_TRUE(shown.window.mainWindow()) << "Main.qml did not load";
    ASSERT_TRUE(waitFor([&] { return bridge.controller().appServerReady(); }));
    EXPECT_EQ(shown.text("appServerStatus"), "Codex app-server ready");
    QObject* sheetObject = shown.window.find("approvalSheet");
    ASSERT_TRUE(sheetObject);
    EXPECT_FALSE(sheetObject->property("visible").toBool());

    bridge.say("approve");
    ASSERT_TRUE(waitFor([&] { return sheetObject->property("opened").toBool(); }));
    EXPECT_EQ(shown.text("approvalTitle"), "Run this command?");
    EXPECT_EQ(shown.window.find("approvalCommand")->property("text"), "make test");
    // The engine's text shows its bidirectional controls instead of obeying them.
    EXPECT_EQ(shown.text("approvalCwd"), "/srv/\\u202Eniam");

    // Escape and a click outside leave it open: only its buttons decide.
    QTest::keyClick(shown.window.mainWindow(), Qt::Key_Escape);
    QTest::mouseClick(shown.window.mainWindow(), Qt::LeftButton, {}, QPoint(5, 5));
    QTest::qWait(QGuiApplication::styleHints()->mouseDoubleClickInterval() + 50);
    EXPECT_TRUE(sheetObject->property("visible").toBool());

    shown.click(shown.item("acceptButton"));
    ASSERT_TRUE(engineRead(bridge, R"({"id":0,"result":{"decision":"accept"}})"));
    // The queued approval takes the sheet's place.
    ASSERT_TRUE(waitFor([&] { return shown.text("approvalTitle") == "Apply file changes?"; }));
    EXPECT_TRUE(sheetObject->property("visible").toBool());
    EXPECT_FALSE(shown.item("approvalCommand")->isVisible());
    shown.click(shown.item("declineButton"));
    ASSERT_TRUE(engineRead(bridge, R"({"id":1,"result":{"decision":"decline"}})"));
    EXPECT_TRUE(waitFor([&] { return !sheetObject->property("visible").toBool(); }));
}

TEST(MainWindow, PairsTheDeviceWhoseCodeItShows)
{
    BridgeUnderTest bridge(json("{}"));
    ShownWindow shown(bridge);
    ASSERT_TRUE(shown.window.mainWindow());
    shown.click(shown.item("bridgeSetupPage"));
    EXPECT_FALSE(shown.item("pairingSection")->isVisible());
    EXPECT_TRUE(shown.item("noTrustedDevices")->isVisible());

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HOME", bridge.home.filePath("peer-home"));
    RunningProgram peer(NIMBREL_PEER_PATH,
                        {"--host", "127.0.0.1", "--port", QString::number(bridge.port()), "--name",
                         "Ada's Phone", "--state", bridge.home.filePath("peer")},
                        environment);
    peer.type("pair");
    const QString code = peer.captured("Pairing code: (\\d{6})");
    ASSERT_EQ(code.size(), 6) << peer.err.toStdString();
    ASSERT_TRUE(waitFor([&] { return shown.item("pairingSection")->isVisible(); }));
    EXPECT_EQ(shown.text("pairingCode"), code);

    shown.click(shown.item("pairButton"));
    EXPECT_TRUE(peer.saysOnOutput(R"("kind":"pairingAccepted")")) << peer.err.toStdString();
    EXPECT_TRUE(waitFor([&] { return !shown.item("pairingSection")->isVisible(); }));
    EXPECT_FALSE(shown.item("noTrustedDevices")->isVisible());
    ASSERT_EQ(bridge.controller().trustedPeers().size(), 1u);

    shown.click(shown.item("forgetButton"));
    EXPECT_TRUE(bridge.controller().trustedPeers().empty());
    EXPECT_TRUE(waitFor([&] { return shown.item("noTrustedDevices")->isVisible(); }));
}

TEST(MainWindow, WithoutCodexTheEmptyPageOffersTheTourWhoseSessionsAnswer)
{
    BridgeUnderTest bridge(json("{}"));
    bridge.home.setPath(bridge.home.filePath("nowhere"));
    bridge.controller().restartCodex();
    ShownWindow shown(bridge);
    ASSERT_TRUE(shown.window.mainWindow());
    ASSERT_TRUE(waitFor([&] { return shown.item("start-tour")->isVisible(); }));
    EXPECT_TRUE(shown.item("tour-offer-text")->isVisible());

    shown.click(shown.item("start-tour"));
    ASSERT_TRUE(waitFor([&] { return shown.window.find("composer") != nullptr; }));
    EXPECT_FALSE(shown.item("start-tour")->isVisible());
    for (const char* tab :
         {"tab-demo-thread-build", "tab-demo-thread-question", "tab-demo-thread-notes"})
        EXPECT_TRUE(shown.window.find(tab)) << tab;
    EXPECT_TRUE(shown.window.find("thread-demo-thread-notes"));
    // The finished session shows a card of every kind.
    for (const char* card : {"card-demo-build-1", "card-demo-build-2", "card-demo-build-3",
                             "card-demo-build-4", "card-demo-build-6", "card-demo-build-7"})
        EXPECT_TRUE(waitFor([&] { return shown.window.find(card) != nullptr; })) << card;

    shown.window.find("composer")->setProperty("text", "What changed?");
    shown.click(shown.item("composer-send"));
    bridge.scheduler.advance(CodexWorkspace::demoReplyDelaySeconds);
    const auto replied = [&] {
        const std::vector<TranscriptEntry>& transcript =
            bridge.workspace().sessionState("demo-thread-build").transcript;
        return transcript.size() == 9 && transcript.back().title == "Offline Demo";
    };
    ASSERT_TRUE(waitFor(replied));
    const QString replyCard =
        "card-" + bridge.workspace().sessionState("demo-thread-build").transcript.back().id;
    EXPECT_TRUE(waitFor([&] { return shown.window.find(replyCard) != nullptr; }));
    EXPECT_FALSE(bridge.controller().appServerReady());
}

namespace {

const char* sessionActionsScenario = R"({
  "methods": {
    "thread/list": {"result": {"nextCursor": null, "data": [
      {"id": "thr_a", "name": "Dark mode", "preview": "add a dark mode", "cwd": "/work/app"},
      {"id": "thr_b", "name": null, "preview": "fix the tests", "cwd": "/work/app"}]}},
    "thread/fork": {"result": {"thread": {"id": "thr_copy", "name": null, "preview": "add a dark mode", "cwd": "/work/app"}}},
    "thread/turns/list": {"result": {"data": [], "nextCursor": null}}
  },
  "cues": [{"when": "archive-elsewhere", "actions": [
    {"send": {"method": "thread/archived", "params": {"threadId": "thr_b"}}}]}]})";

} // namespace

TEST(MainWindow, SessionsAreRenamedForkedAndArchivedFromTheirMenus)
{
    BridgeUnderTest bridge(json(sessionActionsScenario));
    ShownWindow shown(bridge);
    ASSERT_TRUE(shown.window.mainWindow());
    ASSERT_TRUE(waitFor([&] { return shown.item("thread-thr_a") && shown.item("thread-thr_b"); }));

    // A right click on a row gives its menu; the name is typed in the sheet.
    QQuickItem* row = shown.item("thread-thr_a");
    QTest::mouseClick(row->window(), Qt::RightButton, {},
                      row->mapToScene(QPointF(row->width() / 2, row->height() / 2)).toPoint());
    ASSERT_TRUE(waitFor([&] { return shown.item("session-rename")->isVisible(); }));
    shown.click(shown.item("session-rename"));
    ASSERT_TRUE(
        waitFor([&] { return shown.window.find("rename-sheet")->property("opened").toBool(); }));
    EXPECT_EQ(shown.text("rename-field"), "Dark mode");
    shown.window.find("rename-field")->setProperty("text", "  Dark   mode, final ");
    shown.click(shown.item("rename-confirm"));
    ASSERT_TRUE(waitFor([&] { return !lastParams(bridge, "thread/name/set").isNull(); }));
    EXPECT_EQ(lastParams(bridge, "thread/name/set"),
              json(R"({"threadId":"thr_a","name":"Dark mode, final"})"));

    // The header's menu forks the open session; the copy opens in a tab of its own.
    ASSERT_TRUE(waitFor([&] { return shown.item("session-actions") != nullptr; }));
    shown.click(shown.item("session-actions"));
    ASSERT_TRUE(waitFor([&] { return shown.item("session-fork")->isVisible(); }));
    shown.click(shown.item("session-fork"));
    ASSERT_TRUE(waitFor([&] { return !lastParams(bridge, "thread/fork").isNull(); }));
    EXPECT_EQ(lastParams(bridge, "thread/fork"),
              json(R"({"threadId":"thr_a","excludeTurns":true})"));
    EXPECT_TRUE(waitFor([&] { return shown.window.find("tab-thr_copy") != nullptr; }));

    // Archiving asks first, then the session leaves the list and its tab.
    shown.click(shown.item("session-actions"));
    ASSERT_TRUE(waitFor([&] { return shown.item("session-archive")->isVisible(); }));
    shown.click(shown.item("session-archive"));
    ASSERT_TRUE(
        waitFor([&] { return shown.window.find("archive-sheet")->property("opened").toBool(); }));
    shown.click(shown.item("archive-confirm"));
    ASSERT_TRUE(waitFor([&] { return !lastParams(bridge, "thread/archive").isNull(); }));
    EXPECT_EQ(lastParams(bridge, "thread/archive"), json(R"({"threadId":"thr_copy"})"));
    EXPECT_TRUE(waitFor([&] { return shown.window.find("tab-thr_copy") == nullptr; }));

    // A session archived elsewhere leaves the list too.
    bridge.say("archive-elsewhere");
    EXPECT_TRUE(waitFor([&] { return shown.window.find("thread-thr_b") == nullptr; }));
    EXPECT_TRUE(shown.window.find("thread-thr_a"));
}
