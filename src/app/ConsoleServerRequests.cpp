// The engine's approvals and questions on the console: shown as they come, answered by command.
#include "app/ConsoleCommands.h"

#include "bridge/BridgeController.h"
#include "platform/TextFormatting.h"

#include <QPointer>

#include <utility>

namespace nimbrel {

namespace {

// Text from the engine on one console line: its control characters shown, not obeyed.
QString shown(const QString& text)
{
    return withEscapedControlCharacters(text);
}

// Whether what the user typed names id: the whole id or its start, in either case.
bool names(const QString& typed, const QString& id)
{
    return !typed.isEmpty() && id.startsWith(typed, Qt::CaseInsensitive);
}

// The draft that a typed reply gives: an option's number picks it, anything else is the answer's
// text.
UserInputAnswerDraft draftFromReply(const UserInputQuestion& question, const QString& reply)
{
    bool isNumber = false;
    const qint64 number = reply.toLongLong(&isNumber);
    const qint64 optionCount = question.options ? static_cast<qint64>(question.options->size()) : 0;
    if (isNumber && number >= 1 && number <= optionCount)
        return UserInputAnswerDraft{number - 1, false, {}};
    return UserInputAnswerDraft{std::nullopt, true, reply};
}

} // namespace

void ConsoleCommands::showApproval()
{
    const std::optional<ApprovalPrompt>& approval = m_controller.approval();
    if (!approval)
        return;
    // One that takes the place of an approval decided elsewhere does not take over what a
    // decision without an id means until the user has been told (see decideApproval).
    if (m_printedApprovalID.isEmpty())
        m_printedApprovalID = approval->id;
    QStringList lines{QStringLiteral("Approval ") + approval->id + QStringLiteral(": ") +
                          shown(approval->title),
                      QStringLiteral("  ") + shown(approval->detail)};
    if (approval->command)
        lines.append(QStringLiteral("  Command: ") + shown(*approval->command));
    if (approval->cwd)
        lines.append(QStringLiteral("  Folder: ") + shown(*approval->cwd));
    lines.append(QStringLiteral("  Decide with: accept, accept-session or decline"));
    m_print(lines.join(QLatin1Char('\n')));
}

void ConsoleCommands::showNewQuestions()
{
    QSet<QString> open;
    for (const PendingUserInputRequests::Pending& entry :
         m_controller.pendingUserInput().requests) {
        const UserInputRequest& request = entry.request;
        open.insert(request.id);
        if (m_shownQuestions.contains(request.id))
            continue;
        QStringList lines{QStringLiteral("Question ") + request.id +
                          QStringLiteral(" in session ") + shown(request.threadID)};
        int number = 0;
        for (const UserInputQuestion& question : request.questions) {
            QString line = QStringLiteral("  ") + QString::number(++number) + QStringLiteral(". ");
            if (!question.header.isEmpty())
                line += QLatin1Char('[') + shown(question.header) + QStringLiteral("] ");
            line += shown(question.question);
            if (question.isSecret.value_or(false))
                line += QStringLiteral(" (private)");
            lines.append(line);
            int option = 0;
            for (const UserInputQuestion::Option& choice :
                 question.options.value_or(std::vector<UserInputQuestion::Option>{}))
                lines.append(QStringLiteral("     ") + QString::number(++option) +
                             QStringLiteral(") ") + shown(choice.label) +
                             (choice.description.isEmpty()
                                  ? QString()
                                  : QStringLiteral(" — ") + shown(choice.description)));
        }
        lines.append(QStringLiteral("  Answer with: answer ") + request.id.left(8) +
                     QStringLiteral(" <reply> [| <reply>…], an option's number or your own text"));
        m_print(lines.join(QLatin1Char('\n')));
    }
    m_shownQuestions = open;
}

QString ConsoleCommands::decideApproval(const QString& decision, const QString& id)
{
    const std::optional<ApprovalPrompt>& approval = m_controller.approval();
    if (!approval) {
        m_printedApprovalID.clear();
        return QStringLiteral("No approval is waiting.");
    }
    if (!id.isEmpty() && !names(id, approval->id))
        return QStringLiteral("The approval shown is ") + approval->id + QStringLiteral(", not ") +
               shown(id) + QLatin1Char('.');
    // Typed for the approval printed last, this must not decide another that came meanwhile.
    if (id.isEmpty() && approval->id != m_printedApprovalID) {
        const QString meant = std::exchange(m_printedApprovalID, approval->id);
        return (meant.isEmpty()
                    ? QStringLiteral("Nothing was decided.")
                    : QStringLiteral("Approval ") + meant +
                          QStringLiteral(" is no longer waiting, so nothing was decided.")) +
               QStringLiteral(" The approval shown now is ") + approval->id +
               QStringLiteral(
                   ": read it above, then decide with accept, accept-session or decline.");
    }
    const QString answered = approval->id;
    m_printedApprovalID.clear();
    m_controller.respondToApproval(decision);
    return QStringLiteral("Answered ") + answered + QStringLiteral(" with ") + decision +
           QLatin1Char('.');
}

QString ConsoleCommands::answerQuestion(const QString& arguments)
{
    const QString typedID = arguments.section(QLatin1Char(' '), 0, 0, QString::SectionSkipEmpty);
    std::vector<const PendingUserInputRequests::Pending*> matching;
    for (const PendingUserInputRequests::Pending& entry : m_controller.pendingUserInput().requests)
        if (names(typedID, entry.request.id))
            matching.push_back(&entry);
    if (matching.size() != 1)
        return matching.empty() ? QStringLiteral("No open question has the id ") + shown(typedID) +
                                      QLatin1Char('.')
                                : QStringLiteral("More than one question starts with ") +
                                      shown(typedID) + QStringLiteral("; type more of its id.");
    const UserInputRequest request = matching.front()->request;
    const QStringList replies =
        arguments.section(QLatin1Char(' '), 1, -1, QString::SectionSkipEmpty)
            .split(QStringLiteral(" | "));
    if (replies.size() != static_cast<qsizetype>(request.questions.size()))
        return QStringLiteral("This question needs ") + QString::number(request.questions.size()) +
               QStringLiteral(" replies, separated by \" | \".");

    CodexWorkspace& workspace = m_controller.workspace();
    for (std::size_t index = 0; index < request.questions.size(); ++index) {
        const UserInputQuestion& question = request.questions[index];
        workspace.setUserInputDraft(
            request.id, request.threadID, question.id,
            draftFromReply(question, replies[static_cast<qsizetype>(index)].trimmed()));
    }
    const UserInputPrompt* prompt = workspace.userInputPrompt(request.id, request.threadID);
    if (!prompt || prompt->isSubmitting)
        return QStringLiteral("That question is already being answered.");
    if (!makeResponse(*prompt))
        return QStringLiteral(
            "Every question needs an option's number or a text that is not blank.");
    if (!workspace.engineReady())
        return m_controller.appServerStatus();
    QPointer<ConsoleCommands> self(this);
    const QString id = request.id;
    workspace.submitUserInput(
        id, request.threadID, [self, id](const std::optional<QString>& error) {
            if (self)
                self->m_print(error ? QStringLiteral("The answers to ") + id +
                                          QStringLiteral(" were not sent: ") + *error
                                    : QStringLiteral("The answers to ") + id +
                                          QStringLiteral(" reached Codex."));
        });
    return QStringLiteral("Sending the answers to ") + id + QStringLiteral("…");
}

} // namespace nimbrel
