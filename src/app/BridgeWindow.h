#pragma once

#include "app/AttentionNotifications.h"
#include "ui/common/WindowPalette.h"
#include "ui/sessions/BridgeWorkspaceViewModel.h"
#include "ui/setup/BridgeSetupModel.h"

#include <QQmlApplicationEngine>

#include <memory>

class QQuickWindow;

namespace nimbrel {

// The desktop window over a controller: its view models, its palette and the loaded main window,
// not yet shown. The program, the tests and the screenshot tour open it the same way. Given the
// desktop's notifications, it tells the desktop when Codex needs the user.
class BridgeWindow {
public:
    BridgeWindow(BridgeController& controller, UserDefaults& defaults,
                 DesktopNotifications* notifications = nullptr);

    // The main window, or null when the window's module could not be loaded.
    QQuickWindow* mainWindow() const;
    QQuickWindow* settingsWindow() const;
    BridgeWorkspaceViewModel& sessions() { return m_sessions; }
    BridgeSetupModel& setup() { return m_setup; }
    // The first item with this name in either window.
    QObject* find(const QString& objectName) const;

    // The icon theme of the window's symbols where the desktop names none that holds them.
    static void useIconTheme();

    // Raises the window on a session's tab (on the window alone where threadID is empty).
    void bringForward(const QString& threadID);
    // Whether the window shows this session in front: the Sessions page, with its tab selected.
    bool shows(const QString& threadID) const;

private:
    BridgeController& m_controller;
    BridgeSetupModel m_setup;
    WindowPalette m_palette;
    BridgeWorkspaceViewModel m_sessions;
    QQmlApplicationEngine m_engine;
    std::unique_ptr<AttentionNotifications> m_attention;
};

} // namespace nimbrel
