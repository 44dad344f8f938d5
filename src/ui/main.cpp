#include "bridge/BridgeController.h"
#include "peer/PeerLink.h"
#include "platform/Scheduler.h"
#include "platform/UserDefaults.h"
#include "ui/ConsoleCommands.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <csignal>
#include <cstdio>

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("nimbrel-bridge"));
    QCoreApplication::setApplicationVersion(QStringLiteral(NIMBREL_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Makes this computer the engine of Codex work for paired phones and tablets."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption demo(
        QStringLiteral("demo"),
        QStringLiteral(
            "Start in the offline tour: messages get a canned reply and nothing reaches Codex."));
    parser.addOption(demo);
    parser.process(app);

    nimbrel::SystemScheduler scheduler;
    nimbrel::SettingsUserDefaults defaults;
    nimbrel::BridgeController controller(scheduler, defaults);

    // Until there is a window, the log and the sign-in line go to standard error.
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
        print(QStringLiteral("Offline tour: the window's sessions answer without Codex."));
    }
    controller.startOnce();
    return app.exec();
}
