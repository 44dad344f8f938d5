#pragma once

#include "ui/BridgeSetupModel.h"
#include "ui/BridgeWorkspaceViewModel.h"
#include "ui/WindowPalette.h"

#include <QQmlApplicationEngine>

class QQuickWindow;

namespace nimbrel {

// The desktop window over a controller: its view models, its palette and the loaded main window,
// not yet shown. The program, the tests and the screenshot tour open it the same way.
class BridgeWindow {
public:
    BridgeWindow(BridgeController& controller, UserDefaults& defaults);

    // The main window, or null when the window's module could not be loaded.
    QQuickWindow* mainWindow() const;
    QQuickWindow* settingsWindow() const;
    BridgeWorkspaceViewModel& sessions() { return m_sessions; }
    // The first item with this name in either window.
    QObject* find(const QString& objectName) const;

    // The icon theme of the window's symbols where the desktop names none that holds them.
    static void useIconTheme();

private:
    BridgeSetupModel m_setup;
    WindowPalette m_palette;
    BridgeWorkspaceViewModel m_sessions;
    QQmlApplicationEngine m_engine;
};

} // namespace nimbrel
