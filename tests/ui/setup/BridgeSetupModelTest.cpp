#include "ui/setup/BridgeSetupModel.h"
#include "platform/DateFormatting.h"
#include "support/BridgeUnderTest.h"
#include "support/EventLoop.h"
#include "support/PairedPeer.h"
#include "ui/setup/CockpitAddresses.h"

#include <QAbstractItemModelTester>
#include <QLocale>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QUrl>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

QVariant cardValue(BridgeSetupModel& model, const QString& title, const char* role)
{
    RecordListModel& cards = *model.statusCards();
    for (int row = 0; row < cards.rowCount(); ++row)
        if (cards.value(row, "title") == title)
            return cards.value(row, role);
    return {};
}

// Every list of the page checked by Qt's model tester while the test runs.
struct CheckedModels {
    explicit CheckedModels(BridgeSetupModel& model)
    {
        for (RecordListModel* list :
             {model.statusCards(), model.setupRows(), model.pairingRows(), model.trustedRows(),
              model.activityLines(), model.installCommands()})
            testers.push_back(std::make_unique<QAbstractItemModelTester>(
                list, QAbstractItemModelTester::FailureReportingMode::Fatal));
    }
    std::vector<std::unique_ptr<QAbstractItemModelTester>> testers;
};

} // namespace

TEST(BridgeSetupModel, ThePageFollowsTheControllerAndItsLink)
{
    BridgeUnderTest bridge(json("{}"));
    BridgeController& controller = bridge.controller();
    BridgeSetupModel model(controller, bridge.defaults);
    CheckedModels checked(model);
    ASSERT_TRUE(waitFor([&] { return controller.appServerReady(); }));

    EXPECT_FALSE(model.showsInstallHelp());
    EXPECT_EQ(model.setupTint(), "green");
    EXPECT_EQ(model.setupSymbol(), "emblem-default");
    EXPECT_EQ(cardValue(model, "CODEX ENGINE", "value"), "Codex app-server ready");
    EXPECT_EQ(cardValue(model, "CODEX ENGINE", "color"), "green");
    EXPECT_EQ(cardValue(model, "LOCAL LINK", "value"), controller.link().statusText());
    EXPECT_EQ(cardValue(model, "PAIRED DEVICES", "value"), "0 trusted");
    EXPECT_EQ(model.setupRows()->value(2, "label"), "Executable");
    EXPECT_TRUE(model.setupRows()->value(2, "monospaced").toBool());

    // A pairing request shows its code; once paired the device is listed, and the section goes.
    // A name that would read in another order than it is written shows its controls.
    EXPECT_FALSE(model.hasPairingRequests());
    TestPeer phone(bridge.port(), "Phone", QStringLiteral("Ada's \u202Eenohp"));
    ASSERT_TRUE(phone.waitFor(BridgeMessageKind::Hello));
    phone.sendHello();
    phone.send({1, BridgeMessageKind::PairingRequest, {}, {}, {}});
    ASSERT_TRUE(waitFor([&] { return model.hasPairingRequests(); }));
    RecordListModel& requests = *model.pairingRows();
    EXPECT_EQ(requests.value(0, "name"), "Ada's \\u202Eenohp");
    EXPECT_EQ(requests.value(0, "code"), pairingCode(*phone.localHello, *phone.bridgeHello));
    EXPECT_EQ(requests.value(0, "line"), "Confirm this code matches the phone or tablet");
    model.pair(requests.value(0, "requestID").toString());
    EXPECT_FALSE(model.hasPairingRequests());
    EXPECT_EQ(requests.rowCount(), 0);
    EXPECT_EQ(cardValue(model, "PAIRED DEVICES", "value"), "1 trusted");
    ASSERT_TRUE(model.hasTrustedDevices());
    EXPECT_EQ(model.trustedRows()->value(0, "name"), "Ada's \\u202Eenohp");

    // The newest ten log lines, newest first; a new line enters as one row at the top and
    // pushes the oldest out, so the rows that stay keep their delegates.
    for (int i = 0; i < 10; ++i)
        controller.appendLog(QStringLiteral("line %1").arg(i));
    RecordListModel& activity = *model.activityLines();
    QSignalSpy inserted(&activity, &QAbstractItemModel::rowsInserted);
    QSignalSpy removed(&activity, &QAbstractItemModel::rowsRemoved);
    QSignalSpy reset(&activity, &QAbstractItemModel::modelReset);
    controller.appendLog(QStringLiteral("line 10"));
    ASSERT_EQ(activity.rowCount(), 10);
    EXPECT_EQ(activity.value(0, "line"), "line 10");
    EXPECT_EQ(activity.value(9, "line"), "line 1");
    EXPECT_EQ(inserted.size(), 1);
    EXPECT_EQ(inserted.front().at(1), 0);
    EXPECT_EQ(removed.size(), 1);
    EXPECT_EQ(reset.size(), 0);
}

