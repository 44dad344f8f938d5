#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace nimbrel {

// Splits the engine's output into lines at 0x0A, keeping the unfinished tail between chunks.
// Works on bytes; a carriage return is an ordinary byte; empty lines are dropped.
class AppServerLineBuffer {
public:
    std::vector<std::string> append(std::string_view bytes);

    // The same lines, handed to each as a view valid during the call: no copy for lines that lie
    // whole within bytes.
    template <class Receiver>
    void consume(std::string_view bytes, Receiver&& receive)
    {
        const char* start = bytes.data();
        const char* end = start + bytes.size();
        while (start < end) {
            const auto* newline = static_cast<const char*>(std::memchr(start, '\n', static_cast<std::size_t>(end - start)));
            if (!newline) {
                m_partialLine.append(start, end);
                return;
            }
            if (m_partialLine.empty()) {
                if (newline != start)
                    receive(std::string_view(start, static_cast<std::size_t>(newline - start)));
            } else {
                m_partialLine.append(start, newline);
                const std::string line = std::move(m_partialLine);
                m_partialLine.clear();
                receive(std::string_view(line));
            }
            start = newline + 1;
        }
    }
    void clear() { m_partialLine.clear(); }
    const std::string& partialLine() const { return m_partialLine; }

private:
    std::string m_partialLine;
};

} // namespace nimbrel
