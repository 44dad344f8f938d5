#include "ConsoleCommands.h"

#include "bridge/BridgeController.h"
#include "platform/StandardInputLines.h"

#include <cstdio>

namespace nimbrel {

ConsoleCommands::ConsoleCommands(BridgeController& controller,
                                 std::function<void(const QString&)> print, QObject* parent)
    : QObject(parent)
    , m_controller(controller)
    , m_print(std::move(print))
{
    if (!m_print)
        m_print = [](const QString& line) { std::fprintf(stderr, "%s\n", qPrintable(line)); };
    connect(new StandardInputLines(this), &StandardInputLines::lineRead, this,
            [this](const QString& line) { m_print(run(line)); });
    connect(&m_controller, &BridgeController::approvalChanged, this,
            &ConsoleCommands::showApproval);
    connect(&m_controller, &BridgeController::pendingUserInputChanged, this,
            &ConsoleCommands::showNewQuestions);
    showApproval();
}

QString ConsoleCommands::run(const QString& line)
{
    const QString command = line.section(QLatin1Char(' '), 0, 0, QString::SectionSkipEmpty);
    const QString rest = line.section(QLatin1Char(' '), 1, -1, QString::SectionSkipEmpty);
    if (command == QLatin1String("approve") || command == QLatin1String("reject") ||
        command == QLatin1String("forget"))
        return runPairing(command, rest);
    if (command == QLatin1String("accept"))
        return decideApproval(QStringLiteral("accept"), rest);
    if (command == QLatin1String("accept-session"))
        return decideApproval(QStringLiteral("acceptForSession"), rest);
    if (command == QLatin1String("decline"))
        return decideApproval(QStringLiteral("decline"), rest);
    if (command == QLatin1String("answer"))
        return answerQuestion(rest);
    if (command == QLatin1String("fill"))
        return answerForm(QStringLiteral("accept"), rest);
    if (command == QLatin1String("done")) {
        // Said of an address visited, never of an approval.
        const std::optional<ApprovalPrompt>& shownNow = m_controller.approval();
        if (!shownNow || !shownNow->elicitation || !shownNow->elicitation->isURL)
            return QStringLiteral("No address to visit is waiting; decide approvals with accept, "
                                  "accept-session or decline.");
        return decideApproval(QStringLiteral("accept"), rest);
    }
    if (command == QLatin1String("cancel"))
        return decideApproval(QStringLiteral("cancel"), rest);
    if (command == QLatin1String("login")) {
        m_controller.startSignIn(QStringLiteral("chatgptDeviceCode"));
        return QStringLiteral("Asking Codex for a sign-in code…");
    }
    return QStringLiteral(
        "Commands: approve <code>, reject <code>, forget <device id>, accept [<id>], "
        "accept-session [<id>], decline [<id>], answer <id> <reply> [| <reply>…], "
        "fill <name>=<value> [| <name>=<value>…], done [<id>], cancel [<id>], login.");
}

QString ConsoleCommands::runPairing(const QString& command, const QString& argument)
{
    if (command == QLatin1String("forget")) {
        const auto peer = m_controller.trustedPeerWithID(argument);
        if (!peer)
            return QStringLiteral("No trusted device has the id ") + argument + QLatin1Char('.');
        m_controller.forgetPeer(*peer);
        return QStringLiteral("Forgot ") + argument + QLatin1Char('.');
    }
    const auto pairing = m_controller.pairingRequestWithCode(argument);
    if (!pairing)
        return QStringLiteral("No pairing shows code ") + argument + QLatin1Char('.');
    if (command == QLatin1String("approve")) {
        m_controller.approvePairing(*pairing);
        return QStringLiteral("Approved ") + argument + QLatin1Char('.');
    }
    m_controller.rejectPairing(*pairing);
    return QStringLiteral("Rejected ") + argument + QLatin1Char('.');
}

} // namespace nimbrel
