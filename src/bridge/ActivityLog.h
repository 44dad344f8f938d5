#pragma once

#include <QStringList>

#include <deque>

namespace nimbrel {

// The bridge's log: plain lines, newest first, in two bounded streams shown together. Lines about
// connections that are not authorised go to their own stream, so that however many strangers
// write, they never push out what concerns paired devices, the user's decisions or the engine.
class ActivityLog {
public:
    static constexpr int maximumLines = 100;
    static constexpr int maximumStrangerLines = 50;

    void append(const QString& line) { add(m_lines, line, maximumLines); }
    void appendAboutStranger(const QString& line)
    {
        add(m_strangerLines, line, maximumStrangerLines);
    }
    // Both streams merged, newest first.
    QStringList lines() const;

private:
    struct Line {
        quint64 order;
        QString text;
    };
    void add(std::deque<Line>& stream, const QString& line, int limit);

    std::deque<Line> m_lines, m_strangerLines; // oldest first
    quint64 m_written = 0;
};

} // namespace nimbrel
