// Decodes arbitrary bytes as a peer message; whatever decodes must encode and decode to the same
// message, and any body is tried as a hello: read, verified, and paired with itself.
#include "peer/BridgeMessage.h"
#include "peer/HelloPayload.h"

#include <cstdlib>

using namespace nimbrel;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    auto decoded = decodeBridgeMessage(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!decoded.ok())
        return 0;
    const BridgeMessage& message = decoded.value();
    auto encoded = encodeBridgeMessage(message);
    if (!encoded.ok())
        std::abort();
    auto again = decodeBridgeMessage(encoded.value().toStdString());
    if (!again.ok() || !(again.value() == message))
        std::abort();
    if (message.body) {
        auto hello = HelloPayload::fromBody(*message.body);
        if (hello.ok()) {
            (void)verify(hello.value());
            if (pairingCode(hello.value(), hello.value()).size() != 6)
                std::abort();
        }
    }
    return 0;
}
