#include "support/BridgeUnderTest.h"
#include "support/EventLoop.h"
#include "ui/BridgeSetupModel.h"
#include "ui/WindowPalette.h"

#include <QQmlApplicationEngine>
#include <QQuickWindow>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

// The real window over a controller, offscreen.
struct Window {
    explicit Window(BridgeUnderTest& bridge) : setup(bridge.controller(), bridge.defaults)
    {
        engine.setInitialProperties({{"controller", QVariant::fromValue<QObject*>(&bridge.controller())},
                                     {"workspace", QVariant::fromValue<QObject*>(&bridge.workspace())},
                                     {"setup", QVariant::fromValue<QObject*>(&setup)},
                                     {"palette_", QVariant::fromValue<QObject*>(&palette)}});
        engine.load(QUrl(QStringLiteral("qrc:/NimbrelBridge/ui/qml/Main.qml")));
    }
    QObject* root() const { return engine.rootObjects().value(0); }
    QObject* find(const char* name) const { return root() ? root()->findChild<QObject*>(name) : nullptr; }

    BridgeSetupModel setup;
    WindowPalette palette;
    QQmlApplicationEngine engine;
};

const char* approvalScenario = R"({"cues": [{"when": "approve", "actions": [
    {"send": {"id": 0, "method": "item/commandExecution/requestApproval", "params": {"threadId": "t", "turnId": "u", "command": "make test"}}},
    {"send": {"id": 1, "method": "item/fileChange/requestApproval", "params": {"threadId": "t", "turnId": "u"}}}]}]})";

} // namespace

TEST(MainWindow, StartsTheBridgeAndDecidesApprovalsInItsSheet)
{
    BridgeUnderTest bridge(json(approvalScenario));
    Window window(bridge);
    ASSERT_TRUE(window.root()) << "Main.qml did not load";
    ASSERT_TRUE(waitFor([&] { return bridge.controller().appServerReady(); }));
    QObject* status = window.find("appServerStatus");
    ASSERT_TRUE(status);
    EXPECT_EQ(status->property("text").toString(), "Codex app-server ready");
    QObject* sheet = window.find("approvalSheet");
    ASSERT_TRUE(sheet);
    EXPECT_FALSE(sheet->property("visible").toBool());

    bridge.say("approve");
    ASSERT_TRUE(waitFor([&] { return bridge.controller().queuedApprovals().size() == 1; }));
    EXPECT_TRUE(sheet->property("visible").toBool());
    EXPECT_EQ(window.find("approvalTitle")->property("text").toString(), "Run this command?");
    EXPECT_EQ(sheet->property("closePolicy").toInt(), 0); // Escape and outside clicks leave it open
    QMetaObject::invokeMethod(window.find("allowOnceButton"), "clicked");
    ASSERT_TRUE(waitFor([&] {
        const auto received = bridge.engine.received();
        return std::any_of(received.begin(), received.end(),
                           [](const JSONValue& m) { return m == json(R"({"id":0,"result":{"decision":"accept"}})"); });
    }));
    EXPECT_TRUE(sheet->property("visible").toBool());
    EXPECT_EQ(window.find("approvalTitle")->property("text").toString(), "Apply file changes?");
    QMetaObject::invokeMethod(window.find("declineButton"), "clicked");
    EXPECT_FALSE(sheet->property("visible").toBool());
}