TEST(BridgeSetupModel, ApprovingTheFirstOfTwoRequestsCatchesUpThatConnectionOnly)
{
    BridgeUnderTest bridge(json("{}"));
    BridgeController& controller = bridge.controller();
    BridgeSetupModel model(controller, bridge.defaults);
    ASSERT_TRUE(waitFor([&] { return controller.appServerReady(); }));
    TestPeer first(bridge.port(), "First", "First Phone");
    std::unique_ptr<TestPeer> later;
    for (int i = 0; i < 2; ++i) {
        // One address asks at most every half minute.
        if (i == 1) {
            bridge.scheduler.advance(PairingHistory::requestSpacingSeconds);
            later = std::make_unique<TestPeer>(bridge.port(), "Second", "Second Phone");
        }
        TestPeer* phone = i == 0 ? &first : later.get();
        ASSERT_TRUE(phone->waitFor(BridgeMessageKind::Hello));
        phone->sendHello();
        phone->send({1, BridgeMessageKind::PairingRequest, {}, {}, {}});
        ASSERT_TRUE(
            waitFor([&] { return model.pairingRows()->rowCount() == (phone == &first ? 1 : 2); }));
    }
    TestPeer& second = *later;
    ASSERT_EQ(model.pairingRows()->value(0, "name"), "First Phone");
    model.pair(model.pairingRows()->value(0, "requestID").toString());

    ASSERT_TRUE(first.waitFor(BridgeMessageKind::PairingAccepted));
    ASSERT_TRUE(first.waitFor(BridgeMessageKind::Event, QStringLiteral("sarvane/engineStatus")));
    settle(200);
    EXPECT_EQ(second.count(BridgeMessageKind::PairingAccepted), 0u);
    EXPECT_EQ(second.count(BridgeMessageKind::Event), 0u);
    EXPECT_EQ(controller.authorizedPeerNames(), QStringList{"First"});
    EXPECT_TRUE(controller.logs().contains("Paired First Phone from 127.0.0.1."));
    ASSERT_EQ(model.pairingRows()->rowCount(), 1);
    EXPECT_EQ(model.pairingRows()->value(0, "name"), "Second Phone");

    // The same for a refusal: only the connection refused hears of it.
    model.reject(model.pairingRows()->value(0, "requestID").toString());
    ASSERT_TRUE(second.waitFor(BridgeMessageKind::PairingRejected));
    EXPECT_EQ(first.count(BridgeMessageKind::PairingRejected), 0u);
}

