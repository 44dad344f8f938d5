#pragma once

#include "usage/UsageRecords.h"
#include "workspace/PermissionMode.h"
#include "workspace/SessionRecords.h"
#include "workspace/TurnControlState.h"
#include "workspace/UserInputRecords.h"

namespace nimbrel {

// Everything the window keeps about one Codex session.
struct CodexSessionState {
    QString threadID;
    QString draft;
    std::vector<DraftImage> draftImages;
    std::vector<TranscriptEntry> transcript; // oldest first
    std::optional<QString> model;
    std::optional<QString> reasoningEffort;
    bool isLoadingTranscript = false;
    bool isLoadingEarlierTranscript = false;
    bool canLoadEarlierTranscript = false;
    std::optional<QString> transcriptLoadError;
    bool hasLoadedTranscript = false;
    std::optional<QString> activityText;
    TurnControlState turnControl;
    std::vector<UserInputPrompt> userInputPrompts;
    std::optional<CodexSessionUsage> tokenUsage;
    // The composer's message is on its way to Codex: it stays in the composer until accepted.
    bool isSendingMessage = false;
    std::vector<TurnDiff> turnDiffs; // oldest turn first

    friend bool operator==(const CodexSessionState&, const CodexSessionState&) = default;
};

// Which engine method a session's history pages come from.
enum class TranscriptPageSource { Items, Turns };

} // namespace nimbrel
