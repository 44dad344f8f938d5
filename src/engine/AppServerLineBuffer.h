#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nimbrel {

// Splits the engine's output into lines at 0x0A, keeping the unfinished tail between chunks.
// Works on bytes; a carriage return is an ordinary byte; empty lines are dropped.
class AppServerLineBuffer {
public:
    std::vector<std::string> append(std::string_view bytes);
    void clear() { m_partialLine.clear(); }
    const std::string& partialLine() const { return m_partialLine; }

private:
    std::string m_partialLine;
};

} // namespace nimbrel
