#include "AppServerLineBuffer.h"


namespace nimbrel {

std::vector<std::string> AppServerLineBuffer::append(std::string_view bytes)
{
    std::vector<std::string> lines;
    consume(bytes, [&](std::string_view line) { lines.emplace_back(line); });
    return lines;
}

} // namespace nimbrel
