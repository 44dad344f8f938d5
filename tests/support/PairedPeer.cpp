#include "PairedPeer.h"

#include "bridge/BridgeController.h"
#include "support/EventLoop.h"

#include <gtest/gtest.h>

namespace nimbrel::test {

std::unique_ptr<TestPeer> pairedPeer(BridgeController& controller, quint16 port,
                                     const QString& transportName, const QString& helloName)
{
    auto peer = std::make_unique<TestPeer>(port, transportName, helloName);
    EXPECT_TRUE(peer->waitFor(BridgeMessageKind::Hello));
    peer->sendHello();
    peer->send({bridgeProtocolVersion, BridgeMessageKind::PairingRequest, {}, {}, {}});
    const auto request = [&] {
        return controller.pairingRequestWithCode(
            pairingCode(*peer->localHello, *peer->bridgeHello));
    };
    EXPECT_TRUE(waitFor([&] { return request().has_value(); }));
    if (const auto shown = request())
        controller.approvePairing(*shown);
    EXPECT_TRUE(peer->waitFor(BridgeMessageKind::PairingAccepted));
    return peer;
}

} // namespace nimbrel::test
