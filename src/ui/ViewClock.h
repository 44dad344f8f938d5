#pragma once

#include "platform/Scheduler.h"

#include <QObject>

namespace nimbrel {

// The moment a view shows things as of: the scheduler's date when the clock was made, read again
// every interval, so that texts that age with time alone (staleness, "resets in …") follow it.
class ViewClock : public QObject {
    Q_OBJECT

public:
    static constexpr double usageInterval = 30;

    ViewClock(Scheduler& scheduler, double intervalSeconds, QObject* parent = nullptr);
    ~ViewClock() override;

    // Seconds since 1970 at the latest tick.
    double now() const { return m_now; }

signals:
    void ticked();

private:
    void scheduleTick();

    Scheduler& m_scheduler;
    const double m_interval;
    double m_now;
    TaskHandle m_tick;
};

} // namespace nimbrel
