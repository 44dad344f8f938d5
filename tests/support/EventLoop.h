#pragma once

#include <functional>

namespace nimbrel::test {

// Runs the event loop until condition holds. The real-time bound only keeps a broken test from
// hanging; no test relies on it passing.
bool waitFor(const std::function<bool()>& condition, int boundMilliseconds = 60000);

// Runs the event loop for a short real while, to show that something does not happen.
void settle(int milliseconds = 200);

} // namespace nimbrel::test
