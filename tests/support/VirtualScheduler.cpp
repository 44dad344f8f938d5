#include "VirtualScheduler.h"

#include <algorithm>

namespace nimbrel::test {

TaskHandle VirtualScheduler::schedule(QObject* context, double delaySeconds,
                                      std::function<void()> work)
{
    auto task = std::make_shared<ScheduledTask>();
    std::lock_guard lock(m_mutex);
    m_entries.push_back(
        Entry{m_now + std::max(0.0, delaySeconds), m_nextOrder++, context, std::move(work), task});
    return task;
}

double VirtualScheduler::now() const
{
    std::lock_guard lock(m_mutex);
    return m_now;
}

double VirtualScheduler::date() const
{
    std::lock_guard lock(m_mutex);
    return m_startDate + m_now;
}

void VirtualScheduler::advance(double seconds)
{
    std::vector<Entry> due;
    {
        std::lock_guard lock(m_mutex);
        m_now += seconds;
        auto firstLater =
            std::stable_partition(m_entries.begin(), m_entries.end(),
                                  [&](const Entry& entry) { return entry.due <= m_now; });
        due.assign(std::make_move_iterator(m_entries.begin()), std::make_move_iterator(firstLater));
        m_entries.erase(m_entries.begin(), firstLater);
    }
    std::sort(due.begin(), due.end(), [](const Entry& a, const Entry& b) {
        return a.due != b.due ? a.due < b.due : a.order < b.order;
    });
    for (Entry& entry : due) {
        if (!entry.context || entry.task->isCancelled())
            continue;
        QMetaObject::invokeMethod(
            entry.context.data(),
            [task = entry.task, work = std::move(entry.work)] {
                if (!task->isCancelled())
                    work();
            },
            Qt::QueuedConnection);
    }
}

std::size_t VirtualScheduler::pendingCount() const
{
    std::lock_guard lock(m_mutex);
    return static_cast<std::size_t>(
        std::count_if(m_entries.begin(), m_entries.end(), [](const Entry& entry) {
            return entry.context && !entry.task->isCancelled();
        }));
}

} // namespace nimbrel::test
