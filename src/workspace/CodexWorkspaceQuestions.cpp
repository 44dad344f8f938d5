// The engine's questions as this computer's user sees and answers them, per session.
#include "workspace/CodexWorkspace.h"

#include <QPointer>

#include <algorithm>

namespace nimbrel {

namespace {

const QString waitingForAnswer = QStringLiteral("Waiting for your answer…");

template <class Session>
auto promptIn(Session& session, const QString& requestID)
    -> decltype(&session.userInputPrompts.front())
{
    const auto found =
        std::find_if(session.userInputPrompts.begin(), session.userInputPrompts.end(),
                     [&](const UserInputPrompt& prompt) { return prompt.request.id == requestID; });
    return found == session.userInputPrompts.end() ? nullptr : &*found;
}

} // namespace

const UserInputPrompt* CodexWorkspace::userInputPrompt(const QString& requestID,
                                                       const QString& threadID) const
{
    const auto session = m_sessions.find(threadID);
    return session == m_sessions.end() ? nullptr : promptIn(session->second, requestID);
}

void CodexWorkspace::addUserInputPrompt(const UserInputRequest& request)
{
    // A question delivered again is the same question.
    if (userInputPrompt(request.id, request.threadID))
        return;
    changeSession(request.threadID, [&](CodexSessionState& session) {
        session.userInputPrompts.push_back(UserInputPrompt{request, {}, false, std::nullopt});
        if (request.isBlocking)
            session.activityText = waitingForAnswer;
    });
    // The session that asks gets a tab; the selected tab stays selected.
    if (!m_openThreadIDs.contains(request.threadID)) {
        setOpenThreadIDs(m_openThreadIDs + QStringList{request.threadID});
        persistOpenTabs();
    }
    if (!threadForID(request.threadID)) {
        CodexThread placeholder;
        placeholder.id = request.threadID;
        placeholder.title = QStringLiteral("Question from Codex");
        placeholder.preview = request.questions.front().question;
        placeholder.source = QStringLiteral("appServer");
        placeholder.status = QStringLiteral("active");
        placeholder.updatedAt = secondsSince1970();
        m_threadCache[request.threadID] = placeholder;
        refreshThreads();
    }
}

void CodexWorkspace::removeUserInputPrompt(const QString& requestID, const QString& threadID)
{
    changeSession(threadID, [&](CodexSessionState& session) {
        std::erase_if(session.userInputPrompts, [&](const UserInputPrompt& prompt) {
            return prompt.request.id == requestID;
        });
        if (session.userInputPrompts.empty() && session.activityText == waitingForAnswer) {
            if (session.turnControl.phase != TurnControlState::Phase::Idle)
                session.activityText = QStringLiteral("Codex is thinking…");
            else
                session.activityText.reset();
        }
    });
}

void CodexWorkspace::setUserInputDraft(const QString& requestID, const QString& threadID,
                                       const QString& questionID, const UserInputAnswerDraft& draft)
{
    changeSession(threadID, [&](CodexSessionState& session) {
        UserInputPrompt* prompt = promptIn(session, requestID);
        if (!prompt || prompt->isSubmitting)
            return;
        prompt->drafts[questionID] = draft;
        prompt->errorMessage.reset();
    });
}

void CodexWorkspace::submitUserInput(const QString& requestID, const QString& threadID,
                                     SubmitCompletion done)
{
    // The tour answers its own questions, engine or not.
    if (!m_engineReady && !m_isDemoMode)
        return;
    const UserInputPrompt* found = userInputPrompt(requestID, threadID);
    if (!found || found->isSubmitting)
        return;
    const std::optional<JSONValue> response = makeResponse(*found);
    if (!response)
        return;
    // Drafts cannot change while the answer is under way, so the record of it is made now.
    const TranscriptEntry record = answersEntry(*found);
    changeSession(threadID, [&](CodexSessionState& session) {
        UserInputPrompt* prompt = promptIn(session, requestID);
        prompt->isSubmitting = true;
        prompt->errorMessage.reset();
    });

    QPointer<CodexWorkspace> self(this);
    auto finish = [self, requestID, threadID, record, done](const std::optional<QString>& error) {
        if (!self)
            return;
        if (error) {
            self->changeSession(threadID, [&](CodexSessionState& session) {
                if (UserInputPrompt* prompt = promptIn(session, requestID)) {
                    prompt->isSubmitting = false;
                    prompt->errorMessage = *error;
                }
            });
        } else {
            self->removeUserInputPrompt(requestID, threadID);
            self->changeSession(threadID, [&](CodexSessionState& session) {
                session.transcript.push_back(record);
            });
        }
        if (done)
            done(error);
    };
    if (m_isDemoMode)
        return finish(std::nullopt);
    if (!userInputResponder)
        return finish(WorkspaceError(CodexWorkspaceError::TransportUnavailable).text());
    userInputResponder(requestID, *response, [finish](const std::optional<AppServerError>& error) {
        finish(error ? std::optional(error->text()) : std::nullopt);
    });
}

} // namespace nimbrel
