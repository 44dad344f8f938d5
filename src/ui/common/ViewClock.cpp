#include "ViewClock.h"

namespace nimbrel {

ViewClock::ViewClock(Scheduler& scheduler, double intervalSeconds, QObject* parent)
    : QObject(parent)
    , m_scheduler(scheduler)
    , m_interval(intervalSeconds)
{
    scheduleTick();
}

ViewClock::~ViewClock()
{
    if (m_tick)
        m_tick->cancel();
}

void ViewClock::scheduleTick()
{
    m_tick = m_scheduler.schedule(this, m_interval, [this] {
        scheduleTick();
        emit ticked();
    });
}

} // namespace nimbrel
