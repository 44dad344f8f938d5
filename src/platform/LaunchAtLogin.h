#pragma once

#include <QString>

#include <optional>

namespace nimbrel {

// Starting with the desktop session, through an XDG autostart entry:
// $XDG_CONFIG_HOME/autostart/nimbrel-bridge.desktop (~/.config where XDG_CONFIG_HOME is unset).
class LaunchAtLogin {
public:
    static QString entryPath();
    // Enabled exactly when the entry exists and does not say Hidden=true.
    static bool isEnabled();
    // Writes or removes the entry; an error text where that failed.
    static std::optional<QString> setEnabled(bool enabled, const QString& executablePath);
};

} // namespace nimbrel
