#include "AppServerLineBuffer.h"

#include <cstring>

namespace nimbrel {

std::vector<std::string> AppServerLineBuffer::append(std::string_view bytes)
{
    std::vector<std::string> lines;
    const char* start = bytes.data();
    const char* end = start + bytes.size();
    while (start < end) {
        const auto* newline = static_cast<const char*>(std::memchr(start, '\n', static_cast<std::size_t>(end - start)));
        if (!newline) {
            m_partialLine.append(start, end);
            break;
        }
        if (m_partialLine.empty()) {
            if (newline != start)
                lines.emplace_back(start, newline);
        } else {
            m_partialLine.append(start, newline);
            lines.push_back(std::move(m_partialLine));
            m_partialLine.clear();
        }
        start = newline + 1;
    }
    return lines;
}

} // namespace nimbrel
