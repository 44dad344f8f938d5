#include "peer/ControlFrameCounter.h"
#include "peer/StrangerAdmission.h"

#include <gtest/gtest.h>

using namespace nimbrel;

namespace {

const QHostAddress a("fd00::1"), b("fd00::2"), c("192.168.1.20");

std::vector<Stranger> repeated(int count, const Stranger& stranger)
{
    return std::vector<Stranger>(static_cast<std::size_t>(count), stranger);
}

std::vector<Stranger> operator+(std::vector<Stranger> first, const std::vector<Stranger>& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

} // namespace

TEST(StrangerAdmission, OneAddressNeverCostsAnotherItsPlace)
{
    const AdmissionLimits limits{6, 4, 2};
    const Stranger idleA{a, false, true}, waitingA{a, true, false};
    struct Case {
        const char* what;
        std::vector<Stranger> strangers;
        int connections;
        QHostAddress from;
        Admission expected;
    };
    const Case cases[] = {
        {"room", {{a}}, 1, b, {true, std::nullopt}},
        // IPv6 neighbours in one /64 are two addresses.
        {"a neighbour at its limit", repeated(2, {a}), 2, b, {true, std::nullopt}},
        {"an address at its limit", repeated(2, {a}), 2, a, {false, std::nullopt}},
        {"in place of its own idle one", {{a}, idleA}, 2, a, {true, 1}},
        {"never another's idle one", {idleA, {b}, {b}}, 3, b, {false, std::nullopt}},
        {"strangers full: the oldest", {{a}, {b}, {c}, {b}}, 4, c, {true, 0}},
        {"strangers full: an idle one first", {{a}, {b}, idleA, {b}}, 4, c, {true, 2}},
        {"strangers full: not one waiting for the user",
         {waitingA, {b}, {c}, {b}},
         4,
         c,
         {true, 1}},
        {"strangers full, all waiting", repeated(4, {c, true, false}), 4, a, {true, 0}},
        {"all connections full", {{b}, {c}}, 6, a, {true, 0}},
        {"all connections authorised", {}, 6, a, {false, std::nullopt}},
    };
    for (const Case& test : cases)
        EXPECT_EQ(admitConnection(test.strangers, test.connections, test.from, limits),
                  test.expected)
            << test.what;
    // A neighbour holding its limit leaves the others the rest.
    EXPECT_TRUE(admitConnection(repeated(2, {a}) + repeated(1, {b}), 3, b, limits).admitted);
}

TEST(ControlFrameCounter, CountsPingsPongsAndClosesInAnyPieces)
{
    // Masked client frames: text "hi", ping with a payload, a 300-byte binary message whose payload
    // holds bytes that look like headers, an empty pong, a close.
    const auto frame = [](quint8 opcode, const QByteArray& payload) {
        QByteArray bytes;
        bytes.append(static_cast<char>(0x80 | opcode));
        if (payload.size() < 126) {
            bytes.append(static_cast<char>(0x80 | payload.size()));
        } else {
            bytes.append(static_cast<char>(0x80 | 126));
            bytes.append(static_cast<char>(payload.size() >> 8));
            bytes.append(static_cast<char>(payload.size() & 0xFF));
        }
        return bytes + QByteArray(4, '\x5a') + payload;
    };
    const QByteArray stream = frame(0x1, "hi") + frame(0x9, "are you there") +
                              frame(0x2, QByteArray(300, '\x89')) + frame(0xA, {}) +
                              frame(0x8, QByteArray("\x03\xe8", 2));
    for (qsizetype piece : {qsizetype(1), qsizetype(3), qsizetype(7), stream.size()}) {
        ControlFrameCounter counter;
        int control = 0;
        for (qsizetype at = 0; at < stream.size(); at += piece)
            control += counter.feed(stream.mid(at, piece));
        EXPECT_EQ(control, 3) << "pieces of " << piece;
    }
}
