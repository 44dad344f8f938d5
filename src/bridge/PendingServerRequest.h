#pragma once

#include "peer/BridgeMessage.h"

namespace nimbrel {

// An approval the engine waits on, from its arrival until someone answers it. What it asked is kept
// as it came, so that a peer authorised later is asked the same.
struct PendingServerRequest {
    QString localID;    // the id peers and this computer know it by
    JSONValue serverID; // the engine's id; never sent to a peer
    QString method;
    JSONValue params;

    // The `serverRequest` that offers it to a peer.
    BridgeMessage offer() const
    {
        return BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::ServerRequest, localID,
                             method, params};
    }

    friend bool operator==(const PendingServerRequest&, const PendingServerRequest&) = default;
};

} // namespace nimbrel
