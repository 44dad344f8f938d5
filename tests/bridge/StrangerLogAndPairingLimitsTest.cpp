#include "bridge/ActivityLog.h"
#include "bridge/BridgeController.h"
#include "bridge/PairingLimits.h"
#include "support/BridgeUnderTest.h"
#include "support/EventLoop.h"
#include "support/PairedPeer.h"
#include "support/RawWebSocket.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

TEST(PairingLimits, OneRequestAnAddressEveryHalfMinuteAndAPauseAfterThreeRefusals)
{
    enum Step { Ask, End };
    struct Case {
        const char* what;
        std::vector<std::pair<Step, double>> before;
        double at;
        bool mayAsk;
    };
    const Case cases[] = {
        {"a first request", {}, 0, true},
        {"again within 30 s", {{Ask, 0}}, 29, false},
        {"again after 30 s", {{Ask, 0}}, 30, true},
        {"two endings", {{Ask, 0}, {End, 1}, {Ask, 40}, {End, 41}}, 80, true},
        {"three endings",
         {{Ask, 0}, {End, 1}, {Ask, 40}, {End, 41}, {Ask, 80}, {End, 81}},
         120,
         false},
        {"paused ten minutes from the third",
         {{Ask, 0}, {End, 1}, {Ask, 40}, {End, 41}, {Ask, 80}, {End, 81}},
         681,
         true},
        {"endings ten minutes apart do not add up",
         {{Ask, 0}, {End, 1}, {Ask, 400}, {End, 401}, {Ask, 700}, {End, 701}},
         740,
         true},
    };
    for (const Case& test : cases) {
        PairingHistory history;
        for (const auto& [step, at] : test.before)
            history =
                step == Ask ? afterPairingRequest(history, at) : afterPairingEnded(history, at);
        EXPECT_EQ(mayRequestPairing(history, test.at), test.mayAsk) << test.what;
    }
    EXPECT_TRUE(isSpent(afterPairingRequest({}, 0), 30));
    EXPECT_FALSE(isSpent(afterPairingEnded({}, 0), 30));
}

TEST(ActivityLog, StrangersLinesAreBoundedApartAndShownInOrder)
{
    ActivityLog log;
    log.append("Bridge started.");
    log.appendAboutStranger("Rejected malformed message from A: x");
    log.append("Paired Phone from 127.0.0.1.");
    for (int i = 0; i < ActivityLog::maximumStrangerLines * 3; ++i)
        log.appendAboutStranger(QStringLiteral("…and 63 more from S%1").arg(i));
    const QStringList lines = log.lines();
    EXPECT_EQ(lines.size(), ActivityLog::maximumStrangerLines + 2);
    EXPECT_EQ(
        lines.front(),
        QStringLiteral("…and 63 more from S%1").arg(ActivityLog::maximumStrangerLines * 3 - 1));
    EXPECT_EQ(lines.mid(lines.size() - 2),
              (QStringList{"Paired Phone from 127.0.0.1.", "Bridge started."}));
}

// A device of the test's own asking to pair over a connection from an address of its choosing.
class Asker {
public:
    Asker(quint16 port, const QString& from, const QString& name)
        : m_socket(port, QHostAddress(from))
    {
        MemoryUserDefaults defaults;
        m_identity = DeviceIdentity::create(SecretStore(m_state.filePath("s")), defaults).value();
        m_upgraded = m_socket.upgrade(name) == 101;
        waitFor([&] { return count("\"hello\"") == 1; });
        m_socket.sendText(
            encodeBridgeMessage(
                {1, BridgeMessageKind::Hello, {}, {}, m_identity->makeHello(name).value().toBody()})
                .value());
    }

    void ask() { m_socket.sendText(R"({"version":1,"kind":"pairingRequest"})"); }
    int rejections() { return count("\"pairingRejected\""); }
    bool upgraded() const { return m_upgraded; }

private:
    int count(const char* kind)
    {
        const QList<QByteArray>& texts = m_socket.texts();
        return static_cast<int>(std::count_if(
            texts.begin(), texts.end(), [&](const QByteArray& t) { return t.contains(kind); }));
    }

    QTemporaryDir m_state;
    RawWebSocket m_socket;
    std::shared_ptr<const DeviceIdentity> m_identity;
    bool m_upgraded = false;
};

class StrangersTest : public ::testing::Test {
protected:
    StrangersTest()
        : bridge(JSONValue::object({}))
    {
        waitFor([&] { return bridge.controller().appServerReady(); });
        QObject::connect(&bridge.controller(), &BridgeController::pairingRequestsChanged, [this] {
            most = std::max(most, bridge.controller().pairingRequests().size());
        });
    }

    BridgeController& controller() { return bridge.controller(); }
    std::size_t shown() { return controller().pairingRequests().size(); }
    // Time passes in steps, so that the connections' answers to the link's pings come back.
    void pass(double seconds)
    {
        for (double left = seconds; left > 0; left -= 5) {
            bridge.scheduler.advance(std::min(5.0, left));
            settle(20);
        }
    }

