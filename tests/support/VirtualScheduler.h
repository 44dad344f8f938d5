#pragma once

#include "platform/Scheduler.h"

#include <QPointer>

#include <mutex>
#include <vector>

namespace nimbrel::test {

// Time that moves only when a test says so. Due work is posted to its context's thread.
class VirtualScheduler final : public Scheduler {
public:
    TaskHandle schedule(QObject* context, double delaySeconds, std::function<void()> work) override;
    double now() const override;
    // The wall clock when the scheduler was made, moved on with the virtual clock.
    double date() const override;

    // Moves the clock forward and posts every task that has come due, in time order.
    void advance(double seconds);
    // Tasks scheduled and neither run nor cancelled.
    std::size_t pendingCount() const;

private:
    struct Entry {
        double due;
        std::uint64_t order;
        QPointer<QObject> context;
        std::function<void()> work;
        TaskHandle task;
    };
    mutable std::mutex m_mutex;
    double m_now = 0;
    const double m_startDate = secondsSince1970();
    std::uint64_t m_nextOrder = 0;
    std::vector<Entry> m_entries;
};

} // namespace nimbrel::test
