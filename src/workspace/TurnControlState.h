#pragma once

#include <QString>

#include <optional>

namespace nimbrel {

// Where a session's turn stands: nothing running, asked for, running, or being stopped.
struct TurnControlState {
    enum class Phase { Idle, Starting, Running, Stopping };

    Phase phase = Phase::Idle;
    std::optional<QString> turnID;

    friend bool operator==(const TurnControlState&, const TurnControlState&) = default;
};

} // namespace nimbrel
