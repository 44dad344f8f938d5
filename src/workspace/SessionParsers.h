#pragma once

#include "peer/JSONValue.h"
#include "workspace/SessionRecords.h"

#include <span>

namespace nimbrel {

// Engine JSON to session records. Wrong types count as absent keys and take their fallbacks;
// the only refusals are the nothings below.

// Nothing without a text `id`.
std::optional<CodexThread> parseThread(const JSONValue& value);
// Nothing without a non-empty text `model`.
std::optional<CodexModelOption> parseModelOption(const JSONValue& value);
ApprovalPrompt makeApprovalPrompt(const QString& id, const QString& method,
                                  const JSONValue& params);
// Nothing without a known text `type`.
std::optional<TranscriptEntry> parseTranscriptItem(const JSONValue& item);
QString toolCallText(const JSONValue& item);
// Turns in chronological order, their items in order.
std::vector<TranscriptEntry> entriesFromTurns(std::span<const JSONValue> turns);
// An items page arrives newest first; the entries come back in chronological order.
std::vector<TranscriptEntry> entriesFromItemsPage(const JSONValue& result);
std::vector<TranscriptBlock> groupTranscriptBlocks(std::span<const TranscriptEntry> entries);

// The text under key of an object value, else nothing.
std::optional<QString> stringAt(const JSONValue& value, std::string_view key);

} // namespace nimbrel
