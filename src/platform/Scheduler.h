#pragma once

#include <QObject>

#include <atomic>
#include <functional>
#include <memory>

namespace nimbrel {

// A delayed piece of work that can be called off until it runs.
class ScheduledTask {
public:
    void cancel() { m_cancelled.store(true, std::memory_order_release); }
    bool isCancelled() const { return m_cancelled.load(std::memory_order_acquire); }

private:
    std::atomic<bool> m_cancelled{false};
};
using TaskHandle = std::shared_ptr<ScheduledTask>;

// Every timer of the program goes through one of these, so that tests can run on virtual time.
class Scheduler {
public:
    virtual ~Scheduler() = default;

    // Runs work on the thread of context once delaySeconds have passed, unless the task was
    // cancelled or context was destroyed first. May be called from any thread.
    virtual TaskHandle schedule(QObject* context, double delaySeconds,
                                std::function<void()> work) = 0;

    // Seconds on a monotonic clock.
    virtual double now() const = 0;

    // The date: seconds since 1970, fractions included. What a reading's age or a reset's nearness
    // is measured against, so that on virtual time dates pass with the clock.
    virtual double date() const = 0;
};

// Wall-clock time through Qt timers.
class SystemScheduler final : public Scheduler {
public:
    SystemScheduler();
    TaskHandle schedule(QObject* context, double delaySeconds, std::function<void()> work) override;
    double now() const override;
    double date() const override;

private:
    struct Clock;
    std::shared_ptr<Clock> m_clock;
};

// The wall clock: seconds since 1970, fractions included, for the dates records keep. Timers and
// intervals use a Scheduler's now() instead.
double secondsSince1970();

} // namespace nimbrel
