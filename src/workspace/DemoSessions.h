#pragma once

#include "workspace/SessionRecords.h"
#include "workspace/UserInputRecords.h"

#include <optional>
#include <vector>

namespace nimbrel {

// A sample session of the offline tour: its thread, its history and an open question.
struct DemoSession {
    CodexThread thread;
    std::vector<TranscriptEntry> transcript;
    std::optional<UserInputRequest> question;

    friend bool operator==(const DemoSession&, const DemoSession&) = default;
};

// The tour's sample sessions, newest first, dated against now (seconds since 1970): one finished
// with a card of every kind, one that waits for an answer, and one long enough to page.
std::vector<DemoSession> demoSessions(double now);

} // namespace nimbrel
