#include "ViewClock.h"

namespace nimbrel {

ViewClock::ViewClock(Scheduler& scheduler, double intervalSeconds, QObject* parent)
    : QObject(parent)
    , m_scheduler(scheduler)
    , m_interval(intervalSeconds)
    , m_now(scheduler.date())
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
        m_now = m_scheduler.date();
        scheduleTick();
        emit ticked();
    });
}

} // namespace nimbrel
