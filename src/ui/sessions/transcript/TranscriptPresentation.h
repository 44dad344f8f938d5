#pragma once

#include "workspace/CodexSessionState.h"

#include <QString>
#include <QVariantList>

#include <optional>

namespace nimbrel {

// How the entries of a transcript are shown: which slice of them is on screen, the rules of a card,
// of its shortened output, of the groups of activity and of the strip of a running turn. Colours
// are names of the window's palette; symbols are icon-theme names.

// A page of a transcript: at most this many entries on screen.
inline constexpr qsizetype transcriptPageSize = 20;

// The entries [start, end) on screen, pageOffset entries behind the newest.
struct TranscriptPage {
    qsizetype start = 0;
    qsizetype end = 0;
    bool operator==(const TranscriptPage&) const = default;
};
TranscriptPage transcriptPage(qsizetype count, qint64 pageOffset);

// Whether older output can be shown: it is in memory behind this page, or the engine holds more.
bool showsEarlierOutput(qsizetype count, qint64 pageOffset, bool canLoadEarlier);

inline constexpr int streamingOutputLimit = 2000;
inline constexpr int settledOutputLimit = 4000;
inline constexpr int settledOutputHead = 3000;
inline constexpr int settledOutputTail = 1000;

// A card streams while its session's turn is not idle and its status is a word of work in progress.
bool entryIsStreaming(const TranscriptEntry& entry, TurnControlState::Phase phase);

struct TranscriptCardStyle {
    QString symbol;
    QString accent;
    friend bool operator==(const TranscriptCardStyle&, const TranscriptCardStyle&) = default;
};
TranscriptCardStyle transcriptCardStyle(TranscriptKind kind);

// What a card's output shows, and the button below it (an empty label: no button).
struct TranscriptOutput {
    QString text;
    bool muted = false;
    bool monospaced = false;
    QString toggleLabel;
    friend bool operator==(const TranscriptOutput&, const TranscriptOutput&) = default;
};
// The lines that stand where long output was shortened.
QString liveOutputNotice();
QString shortenedOutputNotice();

// The images of a user's message as the card shows them: a data URL of a picture is drawn (source);
// any other address or path shows as its text (label) and is never loaded.
QVariantList transcriptImages(const TranscriptEntry& entry);

// Codex's answers and plans show as Markdown; everything else as it was written.
bool rendersMarkdown(const TranscriptEntry& entry);

TranscriptOutput transcriptOutput(const TranscriptEntry& entry, bool isStreaming,
                                  bool showsFullText);

// "<n> updates", the same word for one.
QString activityUpdatesText(std::size_t count);
bool activityGroupExpanded(std::optional<bool> override, bool expandedByDefault);
// "Expanded" or "Collapsed".
QString expansionValue(bool expanded);

// The strip shows while the turn is not idle, with this line.
bool showsActivityStrip(const CodexSessionState& state);
QString activityStripText(const CodexSessionState& state);

} // namespace nimbrel
