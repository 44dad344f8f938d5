#pragma once

// What the Sessions page decides by itself, as rules over plain values: the dots of rows and tabs,
// the folder lines, and when the composer may send. Tints are names of the window palette's
// colours.
#include "workspace/CodexSessionState.h"

#include <QString>

namespace nimbrel {

// A listed thread's dot: green while it works, red for an engine failure, else muted cyan.
QString threadDotTint(const CodexThread& thread, TurnControlState::Phase phase);
// A tab's dot: orange while a question waits, green while it works, else muted cyan.
QString tabDotTint(const CodexSessionState& session);

// A thread's folder in the list ("Home folder" for none) and in the session's header (the
// home folder's path for none).
QString threadFolderText(const QString& cwd);
QString headerFolderText(const QString& cwd);

// The block under a transcript: the history loading, failing, or a session ready for a task. kind
// is "loading", "unavailable", "ready" or empty (nothing shown); tint is a palette colour or empty.
struct SessionStateBlock {
    QString kind;
    QString title;
    QString text;
    QString symbol;
    QString tint;
    bool operator==(const SessionStateBlock&) const = default;
};
SessionStateBlock sessionStateBlock(const CodexSessionState& session);

// The composer's send button: a draft with more than blanks or an image, in a phase that takes a
// message.
bool composerCanSend(const CodexSessionState& session);

} // namespace nimbrel
