#include "BridgeMessage.h"

#include <array>
#include <cmath>

namespace nimbrel {

namespace {

constexpr std::array<std::pair<BridgeMessageKind, std::string_view>, 11> kindTexts{{
    {BridgeMessageKind::Hello, "hello"},
    {BridgeMessageKind::PairingRequest, "pairingRequest"},
    {BridgeMessageKind::PairingAccepted, "pairingAccepted"},
    {BridgeMessageKind::PairingRejected, "pairingRejected"},
    {BridgeMessageKind::Request, "request"},
    {BridgeMessageKind::Response, "response"},
    {BridgeMessageKind::Event, "event"},
    {BridgeMessageKind::ServerRequest, "serverRequest"},
    {BridgeMessageKind::ServerResponse, "serverResponse"},
    {BridgeMessageKind::Error, "error"},
    {BridgeMessageKind::Ping, "ping"},
}};

// The member under key, with a stored null read as absent.
const JSONValue* present(const JSONValue& object, std::string_view key)
{
    const JSONValue* value = object.find(key);
    return value && !value->isNull() ? value : nullptr;
}

std::optional<QString> optionalText(const JSONValue& object, std::string_view key, bool& wrongType)
{
    const JSONValue* value = present(object, key);
    if (!value)
        return std::nullopt;
    if (!value->isString()) {
        wrongType = true;
        return std::nullopt;
    }
    return value->stringValue();
}

} // namespace

std::string_view bridgeMessageKindText(BridgeMessageKind kind)
{
    for (const auto& [candidate, text] : kindTexts)
        if (candidate == kind)
            return text;
    return {};
}

std::optional<BridgeMessageKind> bridgeMessageKindFromText(std::string_view text)
{
    for (const auto& [kind, candidate] : kindTexts)
        if (candidate == text)
            return kind;
    return std::nullopt;
}

Result<QByteArray, QString> encodeBridgeMessage(const BridgeMessage& message)
{
    std::vector<std::pair<std::string, JSONValue>> members;
    members.emplace_back("version", static_cast<double>(message.version));
    members.emplace_back("kind", bridgeMessageKindText(message.kind));
    if (message.id)
        members.emplace_back("id", *message.id);
    if (message.method)
        members.emplace_back("method", *message.method);
    if (message.body)
        members.emplace_back("body", *message.body);
    auto text = JSONValue::object(std::move(members)).encode();
    if (!text.ok())
        return text.error().message;
    return QByteArray::fromStdString(text.value());
}

Result<BridgeMessage, QString> decodeBridgeMessage(std::string_view bytes)
{
    auto decoded = JSONValue::decode(bytes);
    if (!decoded.ok())
        return QStringLiteral("The message is not valid JSON: ") + decoded.error().message;
    const JSONValue& object = decoded.value();
    if (!object.isObject())
        return QStringLiteral("The message is not a JSON object.");

    BridgeMessage message;
    const JSONValue* version = present(object, "version");
    if (!version)
        return QStringLiteral("The message has no version.");
    const std::optional<double> number = version->numberValue();
    if (!number || std::trunc(*number) != *number || std::fabs(*number) >= 9223372036854775808.0)
        return QStringLiteral("The message's version is not an integer.");
    message.version = static_cast<qint64>(*number);

    const JSONValue* kind = present(object, "kind");
    if (!kind)
        return QStringLiteral("The message has no kind.");
    const std::optional<BridgeMessageKind> known = kind->isString() ? bridgeMessageKindFromText(*kind->stringView()) : std::nullopt;
    if (!known)
        return QStringLiteral("The message's kind %1 is not known.").arg(kind->textForm());
    message.kind = *known;

    bool wrongType = false;
    message.id = optionalText(object, "id", wrongType);
    if (wrongType)
        return QStringLiteral("The message's id is not text.");
    message.method = optionalText(object, "method", wrongType);
    if (wrongType)
        return QStringLiteral("The message's method is not text.");
    if (const JSONValue* body = present(object, "body"))
        message.body = *body;
    return message;
}

} // namespace nimbrel
