#pragma once

#include <algorithm>

namespace nimbrel {

// A rate with a burst: holds up to `capacity` tokens and gains `perSecond` of them a second.
struct TokenBucket {
    double capacity = 1;
    double perSecond = 1;
    double tokens = capacity;
    double at = 0; // when tokens was last brought up to date, in the scheduler's seconds

    void refill(double now)
    {
        tokens = std::min(capacity, tokens + std::max(0.0, now - at) * perSecond);
        at = now;
    }
    // Takes a token if there is one.
    bool take(double now)
    {
        refill(now);
        if (tokens < 1)
            return false;
        tokens -= 1;
        return true;
    }
    // Takes a token, owing it if there is none: the seconds until it is due (0 when there was one).
    double reserve(double now)
    {
        refill(now);
        tokens -= 1;
        return tokens >= 0 ? 0 : -tokens / perSecond;
    }
    // Whether it would be full by now, so that forgetting it changes nothing.
    bool fullAt(double now) const { return tokens + (now - at) * perSecond >= capacity; }
};

} // namespace nimbrel