TEST(BridgeSetupModel, TheCockpitsAddressesFingerprintAndCode)
{
    const QList<QHostAddress> up{QHostAddress("127.0.0.1"),   QHostAddress("192.168.1.20"),
                                 QHostAddress("169.254.3.4"), QHostAddress("fe80::1"),
                                 QHostAddress("2001:db8::7"), QHostAddress("10.0.0.5"),
                                 QHostAddress("::1")};
    EXPECT_EQ(cockpitAddresses(up, QHostAddress::Any, 48215),
              (QStringList{"https://192.168.1.20:48215/", "https://10.0.0.5:48215/",
                           "https://[2001:db8::7]:48215/"}));
    EXPECT_EQ(cockpitAddresses(up, QHostAddress("127.0.0.1"), 5000),
              QStringList{"https://127.0.0.1:5000/"});
    EXPECT_TRUE(cockpitAddresses(up, QHostAddress::Any, 0).isEmpty());

    // The model shows the link's own: here it listens on loopback.
    BridgeUnderTest bridge(json("{}"));
    BridgeSetupModel model(bridge.controller(), bridge.defaults);
    const QString address = "https://127.0.0.1:" + QString::number(bridge.port()) + "/";
    EXPECT_EQ(model.cockpitAddresses(), QStringList{address});
    EXPECT_EQ(model.cockpitQrSource(), "image://qr/" + QUrl::toPercentEncoding(address));
    EXPECT_TRUE(QRegularExpression("^([0-9A-F]{2}:){31}[0-9A-F]{2}$")
                    .match(model.certificateFingerprint())
                    .hasMatch())
        << model.certificateFingerprint().toStdString();

    const QImage code = qrCodeImage(address, 3);
    EXPECT_EQ(code.width(), code.height());
    EXPECT_EQ(code.width() % 3, 0);
    EXPECT_EQ(code.pixelColor(0, 0), Qt::white);         // the quiet zone
    EXPECT_EQ(code.pixelColor(4 * 3, 4 * 3), Qt::black); // a finder pattern's corner
    EXPECT_TRUE(qrCodeImage(QString(8000, QLatin1Char('x')), 3).isNull());
}

TEST(RecordListModel, MovesChangesAndReplacesRowsByKey)
{
    RecordListModel list({"name"});
    QAbstractItemModelTester tester(&list, QAbstractItemModelTester::FailureReportingMode::Fatal);
    list.setRecords({{"a", {"A"}}, {"b", {"B"}}, {"c", {"C"}}});
    QSignalSpy moved(&list, &QAbstractItemModel::rowsMoved);
    QSignalSpy changed(&list, &QAbstractItemModel::dataChanged);
    QSignalSpy inserted(&list, &QAbstractItemModel::rowsInserted);
    list.setRecords({{"c", {"C"}}, {"d", {"D"}}, {"a", {"A2"}}});
    EXPECT_EQ(list.records(), (QList<ListRecord>{{"c", {"C"}}, {"d", {"D"}}, {"a", {"A2"}}}));
    EXPECT_EQ(moved.size(), 1);
    EXPECT_EQ(changed.size(), 1);
    EXPECT_EQ(inserted.size(), 1);
    list.setRecords({});
    EXPECT_EQ(list.rowCount(), 0);
}

TEST(BridgeSetupModel, InstallHelpAndTheCustomExecutableAction)
{
    BridgeUnderTest bridge(json("{}"));
    bridge.home.setPath(bridge.home.filePath("nowhere"));
    BridgeController& controller = bridge.controller();
    BridgeSetupModel model(controller, bridge.defaults);
    CheckedModels checked(model);
    controller.restartCodex();
    ASSERT_TRUE(waitFor(
        [&] { return controller.codexInstallSource() == QStringLiteral("Not installed"); }));
    EXPECT_TRUE(model.showsInstallHelp());
    EXPECT_EQ(cardValue(model, "CODEX ENGINE", "color"), "orange");
    EXPECT_EQ(model.setupTint(), "orange");
    EXPECT_EQ(model.setupSymbol(), "dialog-warning");

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

TEST(BridgeSetupModel, PairingDatesCountFrom2001AsAnAbbreviatedDateAndShortTime)
{
    const double since1970 = QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC).toSecsSinceEpoch();
    EXPECT_EQ(BridgeSetupModel::pairedText(90),
              "Paired " + formatAbbreviatedDateShortTime(since1970 + 90));
}
