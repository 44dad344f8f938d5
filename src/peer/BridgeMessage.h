#pragma once

#include "peer/JSONValue.h"

#include <QByteArray>
#include <QString>

#include <optional>
#include <string_view>

namespace nimbrel {

enum class BridgeMessageKind {
    Hello,
    PairingRequest,
    PairingAccepted,
    PairingRejected,
    Request,
    Response,
    Event,
    ServerRequest,
    ServerResponse,
    Error,
    Ping,
};

std::string_view bridgeMessageKindText(BridgeMessageKind kind);
std::optional<BridgeMessageKind> bridgeMessageKindFromText(std::string_view text);

constexpr qint64 bridgeProtocolVersion = 1;

// One message between the bridge and a peer: one JSON object per transport message.
struct BridgeMessage {
    qint64 version = bridgeProtocolVersion;
    BridgeMessageKind kind = BridgeMessageKind::Ping;
    std::optional<QString> id;
    std::optional<QString> method;
    std::optional<JSONValue> body; // a present null is written as null

    friend bool operator==(const BridgeMessage&, const BridgeMessage&) = default;
};

// Compact JSON with the absent optionals left out.
Result<QByteArray, QString> encodeBridgeMessage(const BridgeMessage& message);
// Reads the five keys; a null counts as absent; other keys are ignored.
Result<BridgeMessage, QString> decodeBridgeMessage(std::string_view bytes);

} // namespace nimbrel
