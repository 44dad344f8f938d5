#include "app/BridgeWindow.h"
#include "app/ConsoleCommands.h"
#include "bridge/BridgeController.h"
#include "peer/PeerLink.h"
#include "platform/DesktopNotifications.h"
#include "platform/Scheduler.h"
#include "platform/UserDefaults.h"

#include <QCommandLineParser>
#include <QGuiApplication>
#include <QIcon>
#include <QQuickStyle>
#include <QQuickWindow>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

// A window needs a display and no --headless; without one the program keeps to the console.
bool wantsWindow(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--headless") == 0)
            return false;
    return !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    const bool windowed = wantsWindow(argc, argv);
    std::unique_ptr<QCoreApplication> app;
    if (windowed) {
        QQuickStyle::setStyle(QStringLiteral("Fusion"));
        app = std::make_unique<QGuiApplication>(argc, argv);
        QGuiApplication::setDesktopFileName(QStringLiteral("nimbrel-bridge"));
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("nimbrel-bridge"));
    QCoreApplication::setApplicationVersion(QStringLiteral(NIMBREL_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Makes this computer the engine of Codex work for paired phones and "
                       "tablets. With a display it opens its window; without one, or with "
                       "--headless, it takes console commands on standard input."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption demo(
        QStringLiteral("demo"),
        QStringLiteral(
            "Start in the offline tour: messages get a canned reply and nothing reaches Codex."));
    const QCommandLineOption headless(
        QStringLiteral("headless"),
        QStringLiteral("Open no window, even with a display: use the console commands."));
    const QCommandLineOption background(
        QStringLiteral("background"),
        QStringLiteral("Start the bridge at once with the window minimised, as when starting with "
                       "the desktop session."));
    parser.addOptions({demo, headless, background});
    parser.process(*app);

    nimbrel::SystemScheduler scheduler;
    nimbrel::SettingsUserDefaults defaults;
    nimbrel::BridgeController controller(scheduler, defaults);

    // The log and the sign-in line go to standard error, window or not.
    auto print = [](const QString& line) { std::fprintf(stderr, "%s\n", qPrintable(line)); };
    const QStringList earlier = controller.logs(); // written while the controller was being made
    for (auto line = earlier.crbegin(); line != earlier.crend(); ++line)
        print(*line);
    QObject::connect(&controller, &nimbrel::BridgeController::logAppended, print);
    QObject::connect(&controller, &nimbrel::BridgeController::codexAccountStatusChanged,
                     [&] { print(controller.codexAccountStatus()); });
    QObject::connect(&controller.link(), &nimbrel::PeerLink::listening,
                     [&](const QString& url) { print(QStringLiteral("Listening on ") + url); });
    QObject::connect(&controller.link(), &nimbrel::PeerLink::statusTextChanged, [&] {
        if (controller.link().statusText().startsWith(QStringLiteral("Advertising failed")))
            print(controller.link().statusText());
    });
    nimbrel::ConsoleCommands commands(controller);
    if (parser.isSet(demo)) {
        controller.workspace().setDemoMode(true);
        controller.workspace().seedDemoSessions();
        print(QStringLiteral("Offline tour: the window's sessions answer without Codex."));
    }

    // The window starts the bridge on its first showing; without one, the program does.
    std::unique_ptr<nimbrel::DesktopNotifications> notifications;
    std::unique_ptr<nimbrel::BridgeWindow> window;
    if (windowed) {
        nimbrel::BridgeWindow::useIconTheme();
        // The application's own icon comes with installing; a build tree uses the terminal's.
        QGuiApplication::setWindowIcon(
            QIcon::fromTheme(QStringLiteral("nimbrel-bridge"),
                             QIcon::fromTheme(QStringLiteral("utilities-terminal"))));
        notifications = std::make_unique<nimbrel::DesktopNotifications>();
        window = std::make_unique<nimbrel::BridgeWindow>(controller, defaults, notifications.get());
        if (!window->mainWindow()) {
            print(QStringLiteral(
                "The window could not be opened; run with --headless to use the console."));
            return 1;
        }
        // For the startup benchmark: one line when the first frame is on screen.
        if (qEnvironmentVariableIsSet("NIMBREL_REPORT_FIRST_FRAME"))
            QObject::connect(
                window->mainWindow(), &QQuickWindow::frameSwapped, app.get(),
                [print] { print(QStringLiteral("First frame shown")); }, Qt::SingleShotConnection);
        if (parser.isSet(background)) {
            window->mainWindow()->showMinimized();
            controller.startOnce();
        } else {
            window->mainWindow()->show();
        }
    } else {
        controller.startOnce();
    }
    return app->exec();
}
