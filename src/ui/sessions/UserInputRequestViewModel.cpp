#include "UserInputRequestViewModel.h"

#include "platform/TextFormatting.h"
#include "workspace/CodexWorkspace.h"

#include <QVariantMap>

namespace nimbrel {

const QList<QByteArray> UserInputRequestViewModel::roles = {"questionID", "header",      "question",
                                                            "rows",       "showsField",  "isSecret",
                                                            "text",       "placeholder", "fieldID"};

UserInputRequestViewModel::UserInputRequestViewModel(CodexWorkspace& workspace, QString threadID,
                                                     QString requestID, QObject* parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_threadID(std::move(threadID))
    , m_requestID(std::move(requestID))
{
    connect(&m_workspace, &CodexWorkspace::sessionChanged, this, [this](const QString& id) {
        if (id == m_threadID)
            refresh();
    });
    connect(&m_workspace, &CodexWorkspace::engineReadyChanged, this,
            &UserInputRequestViewModel::changed);
    refresh();
}

const UserInputPrompt* UserInputRequestViewModel::prompt() const
{
    return m_workspace.userInputPrompt(m_requestID, m_threadID);
}

QString UserInputRequestViewModel::title() const
{
    const UserInputPrompt* shown = prompt();
    return shown && !shown->request.isBlocking ? QStringLiteral("A question for you")
                                               : QStringLiteral("Your answer is needed");
}

QString UserInputRequestViewModel::errorMessage() const
{
    const UserInputPrompt* shown = prompt();
    return shown ? shown->errorMessage.value_or(QString()) : QString();
}

bool UserInputRequestViewModel::canSend() const
{
    const UserInputPrompt* shown = prompt();
    return shown && !shown->isSubmitting &&
           (m_workspace.engineReady() || m_workspace.isDemoMode()) &&
           makeResponse(*shown).has_value();
}

bool UserInputRequestViewModel::isSubmitting() const
{
    const UserInputPrompt* shown = prompt();
    return shown && shown->isSubmitting;
}

QString UserInputRequestViewModel::sendText() const
{
    return isSubmitting() ? QStringLiteral("Sending…") : QStringLiteral("Send answer");
}

void UserInputRequestViewModel::choose(const QString& questionID, int option)
{
    const UserInputPrompt* shown = prompt();
    if (!shown)
        return;
    UserInputAnswerDraft draft = draftFor(*shown, questionID);
    draft.usesCustomResponse = option < 0;
    if (option >= 0)
        draft.selectedOption = option;
    m_workspace.setUserInputDraft(m_requestID, m_threadID, questionID, draft);
}

void UserInputRequestViewModel::setText(const QString& questionID, const QString& text)
{
    const UserInputPrompt* shown = prompt();
    if (!shown)
        return;
    UserInputAnswerDraft draft = draftFor(*shown, questionID);
    if (draft.text == text)
        return;
    draft.text = text;
    m_workspace.setUserInputDraft(m_requestID, m_threadID, questionID, draft);
}

void UserInputRequestViewModel::send()
{
    if (canSend())
        m_workspace.submitUserInput(m_requestID, m_threadID);
}

void UserInputRequestViewModel::refresh()
{
    QList<ListRecord> questions;
    if (const UserInputPrompt* shown = prompt()) {
        for (const UserInputQuestion& question : shown->request.questions) {
            const UserInputAnswerDraft draft = draftFor(*shown, question.id);
            const QString prefix = QStringLiteral("question-") + question.id;
            QVariantList rows;
            const bool hasOptions = question.options && !question.options->empty();
            if (hasOptions) {
                for (std::size_t i = 0; i < question.options->size(); ++i) {
                    const auto& option = (*question.options)[i];
                    rows.append(QVariantMap{
                        {"label", withEscapedControlCharactersKeepingLines(option.label)},
                        {"detail", withEscapedControlCharactersKeepingLines(option.description)},
                        {"selected", !draft.usesCustomResponse &&
                                         draft.selectedOption == static_cast<qint64>(i)},
                        {"accessibilityID",
                         prefix + QStringLiteral("-option-") + QString::number(i)},
                        {"option", static_cast<int>(i)}});
                }
                rows.append(QVariantMap{{"label", QStringLiteral("Write a response…")},
                                        {"detail", QStringLiteral("Answer in your own words")},
                                        {"selected", draft.usesCustomResponse},
                                        {"accessibilityID", prefix + QStringLiteral("-custom")},
                                        {"option", -1}});
            }
            questions.append(
                {question.id,
                 {question.id, withEscapedControlCharactersKeepingLines(question.header),
                  withEscapedControlCharactersKeepingLines(question.question), rows,
                  !hasOptions || draft.usesCustomResponse, question.isSecret.value_or(false),
                  draft.text, QStringLiteral("Your response"),
                  prefix + QStringLiteral("-response")}});
        }
    }
    m_questions.setRecords(questions);
    emit changed();
}

} // namespace nimbrel
