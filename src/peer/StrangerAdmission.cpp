#include "StrangerAdmission.h"

#include <algorithm>

namespace nimbrel {

namespace {

std::optional<std::size_t> first(const std::vector<Stranger>& strangers, auto matches)
{
    const auto found = std::find_if(strangers.begin(), strangers.end(), matches);
    return found == strangers.end()
               ? std::nullopt
               : std::optional(static_cast<std::size_t>(found - strangers.begin()));
}

} // namespace

Admission admitConnection(const std::vector<Stranger>& strangers, int connections,
                          const QHostAddress& address, const AdmissionLimits& limits)
{
    const auto fromThere = [&](const Stranger& s) { return s.address == address; };
    if (std::count_if(strangers.begin(), strangers.end(), fromThere) >=
        limits.strangersPerAddress) {
        if (const auto spare =
                first(strangers, [&](const Stranger& s) { return fromThere(s) && s.idle; }))
            return {true, spare};
        return {false, std::nullopt};
    }
    if (connections < limits.connections && static_cast<int>(strangers.size()) < limits.strangers)
        return {true, std::nullopt};
    if (strangers.empty())
        return {false, std::nullopt};
    if (const auto spare = first(strangers, [](const Stranger& s) { return s.idle; }))
        return {true, spare};
    if (const auto any = first(strangers, [](const Stranger& s) { return !s.awaitingPairing; }))
        return {true, any};
    return {true, 0};
}

} // namespace nimbrel
