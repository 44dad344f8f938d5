#pragma once

#include "peer/JSONValue.h"

#include <vector>

// The notifications of one whole turn, as the engine streams them, for the action
//   {"streamTurn": {"threadId": "thr_1", "turnId": "turn-1", "prompt": "text", "deltas": 3,
//                   "status": "completed" | "failed" | "interrupted", "errorMessage": "text",
//                   "finalText": true, "delayMs": 0, "recordDeltas": true}}
//   delayMs: a pause after each message; recordDeltas: the record notes when each reply delta left
// In order: turn/started; the user's message; reasoning in two summary parts (indexes 0, 0, 1); a
// plan update; a command with output deltas; a file change; a tool call with progress (repeated
// once); a web search; Codex's reply in `deltas` deltas, completed with the whole text (or an empty
// one when finalText is false); token usage; turn/completed with the status (and the error message
// where given).
std::vector<nimbrel::JSONValue> turnNotifications(const nimbrel::JSONValue& options);
