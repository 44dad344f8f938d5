#pragma once

#include "platform/UserDefaults.h"

#include <QString>

namespace nimbrel {

// "Show notifications" in Settings: whether the desktop is told when Codex needs the user. On until
// the user switches it off.
struct NotificationPreference {
    static inline const QString key = QStringLiteral("SarvaneShowNotifications");

    static bool enabled(const UserDefaults& defaults)
    {
        const QVariant value = defaults.value(key);
        return !value.isValid() || value.toBool();
    }
};

} // namespace nimbrel
