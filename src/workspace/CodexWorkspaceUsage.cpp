// The account's allowances and each session's token usage, kept current by rationed readings.
#include "workspace/CodexWorkspace.h"

#include "platform/Property.h"

namespace nimbrel {

// The readings of the account's allowance belong to the engine that gave them.
void CodexWorkspace::resetUsage()
{
    for (TaskHandle* task : {&m_usageRefreshTask, &m_usageTimeoutTask})
        if (*task) {
            (*task)->cancel();
            task->reset();
        }
    m_usageRequestID.reset();
    m_usageRefreshPending = false;
    updateProperty(this, m_isLoadingUsage, false, &CodexWorkspace::isLoadingUsageChanged);
}

void CodexWorkspace::refreshUsage() {}

void CodexWorkspace::scheduleUsageRefresh() {}

void CodexWorkspace::handleTokenUsage(const QString&, const JSONValue&) {}

} // namespace nimbrel
