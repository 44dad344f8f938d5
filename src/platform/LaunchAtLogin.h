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
    // Writes the entry, or removes it when it is one this program wrote; an error text where
    // that failed or where the entry at that place is someone else's.
    static std::optional<QString> setEnabled(bool enabled, const QString& executablePath);
    // The entry's command: the program by name when that name on PATH is this very program,
    // else by its absolute path; either way with the option that starts it in the background.
    static QString launchCommand(const QString& executablePath);
};

// One argument of a desktop entry's Exec key, quoted where it needs it.
QString quotedExecArgument(const QString& argument);

} // namespace nimbrel
