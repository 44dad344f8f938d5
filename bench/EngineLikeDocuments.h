#pragma once

#include <string>
#include <vector>

namespace nimbrel::bench {

// A deterministic `thread/turns/list` result of about the given size: many turns, each with
// messages, reasoning and command executions with long outputs.
std::string turnsListResult(std::size_t approximateBytes);

// Deterministic agent-message delta notifications of about 150 bytes each.
std::vector<std::string> deltaNotifications(std::size_t count);

} // namespace nimbrel::bench
