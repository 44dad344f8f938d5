#include "ConsoleCommands.h"

#include "bridge/BridgeController.h"

#include <QSocketNotifier>

#include <cstdio>
#include <unistd.h>

namespace nimbrel {

ConsoleCommands::ConsoleCommands(BridgeController& controller, QObject* parent)
    : QObject(parent), m_controller(controller), m_notifier(new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this))
{
    connect(m_notifier, &QSocketNotifier::activated, this, &ConsoleCommands::readAvailable);
}

void ConsoleCommands::readAvailable()
{
    char buffer[4096];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count <= 0) {
        m_notifier->setEnabled(false); // no more input: the program goes on without it
        return;
    }
    m_pending.append(buffer, count);
    qsizetype end;
    while ((end = m_pending.indexOf('\n')) >= 0) {
        const QString line = QString::fromUtf8(m_pending.left(end)).trimmed();
        m_pending.remove(0, end + 1);
        if (!line.isEmpty())
            std::fprintf(stderr, "%s\n", qPrintable(run(line)));
    }
    if (m_pending.size() > 64 * 1024)
        m_pending.clear();
}

QString ConsoleCommands::run(const QString& line)
{
    const QStringList words = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    const QString command = words.value(0), argument = words.value(1);
    if (command == QLatin1String("approve"))
        return m_controller.approvePairingWithCode(argument) ? QStringLiteral("Approved %1.").arg(argument)
                                                             : QStringLiteral("No pairing shows code %1.").arg(argument);
    if (command == QLatin1String("reject"))
        return m_controller.rejectPairingWithCode(argument) ? QStringLiteral("Rejected %1.").arg(argument)
                                                            : QStringLiteral("No pairing shows code %1.").arg(argument);
    if (command == QLatin1String("forget"))
        return m_controller.forgetPeerWithID(argument) ? QStringLiteral("Forgot %1.").arg(argument)
                                                       : QStringLiteral("No trusted device has the id %1.").arg(argument);
    return QStringLiteral("Commands: approve <code>, reject <code>, forget <device id>.");
}

} // namespace nimbrel
