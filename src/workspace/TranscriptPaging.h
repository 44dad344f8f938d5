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

// How much of a session's transcript stays in memory: the newest entries, at most this many and
// this many bytes of text. What is older is read back from the engine when a view pages back.
struct TranscriptBound {
    std::size_t entries = 500;
    std::size_t bytes = 2 * 1024 * 1024;

    friend bool operator==(const TranscriptBound&, const TranscriptBound&) = default;
};

// The bytes an entry's texts take in memory.
std::size_t transcriptEntryBytes(const TranscriptEntry& entry);

// How many of the oldest entries go so that the rest fit the bound. The newest entry stays
// whatever its size, and so do the newest `shown` entries, which a view has on screen.
std::size_t entriesBeyondBound(std::span<const TranscriptEntry> transcript,
                               const TranscriptBound& bound, std::size_t shown);

// Whether a first page's error says that the engine does not page by items, so turns are tried.
bool shouldFallBackToTurns(const QString& errorText);

// Whether the engine refused to page turns because the thread has no user message yet: an empty
// history rather than a failure.
bool isUnmaterializedThreadError(const QString& errorText);

} // namespace nimbrel
