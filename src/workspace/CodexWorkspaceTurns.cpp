// What a message does to a session: start a turn, steer the running one, or be refused; and stop.
#include "workspace/CodexWorkspace.h"

#include "platform/TextFormatting.h"
#include "workspace/SessionParsers.h"

#include <QPointer>

namespace nimbrel {

namespace {

using Phase = TurnControlState::Phase;

const QString stillStarting =
    QStringLiteral("Codex is still starting this turn. You can stop it or wait a moment.");

// The text, where there is any, then each image: a data URL as an image, a path as a local one.
JSONValue userInput(const QString& text, const QStringList& images)
{
    std::vector<JSONValue> items;
    if (!text.isEmpty() || images.isEmpty())
        items.push_back(JSONValue::object({{"type", "text"}, {"text", text}}));
    for (const QString& image : images)
        items.push_back(image.startsWith(QLatin1String("data:"))
                            ? JSONValue::object({{"type", "image"}, {"url", image}})
                            : JSONValue::object({{"type", "localImage"}, {"path", image}}));
    return JSONValue::array(std::move(items));
}

// What the message's text and images come to on Codex's input, give or take the request around
// them; counted in place, as a message too large to send is refused without a copy of it.
qint64 messageBytes(QStringView text, const QStringList& images)
{
    qint64 bytes = 0;
    for (const QChar c : text) {
        const char16_t unit = c.unicode();
        bytes += unit < 0x80 ? 1 : (unit < 0x800 || QChar::isSurrogate(unit)) ? 2 : 3;
    }
    for (const QString& image : images)
        bytes += image.size();
    return bytes;
}

} // namespace

void CodexWorkspace::send(const QString& text, const QString& threadID)
{
    send(text, threadID, {});
}

void CodexWorkspace::send(const QString& text, const QString& threadID, const QStringList& images)
{
    const QStringView trimmed = QStringView(text).trimmed();
    if (trimmed.isEmpty() && images.isEmpty())
        return;
    if (m_isDemoMode) {
        const QString message = trimmed.toString();
        sendInDemo(message, threadID);
        return finishSending(threadID, message, images, true);
    }
    if (!m_engineReady) {
        setErrorMessage(QStringLiteral("Codex app-server is not ready."));
        return;
    }
    // Refused here, at once, where Codex could not read it: nothing of it is shown as sent.
    if (const qint64 bytes = messageBytes(trimmed, images);
        bytes > AppServerClient::maximumLineBytes)
        return setErrorMessage(AppServerClient::tooLargeText(bytes));
    const QString message = trimmed.toString();
    const CodexSessionState* held = session(threadID);
    const TurnControlState control = held ? held->turnControl : TurnControlState{};
    // A message on its way is not sent twice.
    const bool sending = held && held->isSendingMessage;
    switch (control.phase) {
    case Phase::Idle:
        if (sending)
            return;
        return resumeAndStart(message, threadID, images);
    case Phase::Running:
        if (sending)
            return;
        if (control.turnID)
            return steer(message, threadID, *control.turnID, images);
        return setErrorMessage(stillStarting);
    case Phase::Starting:
        return setErrorMessage(stillStarting);
    case Phase::Stopping:
        return setErrorMessage(
            QStringLiteral("Wait for this session to stop before sending another message."));
    }
}

// An idle session is always resumed first, whether or not the engine still has it loaded.
// A session nobody chose a mode for resumes as Codex has it, and takes the mode Codex reports.
void CodexWorkspace::resumeAndStart(const QString& text, const QString& threadID,
                                    const QStringList& images)
{
    changeSession(threadID, [](CodexSessionState& session) {
        session.turnControl = {Phase::Starting, std::nullopt};
        session.activityText = QStringLiteral("Opening this Codex session…");
        session.isSendingMessage = true;
    });
    const std::optional<PermissionMode> mode = sessionMode(threadID);
    const JSONValue params = JSONValue::object({{"threadId", threadID}, {"excludeTurns", true}});
    QPointer<CodexWorkspace> self(this);
    request(QStringLiteral("thread/resume"),
            mode ? withPermissionMode(params, *mode, false) : params,
            [self, text, threadID, images](const WorkspaceResult& outcome) {
                if (!self)
                    return;
                if (outcome.ok()) {
                    self->noteSessionModeReply(QStringLiteral("thread/resume"), threadID,
                                               std::nullopt, outcome.value());
                    self->startTurn(text, threadID, images);
                } else {
                    self->finishSending(threadID, text, images, false);
                    self->failTurn(threadID, outcome.error().text());
                }
            });
}

// The user's message enters the transcript when the engine reports it: no local echo here.
void CodexWorkspace::steer(const QString& text, const QString& threadID, const QString& turnID,
                           const QStringList& images)
{
    changeSession(threadID, [](CodexSessionState& session) { session.isSendingMessage = true; });
    QPointer<CodexWorkspace> self(this);
    request(QStringLiteral("turn/steer"),
            JSONValue::object({{"threadId", threadID},
                               {"expectedTurnId", turnID},
                               {"input", userInput(text, images)}}),
            [self, threadID, text, images](const WorkspaceResult& outcome) {
                if (!self)
                    return;
                self->finishSending(threadID, text, images, outcome.ok());
                if (!outcome.ok())
                    self->setErrorMessage(outcome.error().text());
            });
}

void CodexWorkspace::startTurn(const QString& text, const QString& threadID,
                               const QStringList& images)
{
    std::optional<QString> model, effort;
    const QString echoID = QStringLiteral("local-") + randomUUIDText();
    changeSession(threadID, [&](CodexSessionState& session) {
        session.hasLoadedTranscript = true;
        session.transcript.push_back(TranscriptEntry{echoID,
                                                     TranscriptKind::User,
                                                     QStringLiteral("You"),
                                                     text,
                                                     std::nullopt,
                                                     std::nullopt,
                                                     {},
                                                     images});
        if (session.turnControl.phase == Phase::Idle)
            session.turnControl = {Phase::Starting, std::nullopt};
        session.activityText = QStringLiteral("Starting the turn…");
        model = session.model;
        effort = session.reasoningEffort;
    });
    std::vector<std::pair<std::string, JSONValue>> params{
        {"threadId", threadID},
        {"input", userInput(text, images)},
        {"summary", "detailed"},
    };
    if (model && !model->isEmpty())
        params.emplace_back("model", *model);
    if (effort && !effort->isEmpty())
        params.emplace_back("effort", *effort);
    JSONValue request = JSONValue::object(std::move(params));
    if (const std::optional<PermissionMode> mode = sessionMode(threadID))
        request = withPermissionMode(request, *mode, true);
    QPointer<CodexWorkspace> self(this);
    this->request(QStringLiteral("turn/start"), request,
                  [self, threadID, text, images, echoID](const WorkspaceResult& outcome) {
                      if (!self)
                          return;
                      // A message Codex did not take leaves no echo: it is still in the composer.
                      if (!outcome.ok())
                          self->changeSession(threadID, [&](CodexSessionState& session) {
                              std::erase_if(session.transcript, [&](const TranscriptEntry& entry) {
                                  return entry.id == echoID;
                              });
                          });
                      self->finishSending(threadID, text, images, outcome.ok());
                      self->handleTurnStartReply(threadID, outcome);
                  });
}

void CodexWorkspace::finishSending(const QString& threadID, const QString& text,
                                   const QStringList& images, bool accepted)
{
    changeSession(threadID, [&](CodexSessionState& session) {
        session.isSendingMessage = false;
        if (!accepted)
            return;
        if (session.draft.trimmed() == text)
            session.draft.clear();
        std::erase_if(session.draftImages,
                      [&](const DraftImage& image) { return images.contains(image.url); });
    });
}

// The reply may come before or after turn/started; a reply after the turn ended stores no id.
void CodexWorkspace::handleTurnStartReply(const QString& threadID, const WorkspaceResult& outcome)
{
    if (!outcome.ok())
        return failTurn(threadID, outcome.error().text());
    const JSONValue* turn = outcome.value().find("turn");
    const std::optional<QString> turnID = turn ? stringAt(*turn, "id") : std::nullopt;
    if (!turnID)
        return failTurn(
            threadID,
            QStringLiteral("Codex returned an unexpected response while starting the turn."));
    changeSession(threadID, [&](CodexSessionState& session) {
        if (session.turnControl.phase != Phase::Idle)
            session.turnControl.turnID = turnID;
        session.activityText = QStringLiteral("Codex is thinking…");
    });
}

void CodexWorkspace::failTurn(const QString& threadID, const QString& message)
{
    changeSession(threadID, [](CodexSessionState& session) {
        session.turnControl = TurnControlState{};
        session.activityText.reset();
    });
    setErrorMessage(message);
}

// A turn that runs while nothing here knew of it (after a restart, or started elsewhere before the
// session was read): the newest turn of a page of turns, newest first, when it is in progress.
void CodexWorkspace::adoptRunningTurn(const QString& threadID, const JSONValue& turnsPage)
{
    const JSONValue* data = turnsPage.find("data");
    const auto turns = data ? data->items() : std::span<const JSONValue>();
    if (turns.empty() || stringAt(turns.front(), "status") != QLatin1String("inProgress"))
        return;
    const std::optional<QString> turnID = stringAt(turns.front(), "id");
    if (!turnID)
        return;
    changeSession(threadID, [&](CodexSessionState& session) {
        if (session.turnControl.phase == Phase::Idle)
            session.turnControl = {Phase::Running, turnID};
        else if (session.turnControl.phase == Phase::Running && !session.turnControl.turnID)
            session.turnControl.turnID = turnID;
    });
}

// A stop is never lost and never sent without a turn id: without one, turn/started sends it.
void CodexWorkspace::stopTurn(const QString& threadID)
{
    if (m_isDemoMode) {
        changeSession(threadID,
                      [](CodexSessionState& session) { session.turnControl = TurnControlState{}; });
        return;
    }
    const CodexSessionState* held = session(threadID);
    if (!held || held->turnControl.phase == Phase::Idle)
        return;
    const TurnControlState control = held->turnControl;
    changeSession(threadID,
                  [](CodexSessionState& session) { session.turnControl.phase = Phase::Stopping; });
    if (control.phase == Phase::Running && control.turnID)
        interruptTurn(threadID, *control.turnID);
}

void CodexWorkspace::interruptTurn(const QString& threadID, const QString& turnID)
{
    QPointer<CodexWorkspace> self(this);
    request(QStringLiteral("turn/interrupt"),
            JSONValue::object({{"threadId", threadID}, {"turnId", turnID}}),
            [self, threadID](const WorkspaceResult& outcome) {
                if (!self || outcome.ok())
                    return;
                // The user can press stop again.
                self->changeSession(threadID, [](CodexSessionState& session) {
                    if (session.turnControl.phase == Phase::Stopping)
                        session.turnControl.phase =
                            session.turnControl.turnID ? Phase::Running : Phase::Starting;
                });
                self->setErrorMessage(outcome.error().text());
            });
}

} // namespace nimbrel
