// Decodes arbitrary bytes; whatever decodes must encode, decode again to an equal value, and
// answer every accessor without failing.
#include "peer/JSONValue.h"

#include <cstdlib>

using nimbrel::JSONValue;

static void touch(const JSONValue& value, int depth)
{
    (void)value.textForm();
    (void)value["id"];
    (void)value.boolValue();
    (void)value.numberValue();
    (void)value.stringValue();
    if (depth > 4)
        return;
    for (const JSONValue& item : value.items())
        touch(item, depth + 1);
    for (const auto& member : value.members())
        touch(member.value, depth + 1);
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    auto decoded = JSONValue::decode(text);
    if (!decoded.ok())
        return 0;
    touch(decoded.value(), 0);
    auto encoded = decoded.value().encode();
    if (!encoded.ok())
        std::abort();
    auto again = JSONValue::decode(encoded.value());
    if (!again.ok() || !(again.value() == decoded.value()) || *again.value().encode() != encoded.value())
        std::abort();
    return 0;
}
