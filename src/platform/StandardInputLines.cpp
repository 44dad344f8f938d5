#include "StandardInputLines.h"

#include <QSocketNotifier>

#include <unistd.h>

namespace nimbrel {

namespace {

constexpr qsizetype longestLine = 1024 * 1024;

} // namespace

StandardInputLines::StandardInputLines(QObject* parent)
    : QObject(parent), m_notifier(new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this))
{
    connect(m_notifier, &QSocketNotifier::activated, this, &StandardInputLines::readAvailable);
}

void StandardInputLines::readAvailable()
{
    char buffer[4096];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count <= 0) {
        m_notifier->setEnabled(false);
        return;
    }
    m_pending.append(buffer, count);
    qsizetype end;
    while ((end = m_pending.indexOf('\n')) >= 0) {
        const QString line = QString::fromUtf8(m_pending.left(end)).trimmed();
        m_pending.remove(0, end + 1);
        if (!line.isEmpty())
            emit lineRead(line);
    }
    if (m_pending.size() > longestLine)
        m_pending.clear(); // no line is that long; what came is noise
}

} // namespace nimbrel
