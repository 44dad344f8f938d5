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

} // namespace

void CodexWorkspace::send(const QString& text, const QString& threadID)
{
    send(text, threadID, {});
}

void CodexWorkspace::send(const QString& text, const QString& threadID, const QStringList& images)
{
    const QString message = text.trimmed();
    if (message.isEmpty() && images.isEmpty())
        return;
    if (m_isDemoMode)
        return sendInDemo(message, threadID);
    if (!m_engineReady) {
        setErrorMessage(QStringLiteral("Codex app-server is not ready."));
        return;
    }
    const CodexSessionState* held = session(threadID);
    const TurnControlState control = held ? held->turnControl : TurnControlState{};
    switch (control.phase) {
    case Phase::Idle:
        return resumeAndStart(message, threadID, images);
    case Phase::Running:
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
void CodexWorkspace::resumeAndStart(const QString& text, const QString& threadID,
                                    const QStringList& images)
{
    PermissionMode mode = PermissionMode::FullAccess;
    changeSession(threadID, [&mode](CodexSessionState& session) {
        session.turnControl = {Phase::Starting, std::nullopt};
        session.activityText = QStringLiteral("Opening this Codex session…");
        mode = session.permissionMode;
    });
    QPointer<CodexWorkspace> self(this);
    request(QStringLiteral("thread/resume"),
            JSONValue::object({{"threadId", threadID},
                               {"approvalPolicy", approvalPolicyOf(mode)},
                               {"sandbox", sandboxModeOf(mode)},
                               {"excludeTurns", true}}),
            [self, text, threadID, images](const WorkspaceResult& outcome) {
                if (!self)
                    return;
                if (outcome.ok())
                    self->startTurn(text, threadID, images);
                else
                    self->failTurn(threadID, outcome.error().text());
            });
}

// The user's message enters the transcript when the engine reports it: no local echo here.
void CodexWorkspace::steer(const QString& text, const QString& threadID, const QString& turnID,
                           const QStringList& images)
{
    QPointer<CodexWorkspace> self(this);
    request(QStringLiteral("turn/steer"),
            JSONValue::object({{"threadId", threadID},
                               {"expectedTurnId", turnID},
                               {"input", userInput(text, images)}}),
            [self](const WorkspaceResult& outcome) {
                if (self && !outcome.ok())
                    self->setErrorMessage(outcome.error().text());
            });
}

void CodexWorkspace::startTurn(const QString& text, const QString& threadID,
                               const QStringList& images)
{
    std::optional<QString> model, effort;
    PermissionMode mode = PermissionMode::FullAccess;
    changeSession(threadID, [&](CodexSessionState& session) {
        session.hasLoadedTranscript = true;
        session.transcript.push_back(TranscriptEntry{QStringLiteral("local-") + randomUUIDText(),
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
        mode = session.permissionMode;
    });
    std::vector<std::pair<std::string, JSONValue>> params{
        {"threadId", threadID},
        {"input", userInput(text, images)},
        {"approvalPolicy", approvalPolicyOf(mode)},
        {"sandboxPolicy", sandboxPolicyOf(mode)},
        {"summary", "detailed"},
    };
    if (model && !model->isEmpty())
        params.emplace_back("model", *model);
    if (effort && !effort->isEmpty())
        params.emplace_back("effort", *effort);
    QPointer<CodexWorkspace> self(this);
    request(QStringLiteral("turn/start"), JSONValue::object(std::move(params)),
            [self, threadID](const WorkspaceResult& outcome) {
                if (self)
                    self->handleTurnStartReply(threadID, outcome);
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

// A turn already under way keeps what it started with; the next resume and turn carry the mode.
void CodexWorkspace::setPermissionMode(const QString& modeKey, const QString& threadID)
{
    const std::optional<PermissionMode> mode = permissionModeFromKey(modeKey);
    if (!mode || threadID.isEmpty())
        return;
    changeSession(threadID, [&](CodexSessionState& session) { session.permissionMode = *mode; });
}

PermissionMode CodexWorkspace::rememberedPermissionMode() const
{
    return permissionModeFromKey(m_defaults.string(lastPermissionModeKey).value_or(QString()))
        .value_or(PermissionMode::FullAccess);
}

} // namespace nimbrel
