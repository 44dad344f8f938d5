#include "PairingLimits.h"

#include <algorithm>

namespace nimbrel {

bool mayRequestPairing(const PairingHistory& history, double now)
{
    return now >= history.pausedUntil &&
           now - history.lastRequestAt >= PairingHistory::requestSpacingSeconds;
}

PairingHistory afterPairingRequest(PairingHistory history, double now)
{
    history.lastRequestAt = now;
    return history;
}

PairingHistory afterPairingEnded(PairingHistory history, double now)
{
    std::erase_if(history.endings,
                  [&](double at) { return now - at >= PairingHistory::pauseSeconds; });
    history.endings.push_back(now);
    if (static_cast<int>(history.endings.size()) >= PairingHistory::endingsBeforePause) {
        history.pausedUntil = now + PairingHistory::pauseSeconds;
        history.endings.clear();
    }
    return history;
}

bool isSpent(const PairingHistory& history, double now)
{
    return mayRequestPairing(history, now) &&
           std::all_of(history.endings.begin(), history.endings.end(),
                       [&](double at) { return now - at >= PairingHistory::pauseSeconds; });
}

} // namespace nimbrel
