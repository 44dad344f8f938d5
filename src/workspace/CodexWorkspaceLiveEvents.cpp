// The engine's notifications as they change sessions: turns beginning and ending, items, and the
// end of questions.
#include "workspace/CodexWorkspace.h"

#include "platform/TextFormatting.h"
#include "workspace/SessionParsers.h"

namespace nimbrel {

namespace {

using Phase = TurnControlState::Phase;

// The turn id under turn.id, where it is text.
std::optional<QString> turnIDOf(const JSONValue& params)
{
    const JSONValue* turn = params.find("turn");
    return turn ? stringAt(*turn, "id") : std::nullopt;
}

} // namespace

void CodexWorkspace::handleNotification(const QString& method, const JSONValue& params)
{
    const std::optional<QString> threadID = params.isObject() && !params.members().empty()
                                                ? stringAt(params, "threadId")
                                                : std::nullopt;
    if (!threadID) {
        if (method.startsWith(QLatin1String("thread/")))
            refreshThreads();
        return;
    }
    // An event for a thread no tab shows makes its session, not a tab.
    ensureSession(*threadID);
    if (method == QLatin1String("sarvane/userInputResolved")) {
        if (const std::optional<QString> requestID = stringAt(params, "requestId"))
            removeUserInputPrompt(*requestID, *threadID);
    } else if (method == QLatin1String("turn/started")) {
        handleTurnStarted(*threadID, params);
    } else if (method == QLatin1String("turn/completed")) {
        handleTurnCompleted(*threadID, params);
        refreshThreads();
    } else if (method == QLatin1String("item/started") ||
               method == QLatin1String("item/completed")) {
        handleItem(*threadID, params, method == QLatin1String("item/completed"));
    } else if (method.startsWith(QLatin1String("thread/"))) {
        refreshThreads();
    }
}

void CodexWorkspace::handleTurnStarted(const QString& threadID, const JSONValue& params)
{
    const std::optional<QString> turnID = turnIDOf(params);
    bool stopOwed = false;
    changeSession(threadID, [&](CodexSessionState& session) {
        if (!turnID) {
            session.turnControl = TurnControlState{};
            session.transcriptLoadError =
                QStringLiteral("Codex started a turn without returning its identifier.");
            return;
        }
        // Questions of an older turn are over.
        std::erase_if(session.userInputPrompts, [&](const UserInputPrompt& prompt) {
            return prompt.request.turnID != *turnID;
        });
        session.turnControl.turnID = turnID;
        stopOwed = session.turnControl.phase == Phase::Stopping;
        if (!stopOwed)
            session.turnControl.phase = Phase::Running;
        session.activityText = QStringLiteral("Codex is thinking…");
    });
    if (stopOwed)
        interruptTurn(threadID, *turnID);
}

void CodexWorkspace::handleTurnCompleted(const QString& threadID, const JSONValue& params)
{
    const std::optional<QString> turnID = turnIDOf(params);
    const JSONValue* turn = params.find("turn");
    changeSession(threadID, [&](CodexSessionState& session) {
        std::erase_if(session.userInputPrompts, [&](const UserInputPrompt& prompt) {
            return !turnID || prompt.request.turnID == *turnID;
        });
        if (turn && stringAt(*turn, "status") == QStringLiteral("failed")) {
            const JSONValue* error = turn->find("error");
            session.transcript.push_back(TranscriptEntry{
                QStringLiteral("turn-error-") + randomUUIDText(),
                TranscriptKind::System,
                QStringLiteral("Turn failed"),
                (error ? stringAt(*error, "message") : std::nullopt)
                    .value_or(QStringLiteral("Codex could not complete this turn.")),
                QStringLiteral("failed"),
                std::nullopt,
                {}});
        }
        session.turnControl = TurnControlState{};
        session.activityText.reset();
    });
}

void CodexWorkspace::handleItem(const QString& threadID, const JSONValue& params, bool completed)
{
    const JSONValue* item = params.find("item");
    if (!item)
        return;
    if (!completed)
        changeSession(threadID, [&](CodexSessionState& session) {
            session.activityText =
                itemActivityText(stringAt(*item, "type").value_or(QString()), *item);
        });
    std::optional<TranscriptEntry> entry = parseTranscriptItem(*item);
    if (!entry)
        return;
    if (!entry->status) {
        if (!completed)
            entry->status = entry->kind == TranscriptKind::Reasoning ? QStringLiteral("thinking")
                                                                     : QStringLiteral("running");
        else if (entry->kind != TranscriptKind::User && entry->kind != TranscriptKind::Assistant)
            entry->status = QStringLiteral("completed");
    }
    if (completed) {
        if (auto pending = m_pendingTranscriptDeltas.find(threadID);
            pending != m_pendingTranscriptDeltas.end())
            pending->second.erase(entry->id);
        if (auto indexes = m_reasoningSummaryIndexes.find(threadID);
            indexes != m_reasoningSummaryIndexes.end())
            indexes->second.erase(entry->id);
    }
    changeSession(threadID,
                  [&](CodexSessionState& session) { upsertEntry(session, std::move(*entry)); });
}

void upsertEntry(CodexSessionState& session, TranscriptEntry entry)
{
    std::vector<TranscriptEntry>& transcript = session.transcript;
    // The engine's copy of the user's message ends its local echo.
    if (entry.kind == TranscriptKind::User && !transcript.empty() &&
        transcript.back().id.startsWith(QLatin1String("local-")) &&
        transcript.back().text == entry.text) {
        transcript.back() = std::move(entry);
        return;
    }
    const auto found =
        std::find_if(transcript.begin(), transcript.end(),
                     [&](const TranscriptEntry& held) { return held.id == entry.id; });
    if (found == transcript.end()) {
        transcript.push_back(std::move(entry));
        return;
    }
    entry.progressMessages = found->progressMessages;
    if (!entry.phase)
        entry.phase = found->phase;
    if (entry.text.isEmpty() && !found->text.isEmpty())
        entry.text = found->text;
    *found = std::move(entry);
}

QString itemActivityText(const QString& type, const JSONValue& item)
{
    if (type == QLatin1String("reasoning"))
        return QStringLiteral("Codex is thinking…");
    if (type == QLatin1String("agentMessage"))
        return QStringLiteral("Writing the response…");
    if (type == QLatin1String("commandExecution"))
        return QStringLiteral("Running a command…");
    if (type == QLatin1String("fileChange"))
        return QStringLiteral("Updating files…");
    if (type == QLatin1String("mcpToolCall"))
        return QStringLiteral("Using ") +
               stringAt(item, "tool").value_or(QStringLiteral("a connected tool")) + QChar(0x2026);
    if (type == QLatin1String("dynamicToolCall"))
        return QStringLiteral("Using ") +
               stringAt(item, "tool").value_or(QStringLiteral("a tool")) + QChar(0x2026);
    if (type == QLatin1String("webSearch"))
        return QStringLiteral("Searching the web…");
    if (type == QLatin1String("collabAgentToolCall"))
        return QStringLiteral("Coordinating Codex agents…");
    if (type == QLatin1String("plan"))
        return QStringLiteral("Updating the plan…");
    return QStringLiteral("Codex is working…");
}

} // namespace nimbrel
