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

// One field of a form: its name to type, its title, what it takes and whether it must be given.
QString fieldLine(const ElicitationField& field)
{
    using Kind = ElicitationField::Kind;
    QString line = QStringLiteral("  ") + shown(field.name);
    if (field.title != field.name)
        line += QStringLiteral(" (") + shown(field.title) + QLatin1Char(')');
    switch (field.kind) {
    case Kind::Text:
        line += QStringLiteral(": text");
        break;
    case Kind::Number:
        line += QStringLiteral(": number");
        break;
    case Kind::Integer:
        line += QStringLiteral(": whole number");
        break;
    case Kind::Boolean:
        line += QStringLiteral(": yes or no");
        break;
    case Kind::Choice:
        line += QStringLiteral(": one of ") + shown(field.options.join(QStringLiteral(", ")));
        break;
    case Kind::Choices:
        line += QStringLiteral(": any of ") + shown(field.options.join(QStringLiteral(", ")));
        break;
    }
    if (field.required)
        line += QStringLiteral(", required");
    if (!field.defaultValue.isNull())
        line += QStringLiteral(", default ") + shown(field.defaultValue.textForm());
    if (!field.description.isEmpty())
        line += QStringLiteral(" — ") + shown(field.description);
    return line;
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
    for (const QString& access : approval->access)
        lines.append(QStringLiteral("  ") + shown(access));
    if (const std::optional<ElicitationRequest>& request = approval->elicitation) {
        if (request->isURL) {
            lines.append(QStringLiteral("  Address: ") + shown(request->url));
            lines.append(
                QStringLiteral("  Open it yourself, then answer with: done, decline or cancel"));
        } else {
            for (const ElicitationField& field : request->fields)
                lines.append(fieldLine(field));
            lines.append(QStringLiteral(
                "  Answer with: fill <name>=<value> [| <name>=<value>…], decline or cancel"));
        }
    } else if (approval->method == BridgeController::permissionsMethod) {
        lines.append(QStringLiteral(
            "  Decide with: accept (this turn), accept-session (this session) or decline"));
    } else {
        lines.append(QStringLiteral("  Decide with: accept, accept-session or decline"));
    }
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
    if (id.isEmpty())
        if (const std::optional<QString> refusal = shownChangedSincePrinted())
            return *refusal;
    if (approval->elicitation && !approval->elicitation->isURL &&
        decision == QLatin1String("accept"))
        return QStringLiteral("Answer a form with fill, decline or cancel.");
    if (approval->elicitation && decision == QLatin1String("acceptForSession"))
        return QStringLiteral("A tool server's request is answered with fill or done, decline or "
                              "cancel.");
    if (!approval->elicitation && decision == QLatin1String("cancel"))
        return QStringLiteral("Decide an approval with accept, accept-session or decline.");
    const QString answered = approval->id;
    m_printedApprovalID.clear();
    m_controller.respondToApproval(decision);
    return QStringLiteral("Answered ") + answered + QStringLiteral(" with ") + decision +
           QLatin1Char('.');
}

std::optional<QString> ConsoleCommands::shownChangedSincePrinted()
{
    const std::optional<ApprovalPrompt>& approval = m_controller.approval();
    if (!approval || approval->id == m_printedApprovalID)
        return std::nullopt;
    const QString meant = std::exchange(m_printedApprovalID, approval->id);
    return (meant.isEmpty()
                ? QStringLiteral("Nothing was decided.")
                : QStringLiteral("Approval ") + meant +
                      QStringLiteral(" is no longer waiting, so nothing was decided.")) +
           QStringLiteral(" The approval shown now is ") + approval->id +
           QStringLiteral(": read it above, then decide with accept, accept-session or decline.");
}

QString ConsoleCommands::answerForm(const QString& action, const QString& arguments)
{
    const std::optional<ApprovalPrompt>& approval = m_controller.approval();
    if (!approval || !approval->elicitation || approval->elicitation->isURL)
        return QStringLiteral("No form is waiting.");
    if (const std::optional<QString> refusal = shownChangedSincePrinted())
        return *refusal;
    QVariantMap values;
    for (const QString& pair : arguments.split(QStringLiteral(" | "), Qt::SkipEmptyParts)) {
        const qsizetype equals = pair.indexOf(QLatin1Char('='));
        if (equals <= 0)
            return QStringLiteral("Give each field as <name>=<value>, separated by \" | \".");
        values.insert(pair.left(equals).trimmed(), pair.mid(equals + 1).trimmed());
    }
    const QString answered = approval->id;
    const QString error = m_controller.answerElicitation(action, values);
    if (!error.isEmpty())
        return QStringLiteral("Nothing was sent: ") + error;
    m_printedApprovalID.clear();
    return QStringLiteral("Answered ") + answered + QStringLiteral(" with the form.");
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
