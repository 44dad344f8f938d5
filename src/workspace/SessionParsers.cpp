#include "SessionParsers.h"

#include "platform/TextFormatting.h"

namespace nimbrel {

namespace {

constexpr int titleLimit = 160;
constexpr int previewLimit = 500;

const QString blankLine = QStringLiteral("\n\n");

// The object under key, where that is a non-empty object; else nothing.
const JSONValue* objectAt(const JSONValue& value, std::string_view key)
{
    const JSONValue* found = value.find(key);
    return found && found->isObject() ? found : nullptr;
}

// The value under key where the key is present and its value is not null.
const JSONValue* presentAt(const JSONValue& value, std::string_view key)
{
    const JSONValue* found = value.find(key);
    return found && !found->isNull() ? found : nullptr;
}

QString joinNonEmpty(const QStringList& parts, const QString& separator)
{
    QStringList kept;
    for (const QString& part : parts)
        if (!part.isEmpty())
            kept.append(part);
    return kept.join(separator);
}

QString userMessageText(const JSONValue& item)
{
    QStringList texts;
    if (const JSONValue* content = item.find("content"))
        for (const JSONValue& element : content->items())
            if (auto text = stringAt(element, "text"))
                texts.append(*text);
    return texts.join(QLatin1Char('\n'));
}

// The images of a user's message: data URLs and other addresses as sent, local ones by path.
QStringList userMessageImages(const JSONValue& item)
{
    QStringList images;
    if (const JSONValue* content = item.find("content"))
        for (const JSONValue& element : content->items()) {
            const std::optional<QString> type = stringAt(element, "type");
            if (type == QStringLiteral("image")) {
                if (auto url = stringAt(element, "url"))
                    images.append(*url);
            } else if (type == QStringLiteral("localImage")) {
                if (auto path = stringAt(element, "path"))
                    images.append(*path);
            }
        }
    return images;
}

QString fileChangeText(const JSONValue& item)
{
    const JSONValue* changes = item.find("changes");
    if (!changes || !changes->isArray())
        return {};
    QStringList texts;
    for (const JSONValue& change : changes->items()) {
        QStringList parts;
        if (auto path = stringAt(change, "path"))
            parts.append(*path);
        if (auto diff = stringAt(change, "diff"))
            parts.append(*diff);
        texts.append(parts.join(QLatin1Char('\n')));
    }
    return texts.join(blankLine);
}

QString reasoningText(const JSONValue& item)
{
    QStringList texts;
    if (const JSONValue* summary = item.find("summary"))
        for (const JSONValue& element : summary->items()) {
            if (auto text = element.stringValue())
                texts.append(*text);
            else if (auto nested = stringAt(element, "text"))
                texts.append(*nested);
        }
    return texts.join(blankLine);
}

QString webSearchText(const JSONValue& item)
{
    QStringList candidates;
    if (auto query = stringAt(item, "query"))
        candidates.append(*query);
    if (const JSONValue* action = objectAt(item, "action")) {
        if (const JSONValue* queries = action->find("queries"); queries && queries->isArray()) {
            QStringList texts;
            for (const JSONValue& element : queries->items())
                if (auto text = element.stringValue())
                    texts.append(*text);
            candidates.append(texts.join(QLatin1Char('\n')));
        }
        if (auto url = stringAt(*action, "url"))
            candidates.append(*url);
        if (auto pattern = stringAt(*action, "pattern"))
            candidates.append(*pattern);
    }
    return joinNonEmpty(candidates, QStringLiteral("\n"));
}

QString assistantTitle(const std::optional<QString>& phase)
{
    if (phase == QLatin1String("commentary"))
        return QStringLiteral("Codex update");
    if (phase == QLatin1String("final_answer"))
        return QStringLiteral("Final response");
    return QStringLiteral("Codex");
}

} // namespace

std::optional<QString> stringAt(const JSONValue& value, std::string_view key)
{
    const JSONValue* found = value.find(key);
    return found ? found->stringValue() : std::nullopt;
}

std::optional<CodexThread> parseThread(const JSONValue& value)
{
    std::optional<QString> id = stringAt(value, "id");
    if (!id)
        return std::nullopt;
    CodexThread thread;
    thread.id = *id;
    const QString fullPreview = stringAt(value, "preview").value_or(QString());
    thread.preview = truncatedToCharacters(fullPreview, previewLimit);
    QString title = stringAt(value, "name").value_or(QString());
    if (title.isEmpty())
        title = fullPreview.isEmpty() ? QStringLiteral("Untitled Codex session") : fullPreview;
    thread.title = truncatedToCharacters(title, titleLimit);
    thread.cwd = stringAt(value, "cwd").value_or(QString());
    if (const JSONValue* source = value.find("source"))
        thread.source = source->textForm();
    else
        thread.source = QStringLiteral("unknown");
    const JSONValue* status = value.find("status");
    if (status && status->isObject() && stringAt(*status, "type"))
        thread.status = *stringAt(*status, "type");
    else if (status && status->isString())
        thread.status = *status->stringValue();
    else
        thread.status = QStringLiteral("unknown");
    if (const JSONValue* updatedAt = value.find("updatedAt"); updatedAt && updatedAt->isNumber())
        thread.updatedAt = *updatedAt->numberValue();
    thread.model = stringAt(value, "model");
    thread.reasoningEffort = stringAt(value, "reasoningEffort");
    return thread;
}

std::optional<CodexModelOption> parseModelOption(const JSONValue& value)
{
    std::optional<QString> id = stringAt(value, "model");
    if (!id || id->isEmpty())
        return std::nullopt;
    CodexModelOption model;
    model.id = *id;
    model.displayName = stringAt(value, "displayName").value_or(*id);
    model.description = stringAt(value, "description").value_or(QString());
    model.defaultReasoningEffort =
        stringAt(value, "defaultReasoningEffort").value_or(QStringLiteral("medium"));
    if (const JSONValue* efforts = value.find("supportedReasoningEfforts"))
        for (const JSONValue& element : efforts->items()) {
            std::optional<QString> effort = stringAt(element, "reasoningEffort");
            if (effort && !effort->isEmpty())
                model.supportedReasoningEfforts.push_back(
                    {*effort, stringAt(element, "description").value_or(QString())});
        }
    model.isDefault =
        value.find("isDefault") && value.find("isDefault")->boolValue().value_or(false);
    return model;
}

ApprovalPrompt makeApprovalPrompt(const QString& id, const QString& method, const JSONValue& params)
{
    ApprovalPrompt prompt;
    prompt.id = id;
    prompt.method = method;
    prompt.command = stringAt(params, "command");
    prompt.cwd = stringAt(params, "cwd");
    prompt.threadID = stringAt(params, "threadId");
    const std::optional<QString> reason = stringAt(params, "reason");
    if (method.contains(QLatin1String("commandExecution"))) {
        prompt.title = QStringLiteral("Run this command?");
        prompt.detail = reason.value_or(
            QStringLiteral("Codex needs your approval before running a command on this computer."));
    } else if (method.contains(QLatin1String("fileChange"))) {
        prompt.title = QStringLiteral("Apply file changes?");
        prompt.detail = QStringLiteral("Codex needs your approval before modifying files.");
    } else if (method.contains(QLatin1String("elicitation"))) {
        const Result<ElicitationRequest, QString> request = parseElicitation(params);
        if (request.ok()) {
            prompt.elicitation = request.value();
            const QString server = request->serverName.isEmpty() ? QStringLiteral("A tool server")
                                                                 : request->serverName;
            prompt.title = request->isURL ? server + QStringLiteral(" asks you to open an address")
                                          : server + QStringLiteral(" asks for your input");
            prompt.detail = request->message;
        } else {
            prompt.title = QStringLiteral("A tool server asks for your input");
            prompt.detail = request.error();
        }
    } else {
        prompt.title = QStringLiteral("Grant additional access?");
        prompt.detail =
            reason.value_or(QStringLiteral("Codex is requesting additional permissions."));
        prompt.access = requestedPermissionLines(params).value_or(QStringList());
    }
    return prompt;
}

std::optional<TranscriptEntry> parseTranscriptItem(const JSONValue& item)
{
    const std::optional<std::string_view> type =
        item.isObject() && item.find("type") ? item.find("type")->stringView() : std::nullopt;
    if (!type)
        return std::nullopt;
    TranscriptEntry entry;
    auto text = [&](std::string_view key) { return stringAt(item, key).value_or(QString()); };
    if (*type == "userMessage") {
        entry.kind = TranscriptKind::User;
        entry.title = QStringLiteral("You");
        entry.text = userMessageText(item);
        entry.images = userMessageImages(item);
    } else if (*type == "agentMessage") {
        entry.kind = TranscriptKind::Assistant;
        entry.phase = stringAt(item, "phase");
        entry.title = assistantTitle(entry.phase);
        entry.text = text("text");
    } else if (*type == "commandExecution") {
        entry.kind = TranscriptKind::Command;
        entry.title =
            QStringLiteral("$ ") + stringAt(item, "command").value_or(QStringLiteral("Command"));
        entry.text = text("aggregatedOutput");
        entry.status = stringAt(item, "status");
    } else if (*type == "fileChange") {
        entry.kind = TranscriptKind::FileChange;
        entry.title = QStringLiteral("File changes");
        entry.text = fileChangeText(item);
        entry.status = stringAt(item, "status");
    } else if (*type == "reasoning") {
        entry.kind = TranscriptKind::Reasoning;
        entry.title = QStringLiteral("Thinking summary");
        entry.text = reasoningText(item);
    } else if (*type == "plan") {
        entry.kind = TranscriptKind::System;
        entry.title = QStringLiteral("Plan");
        entry.text = text("text");
    } else if (*type == "mcpToolCall") {
        entry.kind = TranscriptKind::Command;
        entry.title = stringAt(item, "server").value_or(QStringLiteral("MCP")) +
                      QStringLiteral(" • ") +
                      stringAt(item, "tool").value_or(QStringLiteral("tool"));
        entry.text = toolCallText(item);
        entry.status = stringAt(item, "status");
    } else if (*type == "dynamicToolCall") {
        entry.kind = TranscriptKind::Command;
        entry.title = stringAt(item, "tool").value_or(QStringLiteral("Codex tool"));
        entry.text = toolCallText(item);
        entry.status = stringAt(item, "status");
    } else if (*type == "webSearch") {
        entry.kind = TranscriptKind::Command;
        entry.title = QStringLiteral("Web search");
        entry.text = webSearchText(item);
    } else if (*type == "imageView") {
        entry.kind = TranscriptKind::Command;
        entry.title = QStringLiteral("Viewing image");
        entry.text = text("path");
    } else if (*type == "sleep") {
        entry.kind = TranscriptKind::System;
        entry.title = QStringLiteral("Waiting");
        const JSONValue* duration = item.find("durationMs");
        const double milliseconds = duration ? duration->numberValue().value_or(0) : 0;
        entry.text =
            QStringLiteral("Pause for %1 seconds").arg(formatLocaleNumber(milliseconds / 1000.0));
    } else if (*type == "contextCompaction") {
        entry.kind = TranscriptKind::System;
        entry.title = QStringLiteral("Compacting conversation");
        entry.text = QStringLiteral("Codex is condensing earlier context for the next steps.");
    } else if (*type == "functionCallOutput") {
        entry.kind = TranscriptKind::Command;
        entry.title = stringAt(item, "name").value_or(QStringLiteral("Tool output"));
        const JSONValue* output = item.find("output");
        entry.text = output ? output->textForm() : QString();
        entry.status = QStringLiteral("completed");
    } else if (*type == "collabAgentToolCall" || *type == "collabToolCall") {
        entry.kind = TranscriptKind::System;
        entry.title = QStringLiteral("Codex agents");
        entry.text = text("prompt");
        entry.status = stringAt(item, "status");
    } else {
        return std::nullopt;
    }
    entry.id = stringAt(item, "id").value_or(randomUUIDText());
    return entry;
}

QString toolCallText(const JSONValue& item)
{
    QStringList sections;
    if (const JSONValue* arguments = presentAt(item, "arguments"))
        sections.append(QStringLiteral("Input\n") + arguments->textForm());

    const JSONValue* result = objectAt(item, "result");
    std::span<const JSONValue> outputs;
    if (const JSONValue* content = result ? result->find("content") : nullptr;
        content && content->isArray())
        outputs = content->items();
    else if (const JSONValue* contentItems = item.find("contentItems");
             contentItems && contentItems->isArray())
        outputs = contentItems->items();
    QStringList lines;
    for (const JSONValue& element : outputs) {
        if (!element.isObject())
            continue;
        if (auto text = stringAt(element, "text"))
            lines.append(*text);
        else if (const JSONValue* resource = objectAt(element, "resource");
                 resource && stringAt(*resource, "text"))
            lines.append(*stringAt(*resource, "text"));
        else if (auto type = stringAt(element, "type"))
            lines.append(QStringLiteral("[%1 content]").arg(*type));
    }
    if (const QString output = lines.join(QLatin1Char('\n')); !output.isEmpty())
        sections.append(QStringLiteral("Output\n") + output);

    if (const JSONValue* structured = result ? presentAt(*result, "structuredContent") : nullptr)
        sections.append(QStringLiteral("Result\n") + structured->textForm());
    if (const JSONValue* error = presentAt(item, "error")) {
        const std::optional<QString> message = stringAt(*error, "message");
        sections.append(QStringLiteral("Error\n") + message.value_or(error->textForm()));
    }
    return sections.join(blankLine);
}

std::vector<TranscriptEntry> entriesFromTurns(std::span<const JSONValue> turns)
{
    std::vector<TranscriptEntry> entries;
    for (const JSONValue& turn : turns)
        if (const JSONValue* items = turn.find("items"))
            for (const JSONValue& item : items->items())
                if (auto entry = parseTranscriptItem(item))
                    entries.push_back(std::move(*entry));
    return entries;
}

std::vector<TranscriptEntry> entriesFromItemsPage(const JSONValue& result)
{
    std::vector<TranscriptEntry> entries;
    const JSONValue* data = result.find("data");
    if (!data)
        return entries;
    const auto items = data->items();
    for (auto element = items.rbegin(); element != items.rend(); ++element)
        if (const JSONValue* item = element->find("item"))
            if (auto entry = parseTranscriptItem(*item))
                entries.push_back(std::move(*entry));
    return entries;
}

std::vector<TranscriptBlock> groupTranscriptBlocks(std::span<const TranscriptEntry> entries)
{
    std::vector<TranscriptBlock> blocks;
    for (const TranscriptEntry& entry : entries) {
        if (!entry.isActivity() || blocks.empty() || !blocks.back().entries.front().isActivity())
            blocks.push_back(TranscriptBlock{{entry}});
        else
            blocks.back().entries.push_back(entry);
    }
    return blocks;
}

// ---- records

QString transcriptKindText(TranscriptKind kind)
{
    switch (kind) {
    case TranscriptKind::User:
        return QStringLiteral("user");
    case TranscriptKind::Assistant:
        return QStringLiteral("assistant");
    case TranscriptKind::Command:
        return QStringLiteral("command");
    case TranscriptKind::FileChange:
        return QStringLiteral("fileChange");
    case TranscriptKind::Reasoning:
        return QStringLiteral("reasoning");
    case TranscriptKind::System:
        return QStringLiteral("system");
    }
    return {};
}

bool TranscriptEntry::isActivity() const
{
    switch (kind) {
    case TranscriptKind::User:
        return false;
    case TranscriptKind::Assistant:
        return phase == QLatin1String("commentary");
    case TranscriptKind::System:
        return status != QLatin1String("failed") && status != QLatin1String("interrupted");
    case TranscriptKind::Command:
    case TranscriptKind::FileChange:
    case TranscriptKind::Reasoning:
        return true;
    }
    return false;
}

QString TranscriptEntry::combinedText() const
{
    return joinNonEmpty(progressMessages + QStringList{text}, blankLine);
}

} // namespace nimbrel
