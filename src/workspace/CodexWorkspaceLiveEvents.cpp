// The engine's notifications as they change sessions: turns beginning and ending, items, text
// deltas buffered and flushed, reasoning parts, tool progress, plans, and the end of questions.
#include "workspace/CodexWorkspace.h"

#include "platform/TextFormatting.h"
#include "workspace/SessionParsers.h"

#include <QRegularExpression>

#include <cmath>

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
    if (method == QLatin1String("account/rateLimits/updated"))
        return scheduleUsageRefresh();
    if (method == QLatin1String("account/updated")) {
        resetUsage();
        return refreshUsage();
    }
    const std::optional<QString> found = params.isObject() && !params.members().empty()
                                             ? stringAt(params, "threadId")
                                             : std::nullopt;
    if (!found) {
        if (method.startsWith(QLatin1String("thread/")))
            refreshThreads();
        return;
    }
    const QString& threadID = *found;
    if (method == QLatin1String("thread/archived"))
        return forgetThread(threadID);
    // An event for a thread no tab shows makes its session, not a tab.
    ensureSession(threadID);
    if (method == QLatin1String("thread/tokenUsage/updated")) {
        handleTokenUsage(threadID, params);
    } else if (method == QLatin1String("sarvane/userInputResolved")) {
        if (const std::optional<QString> requestID = stringAt(params, "requestId"))
            removeUserInputPrompt(*requestID, threadID);
    } else if (method == QLatin1String("turn/started")) {
        handleTurnStarted(threadID, params);
    } else if (method == QLatin1String("turn/completed")) {
        flushDeltas(threadID);
        // Reasoning parts of items that never completed end with the turn.
        m_reasoningSummaryIndexes.erase(threadID);
        handleTurnCompleted(threadID, params);
        refreshThreads();
    } else if (method == QLatin1String("item/started") ||
               method == QLatin1String("item/completed")) {
        handleItem(threadID, params, method == QLatin1String("item/completed"));
    } else if (method == QLatin1String("item/agentMessage/delta")) {
        queueDelta(params, threadID, TranscriptKind::Assistant, QStringLiteral("Codex"),
                   QStringLiteral("running"));
        setActivityText(threadID, QStringLiteral("Writing the response…"));
    } else if (method == QLatin1String("item/commandExecution/outputDelta")) {
        queueDelta(params, threadID, TranscriptKind::Command, QStringLiteral("Command output"),
                   QStringLiteral("running"));
        setActivityText(threadID, QStringLiteral("Running a command…"));
    } else if (method == QLatin1String("item/reasoning/summaryPartAdded")) {
        handleReasoningPartAdded(threadID, params);
    } else if (method == QLatin1String("item/reasoning/summaryTextDelta")) {
        handleReasoningDelta(threadID, params);
    } else if (method == QLatin1String("item/plan/delta")) {
        queueDelta(params, threadID, TranscriptKind::System, QStringLiteral("Plan"),
                   QStringLiteral("updating"));
        setActivityText(threadID, QStringLiteral("Updating the plan…"));
    } else if (method == QLatin1String("turn/plan/updated")) {
        handlePlanUpdated(params, threadID);
    } else if (method == QLatin1String("turn/diff/updated")) {
        handleTurnDiff(threadID, params);
    } else if (method == QLatin1String("item/mcpToolCall/progress")) {
        const std::optional<QString> message = stringAt(params, "message");
        const std::optional<QString> itemID = stringAt(params, "itemId");
        if (message && !message->isEmpty() && itemID)
            addToolProgress(threadID, *itemID, *message);
    } else if (method.startsWith(QLatin1String("thread/"))) {
        refreshThreads();
    }
    // A delta's text reaches the transcript at the flush, which bounds it then.
    if (!method.endsWith(QLatin1String("Delta")) && !method.endsWith(QLatin1String("/delta")))
        releaseBeyondBound(threadID);
}

// The activity line, stored only when it changes: a stream of deltas writes it once.
void CodexWorkspace::setActivityText(const QString& threadID, const std::optional<QString>& text)
{
    const CodexSessionState* held = session(threadID);
    if (held && held->activityText == text)
        return;
    changeSession(threadID, [&](CodexSessionState& state) { state.activityText = text; });
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
        // The turn's changes stay after what was newest when it ended.
        if (!session.transcript.empty())
            for (TurnDiff& diff : session.turnDiffs)
                if (!diff.afterEntryID && (!turnID || diff.turnID == *turnID))
                    diff.afterEntryID = session.transcript.back().id;
        session.turnControl = TurnControlState{};
        session.activityText.reset();
    });
    const QString status = turn ? stringAt(*turn, "status").value_or(QString()) : QString();
    emit turnEnded(threadID,
                   status == QLatin1String("failed") || status == QLatin1String("interrupted")
                       ? status
                       : QStringLiteral("completed"));
}