    BridgeUnderTest bridge;
    std::size_t most = 0;
};

TEST_F(StrangersTest, PairingRequestsAreOneAConnectionRareFromAnAddressAndAtMostThree)
{
    const quint16 port = bridge.port();
    Asker first(port, "127.0.0.1", "First");
    first.ask();
    ASSERT_TRUE(waitFor([&] { return shown() == 1; }));
    controller().rejectPairing(controller().pairingRequests().front());
    ASSERT_TRUE(waitFor([&] { return first.rejections() == 1; }));
    // After a rejection the connection is refused; so is another from its address within 30 s.
    first.ask();
    ASSERT_TRUE(waitFor([&] { return first.rejections() == 2; }));
    pass(PairingHistory::requestSpacingSeconds - 5);
    Asker second(port, "127.0.0.1", "Second");
    second.ask();
    ASSERT_TRUE(waitFor([&] { return second.rejections() == 1; }));
    EXPECT_EQ(most, 1u);

    // Three refusals from an address pause it for ten minutes; another address may ask meanwhile.
    for (int i = 0; i < 2; ++i) {
        pass(PairingHistory::requestSpacingSeconds);
        Asker next(port, "127.0.0.1", QStringLiteral("Next %1").arg(i));
        next.ask();
        ASSERT_TRUE(waitFor([&] { return shown() == 1; })) << i;
        controller().rejectPairing(controller().pairingRequests().front());
        ASSERT_TRUE(waitFor([&] { return next.rejections() == 1; }));
    }
    pass(PairingHistory::requestSpacingSeconds);
    Asker paused(port, "127.0.0.1", "Paused");
    paused.ask();
    ASSERT_TRUE(waitFor([&] { return paused.rejections() == 1; }));
    EXPECT_EQ(shown(), 0u);

    // Four addresses ask: three wait, and the oldest is ended and told so.
    std::vector<std::unique_ptr<Asker>> many;
    for (int i = 0; i < 4; ++i) {
        many.push_back(std::make_unique<Asker>(port, QStringLiteral("127.0.6.%1").arg(i + 1),
                                               QStringLiteral("Phone %1").arg(i)));
        many.back()->ask();
        ASSERT_TRUE(waitFor([&] { return shown() == std::min<std::size_t>(i + 1, 3); })) << i;
    }
    ASSERT_TRUE(waitFor([&] { return many[0]->rejections() == 1; }));
    EXPECT_EQ(controller().pairingRequests().front().remoteHello.displayName, "Phone 1");
    EXPECT_EQ(most, 3u);

    pass(PairingHistory::pauseSeconds);
    Asker again(port, "127.0.0.1", "Again");
    again.ask();
    ASSERT_TRUE(waitFor([&] {
        return std::any_of(
            controller().pairingRequests().begin(), controller().pairingRequests().end(),
            [](const PairingRequest& r) { return r.remoteHello.displayName == "Again"; });
    }));
    EXPECT_EQ(most, 3u);
}

TEST_F(StrangersTest, MalformedMessagesFromStrangersNeverPushOutPairedDevices)
{
    const quint16 port = bridge.port();
    auto phone = pairedPeer(controller(), port, "Phone", "Phone");
    TestPeer again(port, "Phone again", *phone);
    ASSERT_TRUE(again.waitFor(BridgeMessageKind::Hello));
    again.sendHello();
    ASSERT_TRUE(waitFor(
        [&] { return controller().logs().contains("Authenticated Phone from 127.0.0.1."); }));

    // 30 connections send 67 malformed messages each, 2,010 in all; each is closed at its 65th.
    std::vector<std::unique_ptr<RawWebSocket>> noisy;
    for (int i = 0; i < 30; ++i) {
        noisy.push_back(std::make_unique<RawWebSocket>(
            port, QHostAddress(QStringLiteral("127.0.7.%1").arg(1 + i / 8))));
        ASSERT_EQ(noisy.back()->upgrade(QStringLiteral("Noisy %1").arg(i)), 101) << i;
        for (int m = 0; m < 67; ++m)
            noisy.back()->sendText("not json " + QByteArray::number(m));
    }
    ASSERT_TRUE(waitFor(
        [&] {
            return std::all_of(noisy.begin(), noisy.end(),
                               [](const auto& s) { return s->isClosed(); });
        },
        60000));
    ASSERT_TRUE(
        waitFor([&] { return controller().logs().filter("…and 63 more from Noisy").size() > 0; }));
    const QStringList logs = controller().logs();
    EXPECT_TRUE(logs.contains("Paired Phone from 127.0.0.1."));
    EXPECT_TRUE(logs.contains("Authenticated Phone from 127.0.0.1."));
    EXPECT_TRUE(logs.contains("Bridge started. Only paired devices can call the Codex allowlist."));
    EXPECT_LE(logs.filter("Noisy").size(), ActivityLog::maximumStrangerLines);
}

} // namespace
