#include "Scheduler.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QPointer>
#include <QThread>
#include <QTimer>

#include <cmath>

namespace nimbrel {

struct SystemScheduler::Clock {
    QElapsedTimer elapsed;
};

SystemScheduler::SystemScheduler()
    : m_clock(std::make_shared<Clock>())
{
    m_clock->elapsed.start();
}

TaskHandle SystemScheduler::schedule(QObject* context, double delaySeconds,
                                     std::function<void()> work)
{
    auto task = std::make_shared<ScheduledTask>();
    const int milliseconds = static_cast<int>(std::ceil(std::max(0.0, delaySeconds) * 1000.0));
    auto arm = [context, milliseconds, task, work = std::move(work)]() mutable {
        QTimer::singleShot(milliseconds, Qt::PreciseTimer, context, [task, work = std::move(work)] {
            if (!task->isCancelled())
                work();
        });
    };
    // Timers start on the thread that will run them.
    if (QThread::currentThread() == context->thread())
        arm();
    else
        QMetaObject::invokeMethod(context, std::move(arm), Qt::QueuedConnection);
    return task;
}

double SystemScheduler::now() const
{
    return static_cast<double>(m_clock->elapsed.nsecsElapsed()) / 1e9;
}

double SystemScheduler::date() const
{
    return secondsSince1970();
}

double secondsSince1970()
{
    return static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000;
}

} // namespace nimbrel
