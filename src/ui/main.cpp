#include "engine/AppServerClient.h"
#include "platform/Scheduler.h"

#include <QCoreApplication>
#include <QStandardPaths>

#include <csignal>
#include <cstdio>

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("nimbrel-bridge"));
    QCoreApplication::setApplicationVersion(QStringLiteral(NIMBREL_VERSION));

    nimbrel::SystemScheduler scheduler;
    nimbrel::AppServerClient client(scheduler);
    auto print = [](const QString& line) { std::fprintf(stderr, "%s\n", qPrintable(line)); };
    client.onStatus = [&](const QString& message, bool) { print(message); };
    client.onLog = print;
    const QString codex = QStandardPaths::findExecutable(QStringLiteral("codex"));
    client.start(codex.isEmpty() ? std::nullopt : std::optional<QString>(codex));
    return app.exec();
}
