#include "ui/BridgeSetupModel.h"
#include "support/BridgeUnderTest.h"
#include "support/EventLoop.h"
#include "support/PairedPeer.h"

#include <QLocale>
#include <QVariantMap>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

QVariantMap cardNamed(const BridgeSetupModel& model, const QString& title)
{
    for (const QVariant& card : model.statusCards())
        if (card.toMap().value("title") == title)
            return card.toMap();
    return {};
}

} // namespace

TEST(BridgeSetupModel, ThePageFollowsTheControllerAndItsLink)
{
    BridgeUnderTest bridge(json("{}"));
    BridgeController& controller = bridge.controller();
    BridgeSetupModel model(controller, bridge.defaults);
    ASSERT_TRUE(waitFor([&] { return controller.appServerReady(); }));

    EXPECT_FALSE(model.showsInstallHelp());
    EXPECT_EQ(model.setupTint(), "green");
    EXPECT_EQ(cardNamed(model, "CODEX ENGINE").value("value"), "Codex app-server ready");
    EXPECT_EQ(cardNamed(model, "CODEX ENGINE").value("color"), "green");
    EXPECT_EQ(cardNamed(model, "LOCAL LINK").value("value"), controller.link().statusText());
    EXPECT_EQ(cardNamed(model, "PAIRED DEVICES").value("value"), "0 trusted");
    EXPECT_EQ(model.setupRows().at(2).toMap().value("label"), "Executable");
    EXPECT_TRUE(model.setupRows().at(2).toMap().value("monospaced").toBool());

    // A pairing request shows its code; once paired the device is listed, and the section goes.
    EXPECT_FALSE(model.hasPairingRequests());
    TestPeer phone(bridge.port(), "Phone", "Ada's Phone");
    ASSERT_TRUE(phone.waitFor(BridgeMessageKind::Hello));
    phone.sendHello();
    phone.send({1, BridgeMessageKind::PairingRequest, {}, {}, {}});
    ASSERT_TRUE(waitFor([&] { return model.hasPairingRequests(); }));
    const QVariantMap request = model.pairingRows().front().toMap();
    EXPECT_EQ(request.value("name"), "Ada's Phone");
    EXPECT_EQ(request.value("code"), pairingCode(*phone.localHello, *phone.bridgeHello));
    EXPECT_EQ(request.value("line"), "Confirm this code matches the phone or iPad");
    controller.approvePairing(controller.pairingRequests().front());
    EXPECT_FALSE(model.hasPairingRequests());
    EXPECT_EQ(cardNamed(model, "PAIRED DEVICES").value("value"), "1 trusted");
    EXPECT_EQ(model.trustedRows().front().toMap().value("name"), "Ada's Phone");

    // The newest ten log lines, newest first.
    for (int i = 0; i < 11; ++i)
        controller.appendLog(QStringLiteral("line %1").arg(i));
    ASSERT_EQ(model.activityLines().size(), 10);
    EXPECT_EQ(model.activityLines().front(), "line 10");
    EXPECT_EQ(model.activityLines().back(), "line 1");
}

TEST(BridgeSetupModel, InstallHelpAndTheCustomExecutableAction)
{
    BridgeUnderTest bridge(json("{}"));
    bridge.home.setPath(bridge.home.filePath("nowhere"));
    BridgeController& controller = bridge.controller();
    BridgeSetupModel model(controller, bridge.defaults);
    controller.restartCodex();
    ASSERT_TRUE(waitFor(
        [&] { return controller.codexInstallSource() == QStringLiteral("Not installed"); }));
    EXPECT_TRUE(model.showsInstallHelp());
    EXPECT_EQ(cardNamed(model, "CODEX ENGINE").value("color"), "orange");

    // Read when the card is drawn: a removed default shows until the next drawing.
    EXPECT_FALSE(model.usesCustomExecutable());
    bridge.defaults.setValue(BridgeController::customCodexPathKey, QStringLiteral("/opt/codex"));
    model.refreshCustomExecutable();
    EXPECT_TRUE(model.usesCustomExecutable());
    bridge.defaults.remove(BridgeController::customCodexPathKey);
    EXPECT_TRUE(model.usesCustomExecutable());
    model.refreshCustomExecutable();
    EXPECT_FALSE(model.usesCustomExecutable());
}

TEST(BridgeSetupModel, PairingDatesCountFrom2001InTheLocalesShortForm)
{
    const QDateTime when =
        QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC).addSecs(90).toLocalTime();
    const QLocale locale;
    EXPECT_EQ(BridgeSetupModel::pairedText(90),
              "Paired " + locale.toString(when.date(), QLocale::ShortFormat) + " " +
                  locale.toString(when.time(), QLocale::ShortFormat));
}
