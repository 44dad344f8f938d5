#include "EventLoop.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

namespace nimbrel::test {

bool waitFor(const std::function<bool()>& condition, int boundMilliseconds)
{
    QDeadlineTimer deadline(boundMilliseconds);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(1);
    }
    return true;
}

void settle(int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    while (!deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(1);
    }
}

} // namespace nimbrel::test
