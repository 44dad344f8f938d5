#include "peer/BridgeMessage.h"

#include <gtest/gtest.h>

using namespace nimbrel;

namespace {

BridgeMessage decoded(std::string_view text)
{
    auto result = decodeBridgeMessage(text);
    EXPECT_TRUE(result.ok()) << text << ": " << (result.ok() ? "" : qPrintable(result.error()));
    return result.ok() ? result.value() : BridgeMessage{};
}

} // namespace

TEST(BridgeMessage, DecodesByTheEnvelopeRules)
{
    const BridgeMessage ping = decoded(R"({"version":1,"kind":"ping"})");
    EXPECT_EQ(ping.version, 1);
    EXPECT_EQ(ping.kind, BridgeMessageKind::Ping);
    EXPECT_FALSE(ping.id);
    EXPECT_FALSE(ping.method);
    EXPECT_FALSE(ping.body);
    // Null counts as absent, body too; other keys change nothing.
    EXPECT_EQ(decoded(R"({"version":1,"kind":"ping","id":null,"method":null,"body":null,"flags":[1]})"), ping);
    // The version check is the receiver's, not the decoder's.
    EXPECT_EQ(decoded(R"({"version":2,"kind":"hello"})").version, 2);
    EXPECT_EQ(decoded(R"({"version":1.0,"kind":"hello"})").version, 1);
    // Any JSON is a body.
    for (const char* body : {"\"text\"", "3.5", "true", "[1]", "{\"a\":null}"}) {
        const BridgeMessage message = decoded(std::string(R"({"version":1,"kind":"request","id":"r1","method":"thread/list","body":)") + body + "}");
        EXPECT_EQ(message.body, JSONValue::decode(body).value());
        EXPECT_EQ(message.id, QStringLiteral("r1"));
        EXPECT_EQ(message.method, QStringLiteral("thread/list"));
    }
}

TEST(BridgeMessage, RefusesWhatIsNotAnEnvelope)
{
    for (const char* text : {
             R"({"version":1,"kind":"pong"})", R"({"version":1,"kind":"Hello"})", R"({"version":1})",
             R"({"kind":"ping"})", R"({"version":null,"kind":"ping"})", R"({"version":"1","kind":"ping"})",
             R"({"version":1.5,"kind":"ping"})", R"({"version":1e300,"kind":"ping"})", R"({"version":1,"kind":3})",
             R"({"version":1,"kind":"ping","id":5})", R"({"version":1,"kind":"request","method":{}})",
             R"([1])", R"("ping")", R"({"version":1,"kind":"ping"} x)", "", "\xFF"}) {
        auto result = decodeBridgeMessage(text);
        EXPECT_FALSE(result.ok()) << text;
        if (!result.ok()) {
            EXPECT_FALSE(result.error().isEmpty());
        }
    }
}

TEST(BridgeMessage, EveryKindRoundTripsAndAbsentOptionalsAreLeftOut)
{
    const BridgeMessageKind kinds[] = {
        BridgeMessageKind::Hello, BridgeMessageKind::PairingRequest, BridgeMessageKind::PairingAccepted,
        BridgeMessageKind::PairingRejected, BridgeMessageKind::Request, BridgeMessageKind::Response,
        BridgeMessageKind::Event, BridgeMessageKind::ServerRequest, BridgeMessageKind::ServerResponse,
        BridgeMessageKind::Error, BridgeMessageKind::Ping};
    const char* texts[] = {"hello", "pairingRequest", "pairingAccepted", "pairingRejected", "request", "response",
                           "event", "serverRequest", "serverResponse", "error", "ping"};
    for (std::size_t i = 0; i < std::size(kinds); ++i) {
        EXPECT_EQ(bridgeMessageKindText(kinds[i]), texts[i]);
        const BridgeMessage bare{1, kinds[i], std::nullopt, std::nullopt, std::nullopt};
        const QByteArray text = encodeBridgeMessage(bare).value();
        EXPECT_EQ(text.toStdString(), std::string(R"({"version":1,"kind":")") + texts[i] + "\"}");
        EXPECT_EQ(decodeBridgeMessage(text.toStdString()).value(), bare);

        const BridgeMessage full{1, kinds[i], QStringLiteral("id-1"), QStringLiteral("turn/start"),
                                 JSONValue::object({{"n", 12}, {"s", "é"}})};
        EXPECT_EQ(decodeBridgeMessage(encodeBridgeMessage(full).value().toStdString()).value(), full);
    }
    // A present null body is written, and reads back as absent.
    const BridgeMessage nullBody{1, BridgeMessageKind::Response, QStringLiteral("7"), std::nullopt, JSONValue()};
    EXPECT_EQ(encodeBridgeMessage(nullBody).value(), R"({"version":1,"kind":"response","id":"7","body":null})");
}
