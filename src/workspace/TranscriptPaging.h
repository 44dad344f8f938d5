#pragma once

#include "peer/JSONValue.h"
#include "workspace/CodexSessionState.h"

#include <span>
#include <vector>

namespace nimbrel {

// The entries of one history page, oldest first, whichever source gave it.
std::vector<TranscriptEntry> entriesFromPage(const JSONValue& result, TranscriptPageSource source);

// The engine's newest page merged with what the session holds: older entries before the first
// shared one stay in front, shared entries take the finished copy, and what the engine does not
// know yet (local echoes, a live turn) follows the page in its order.
std::vector<TranscriptEntry> mergeTranscript(std::span<const TranscriptEntry> page,
                                             std::span<const TranscriptEntry> current);

// Whether a first page's error says that the engine does not page by items, so turns are tried.
bool shouldFallBackToTurns(const QString& errorText);

// Whether the engine refused to page turns because the thread has no user message yet: an empty
// history rather than a failure.
bool isUnmaterializedThreadError(const QString& errorText);

} // namespace nimbrel
