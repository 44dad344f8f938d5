#include "ConsoleCommands.h"

#include "bridge/BridgeController.h"
#include "platform/StandardInputLines.h"

#include <cstdio>

namespace nimbrel {

ConsoleCommands::ConsoleCommands(BridgeController& controller, QObject* parent) : QObject(parent), m_controller(controller)
{
    connect(new StandardInputLines(this), &StandardInputLines::lineRead, this,
            [this](const QString& line) { std::fprintf(stderr, "%s\n", qPrintable(run(line))); });
}

QString ConsoleCommands::run(const QString& line)
{
    const QStringList words = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    const QString command = words.value(0), argument = words.value(1);
    const auto pairing = m_controller.pairingRequestWithCode(argument);
    if (command == QLatin1String("approve") || command == QLatin1String("reject")) {
        if (!pairing)
            return QStringLiteral("No pairing shows code %1.").arg(argument);
        if (command == QLatin1String("approve")) {
            m_controller.approvePairing(*pairing);
            return QStringLiteral("Approved %1.").arg(argument);
        }
        m_controller.rejectPairing(*pairing);
        return QStringLiteral("Rejected %1.").arg(argument);
    }
    if (command == QLatin1String("forget")) {
        const auto peer = m_controller.trustedPeerWithID(argument);
        if (!peer)
            return QStringLiteral("No trusted device has the id %1.").arg(argument);
        m_controller.forgetPeer(*peer);
        return QStringLiteral("Forgot %1.").arg(argument);
    }
    return QStringLiteral("Commands: approve <code>, reject <code>, forget <device id>.");
}

} // namespace nimbrel
