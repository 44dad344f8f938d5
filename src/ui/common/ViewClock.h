#pragma once

#include "platform/Scheduler.h"

#include <QObject>

namespace nimbrel {

// When a view's texts that age with time alone (staleness, "resets in …", "5 minutes ago") are made
// again: every interval. They read now when they are made, never the time of the last tick, so
// that a date in the past never reads as one to come.
class ViewClock : public QObject {
    Q_OBJECT

public:
    static constexpr double usageInterval = 30;

    ViewClock(Scheduler& scheduler, double intervalSeconds, QObject* parent = nullptr);
    ~ViewClock() override;

    // Seconds since 1970, now.
    double now() const { return m_scheduler.date(); }

signals:
    void ticked();

private:
    void scheduleTick();

    Scheduler& m_scheduler;
    const double m_interval;
    TaskHandle m_tick;
};

} // namespace nimbrel
