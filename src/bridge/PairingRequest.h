#pragma once

#include "peer/HelloPayload.h"

namespace nimbrel {

// A pairing waiting for the user to compare its code.
struct PairingRequest {
    QString id;             // the peer's transport name when it asked
    QString peer;           // the connection, by transport name
    quint64 connection = 0; // and by the link's number for it, which no later connection has
    QString code;           // six digits
    HelloPayload localHello;
    HelloPayload remoteHello;
    QString address; // where the connection comes from, as text

    friend bool operator==(const PairingRequest&, const PairingRequest&) = default;
};

} // namespace nimbrel
