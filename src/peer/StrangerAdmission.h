#pragma once

#include <QHostAddress>

#include <optional>
#include <vector>

namespace nimbrel {

// What the link knows of one connection that is not authorised, when another asks to come in.
struct Stranger {
    QHostAddress address;
    bool awaitingPairing = false;
    // A browser's spare connection: it fetched the page's files and now waits with nothing asked.
    bool idle = false;

    friend bool operator==(const Stranger&, const Stranger&) = default;
};

// Whether a new connection comes in, and which stranger (an index into the list) is closed to make
// room for it first.
struct Admission {
    bool admitted = false;
    std::optional<std::size_t> replacing;

    friend bool operator==(const Admission&, const Admission&) = default;
};

struct AdmissionLimits {
    int connections; // all connections, authorised or not
    int strangers;   // of them, not authorised
    int strangersPerAddress;
};

// The rule for a new connection from address, given the strangers (in order of arrival) and the
// number of open connections:
// - An address that holds its limit of strangers gets in only in place of one of its own idle
//   ones; otherwise it is refused. No other address loses anything for it.
// - Within the limits, it comes in.
// - Where the strangers or all connections are at their limit, a stranger makes room: an idle one
//   first, else the oldest not waiting for the user's decision, else the oldest. So a phone on its
//   way to be paired or authorised gets in, whatever its neighbours hold.
Admission admitConnection(const std::vector<Stranger>& strangers, int connections,
                          const QHostAddress& address, const AdmissionLimits& limits);

} // namespace nimbrel
