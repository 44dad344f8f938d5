#pragma once

#include "peer/JSONValue.h"

#include <map>
#include <string>

// What the fake engine does, read from fake-codex-scenario.json beside the executable (as invoked)
// where there is one, else from the JSON file named by FAKE_CODEX_SCENARIO.
//
//   { "version": {"output": "codex-cli 1.0.0\n" | "outputHex": "ff", "exitCode": 0, "hangSeconds":
//   0},
//     "launches": [ <engine>, <engine>, ... ]     the nth launch plays the nth (the last repeats)
//     ...or the keys of <engine> at the top level, played on every launch }
//
//   <engine>: { "onStart": [action...],
//               "methods": {"name": handler or [handler...] (one per call, the last repeats)},
//               "defaultHandler": handler,              for unlisted methods; {"result": {}}
//               "notifications": {"name": [action...]},
//               "responses": [action...],               on each answer to a server request; the
//                                                       text "$id" in them stands for its id
//               "cues": [{"when": "word", "actions": [action...]}, ...]
//                                                       after replying to a request whose params
//                                                       hold the word (a turn/start text, say)
//               "history": {...}                        history pages; see FakeHistory.h
//               "login": {...}                          how account/login/start goes; below
//               "onEof": [action...] }                  default: exit 0
//
//   login (unless "methods" names account/login/start): every type is answered as Codex does
//   (chatgpt: authUrl and loginId; chatgptDeviceCode: userCode, verificationUrl and loginId;
//   apiKey: its type), then account/login/completed follows with "success" (default true) and
//   "error" (default null): at once, or only once a request or notification of the method
//   "completeOn" has been read. {"success": bool, "error": "text", "completeOn": "method",
//   "authUrl": "...", "verificationUrl": "...", "userCode": "..."}
//
//   handler: { "result": X | "error": X | "noReply": true | "raw": "text" | "reply": {...},
//              "echoParams": true, "delayMs": n, "before": [action...], "after": [action...],
//              "replyOn": "method" }   the reply waits until a request or notification of that
//                                      method is read, and goes ahead of that message's own answer
//   action:  {"send": X} {"raw": "text"} {"stderr": "text"} {"stderrHex": "fffe"} {"exit": code}
//   {"sleepMs": n}
//            {"closeStdin": true} {"flood": {"count": n, "message": X}}
//            {"streamTurn": {...}}   a whole turn's notifications; see FakeTurn.h
//            {"echoUserMessage": true}   in a cue: item/completed with a userMessage whose content
//                                        is the cueing request's input (turn/start, turn/steer)
//            {"completeInterruptedTurn": true}   turn/completed, status "interrupted", of the turn
//                                        the request names (turn/interrupt's threadId and turnId)
struct FakeScenario {
    nimbrel::JSONValue version;
    nimbrel::JSONValue engine;

    static FakeScenario load(const char* path, int launch);
    // The handler for the nth call (counting from 0) of method.
    nimbrel::JSONValue handlerFor(const std::string& method, int call) const;
    nimbrel::JSONValue actions(const char* key) const;
    nimbrel::JSONValue notificationActions(const std::string& method) const;
    // The actions of every cue whose word appears in the encoded params, in the scenario's order.
    nimbrel::JSONValue cuedActions(const std::string& encodedParams) const;
};
