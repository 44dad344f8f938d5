#pragma once

#include "peer/JSONValue.h"

#include <vector>

// The notifications of one whole turn, as the engine streams them, for the action
//   {"streamTurn": {"threadId": "thr_1", "turnId": "turn-1", "prompt": "text", "deltas": 3,
//                   "status": "completed" | "failed" | "interrupted", "errorMessage": "text",
//                   "finalText": true, "delayMs": 0, "recordDeltas": true, "reply": "text",
//                   "diff": "unified diff", "echoInput": true, "numbered": true}}
//   delayMs: a pause after each message; recordDeltas: the record notes when each reply delta left;
//   reply: Codex's reply, cut into `deltas` pieces (else "word0 word1 …"); diff: the turn's diff,
//   sent as turn/diff/updated after the file change and again just before turn/completed;
//   echoInput: the user's message holds the input items of the request that cued the turn;
//   numbered: each turn played has an id of its own, turnId followed by its number
// In order: turn/started; the user's message; reasoning in two summary parts (indexes 0, 0, 1); a
// plan update; a command with output deltas; a file change; a tool call with progress (repeated
// once); a web search; Codex's reply in `deltas` deltas, completed with the whole text (or an empty
// one when finalText is false); token usage; turn/completed with the status (and the error message
// where given).
// input: the input items of the request that cued the turn, where there was one.
std::vector<nimbrel::JSONValue> turnNotifications(const nimbrel::JSONValue& options,
                                                  const nimbrel::JSONValue* input = nullptr);