// The whole diff of a turn so far replaces the one before; the same diff again changes nothing.
void CodexWorkspace::handleTurnDiff(const QString& threadID, const JSONValue& params)
{
    const std::optional<QString> turnID = stringAt(params, "turnId");
    const std::optional<QString> diff = stringAt(params, "diff");
    if (!turnID || !diff)
        return;
    const CodexSessionState* held = session(threadID);
    if (held)
        for (const TurnDiff& kept : held->turnDiffs)
            if (kept.turnID == *turnID && kept.diff == *diff)
                return;
    changeSession(threadID, [&](CodexSessionState& state) {
        for (TurnDiff& kept : state.turnDiffs)
            if (kept.turnID == *turnID) {
                kept.diff = *diff;
                return;
            }
        state.turnDiffs.push_back({*turnID, *diff, std::nullopt});
    });
}

void CodexWorkspace::handleItem(const QString& threadID, const JSONValue& params, bool completed)
{
    const JSONValue* item = params.find("item");
    if (!item)
        return;
    if (completed)
        flushDeltas(threadID);
    else
        setActivityText(threadID,
                        itemActivityText(stringAt(*item, "type").value_or(QString()), *item));
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

// ---- deltas

void CodexWorkspace::queueDelta(const JSONValue& params, const QString& threadID,
                                TranscriptKind kind, const QString& title, const QString& status)
{
    const std::optional<QString> itemID = stringAt(params, "itemId");
    const std::optional<QString> delta = stringAt(params, "delta");
    if (!itemID || !delta)
        return;
    m_pendingTranscriptDeltas[threadID][*itemID] += *delta;
    // The entry exists before its first text.
    const CodexSessionState* held = session(threadID);
    if (!held || std::none_of(held->transcript.rbegin(), held->transcript.rend(),
                              [&](const TranscriptEntry& entry) { return entry.id == *itemID; }))
        changeSession(threadID, [&](CodexSessionState& state) {
            state.transcript.push_back(
                TranscriptEntry{*itemID, kind, title, {}, status, std::nullopt, {}});
        });
    if (!m_transcriptDeltaFlushTasks.count(threadID))
        m_transcriptDeltaFlushTasks[threadID] = m_scheduler.schedule(
            this, deltaFlushDelaySeconds, [this, threadID] { flushDeltas(threadID); });
}

void CodexWorkspace::flushDeltas(const QString& threadID)
{
    if (auto task = m_transcriptDeltaFlushTasks.find(threadID);
        task != m_transcriptDeltaFlushTasks.end()) {
        task->second->cancel();
        m_transcriptDeltaFlushTasks.erase(task);
    }
    const auto pending = m_pendingTranscriptDeltas.find(threadID);
    if (pending == m_pendingTranscriptDeltas.end())
        return;
    const std::map<QString, QString> texts = std::move(pending->second);
    m_pendingTranscriptDeltas.erase(pending);
    if (texts.empty())
        return;
    // One store per flush, whatever the number of deltas; text of a vanished entry is dropped.
    changeSession(threadID, [&](CodexSessionState& state) {
        for (const auto& [itemID, text] : texts) {
            const auto entry =
                std::find_if(state.transcript.begin(), state.transcript.end(),
                             [&](const TranscriptEntry& held) { return held.id == itemID; });
            if (entry != state.transcript.end())
                entry->text += text;
        }
    });
    releaseBeyondBound(threadID);
}

void CodexWorkspace::cancelAllDeltaFlushes()
{
    for (auto& [threadID, task] : m_transcriptDeltaFlushTasks)
        task->cancel();
    m_transcriptDeltaFlushTasks.clear();
    m_pendingTranscriptDeltas.clear();
}

void CodexWorkspace::dropLiveDeltas(const QString& threadID)
{
    m_pendingTranscriptDeltas.erase(threadID);
    m_reasoningSummaryIndexes.erase(threadID);
    if (auto flush = m_transcriptDeltaFlushTasks.find(threadID);
        flush != m_transcriptDeltaFlushTasks.end()) {
        flush->second->cancel();
        m_transcriptDeltaFlushTasks.erase(flush);
    }
}

// ---- reasoning, tools and plans

void CodexWorkspace::handleReasoningPartAdded(const QString& threadID, const JSONValue& params)
{
    if (const std::optional<QString> itemID = stringAt(params, "itemId")) {
        const CodexSessionState* held = session(threadID);
        if (std::none_of(held->transcript.begin(), held->transcript.end(),
                         [&](const TranscriptEntry& entry) { return entry.id == *itemID; }))
            changeSession(threadID, [&](CodexSessionState& state) {
                state.transcript.push_back(TranscriptEntry{*itemID,
                                                           TranscriptKind::Reasoning,
                                                           QStringLiteral("Codex thinking"),
                                                           {},
                                                           QStringLiteral("thinking"),
                                                           std::nullopt,
                                                           {}});
            });
    }
    setActivityText(threadID, QStringLiteral("Codex is thinking…"));
}

void CodexWorkspace::handleReasoningDelta(const QString& threadID, const JSONValue& params)
{
    std::optional<QString> itemID = stringAt(params, "itemId");
    qint64 index = 0;
    if (itemID) {
        const double number = params.find("summaryIndex")
                                  ? params.find("summaryIndex")->numberValue().value_or(0)
                                  : 0;
        // Whole numbers a signed 64-bit integer holds; anything else is as if there were no item.
        if (std::isfinite(number) && std::trunc(number) >= -9223372036854775808.0 &&
            std::trunc(number) < 9223372036854775808.0)
            index = static_cast<qint64>(std::trunc(number));
        else
            itemID.reset();
    }
    JSONValue delivered = params;
    if (itemID) {
        std::map<QString, qint64>& indexes = m_reasoningSummaryIndexes[threadID];
        const auto previous = indexes.find(*itemID);
        if (previous != indexes.end() && previous->second != index) {
            // A new part begins after a blank line.
            std::vector<std::pair<std::string, JSONValue>> members;
            for (const JSONMember& member : params.members())
                if (member.name() != "delta")
                    members.emplace_back(std::string(member.name()), member.value);
            members.emplace_back("delta", QStringLiteral("\n\n") +
                                              stringAt(params, "delta").value_or(QString()));
            delivered = JSONValue::object(std::move(members));
        }
        indexes[*itemID] = index;
    }
    queueDelta(delivered, threadID, TranscriptKind::Reasoning, QStringLiteral("Codex thinking"),
               QStringLiteral("thinking"));
    if (const std::optional<QString> line = progressSummary(stringAt(params, "delta")))
        setActivityText(threadID, *line);
}

void CodexWorkspace::addToolProgress(const QString& threadID, const QString& itemID,
                                     const QString& message)
{
    changeSession(threadID, [&](CodexSessionState& state) {
        const auto entry =
            std::find_if(state.transcript.begin(), state.transcript.end(),
                         [&](const TranscriptEntry& held) { return held.id == itemID; });
        if (entry == state.transcript.end()) {
            state.transcript.push_back(TranscriptEntry{itemID,
                                                       TranscriptKind::Command,
                                                       QStringLiteral("Tool progress"),
                                                       {},
                                                       QStringLiteral("running"),
                                                       std::nullopt,
                                                       {message}});
        } else {
            if (entry->progressMessages.isEmpty() || entry->progressMessages.last() != message)
                entry->progressMessages.append(message);
            entry->status = QStringLiteral("running");
        }
        state.activityText = progressSummary(message).value_or(QStringLiteral("Using a tool…"));
    });
}

void CodexWorkspace::handlePlanUpdated(const JSONValue& params, const QString& threadID)
{
    const QString idPart = stringAt(params, "turnId").value_or(randomUUIDText());
    QStringList lines;
    if (const std::optional<QString> explanation = stringAt(params, "explanation"))
        lines.append(*explanation);
    std::optional<QString> activeStep;
    bool foundActive = false;
    if (const JSONValue* plan = params.find("plan"); plan && plan->isArray())
        for (const JSONValue& element : plan->items()) {
            if (!element.isObject())
                continue;
            const QString status = stringAt(element, "status").value_or(QStringLiteral("pending"));
            if (!foundActive && status == QLatin1String("inProgress")) {
                foundActive = true;
                activeStep = stringAt(element, "step");
            }
            const std::optional<QString> step = stringAt(element, "step");
            if (!step)
                continue;
            const QChar mark = status == QLatin1String("completed")    ? QChar(0x2713)
                               : status == QLatin1String("inProgress") ? QChar(0x2192)
                                                                       : QChar(0x2022);
            lines.append(mark + QLatin1Char(' ') + *step);
        }
    TranscriptEntry entry{QStringLiteral("turn-plan-") + idPart,
                          TranscriptKind::System,
                          QStringLiteral("Plan progress"),
                          lines.join(QLatin1Char('\n')),
                          activeStep ? QStringLiteral("in progress") : QStringLiteral("updated"),
                          std::nullopt,
                          {}};
    changeSession(threadID, [&](CodexSessionState& state) {
        const auto held =
            std::find_if(state.transcript.begin(), state.transcript.end(),
                         [&](const TranscriptEntry& existing) { return existing.id == entry.id; });
        if (held == state.transcript.end())
            state.transcript.push_back(entry);
        else
            *held = entry;
        state.activityText =
            activeStep ? QStringLiteral("Plan: ") + *activeStep : QStringLiteral("Plan updated");
    });
}

std::optional<QString> progressSummary(const std::optional<QString>& text)
{
    if (!text)
        return std::nullopt;
    static const QRegularExpression lineEnds(
        QStringLiteral("[\\x{000A}-\\x{000D}\\x{0085}\\x{2028}\\x{2029}]"));
    const QStringList pieces = text->split(lineEnds, Qt::SkipEmptyParts);
    if (pieces.isEmpty())
        return std::nullopt;
    const QString last = pieces.last().trimmed();
    if (last.isEmpty())
        return std::nullopt;
    return characterCount(last) >= 141 ? firstCharacters(last, 140) + QChar(0x2026) : last;
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
