#include "ActivityLog.h"

namespace nimbrel {

void ActivityLog::add(std::deque<Line>& stream, const QString& line, int limit)
{
    stream.push_back({++m_written, line});
    while (static_cast<int>(stream.size()) > limit)
        stream.pop_front();
}

QStringList ActivityLog::lines() const
{
    QStringList merged;
    merged.reserve(static_cast<qsizetype>(m_lines.size() + m_strangerLines.size()));
    auto line = m_lines.rbegin();
    auto stranger = m_strangerLines.rbegin();
    while (line != m_lines.rend() || stranger != m_strangerLines.rend()) {
        if (stranger == m_strangerLines.rend() ||
            (line != m_lines.rend() && line->order > stranger->order))
            merged.append((line++)->text);
        else
            merged.append((stranger++)->text);
    }
    return merged;
}

} // namespace nimbrel
