#pragma once

#include <limits>
#include <vector>

namespace nimbrel {

// What the bridge remembers of the pairing requests from one address, so that they stay rare: at
// most one every 30 seconds, and none for 10 minutes once three have been rejected or have expired
// within 10 minutes.
struct PairingHistory {
    static constexpr double requestSpacingSeconds = 30;
    static constexpr double pauseSeconds = 600;
    static constexpr int endingsBeforePause = 3;

    double lastRequestAt = -std::numeric_limits<double>::infinity();
    std::vector<double> endings; // rejections and expiries of the last pauseSeconds
    double pausedUntil = -std::numeric_limits<double>::infinity();

    friend bool operator==(const PairingHistory&, const PairingHistory&) = default;
};

// Whether the address may ask now.
bool mayRequestPairing(const PairingHistory& history, double now);
// The history once the address has asked, or once one of its requests was rejected or expired.
PairingHistory afterPairingRequest(PairingHistory history, double now);
PairingHistory afterPairingEnded(PairingHistory history, double now);
// Whether the history says nothing any more, so that it may be forgotten.
bool isSpent(const PairingHistory& history, double now);

} // namespace nimbrel
