#pragma once

#include "peer/JSONValue.h"

#include <random>
#include <string>
#include <vector>

namespace nimbrel::test {

// Random JSON values for round trips and for feeding parsers wrong types at every key.
struct RandomJSON {
    std::mt19937_64 random;
    std::vector<std::string> keys = {"k0", "k1", "k2", "k3"};
    int maximumDepth = 6;
    std::size_t longStringBytes = 0; // when set, some strings are this long

    explicit RandomJSON(std::uint64_t seed)
        : random(seed)
    {
    }
    JSONValue value(int depth = 0);
};

} // namespace nimbrel::test
