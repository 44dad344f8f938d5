#pragma once

#include "peer/JSONValue.h"

#include <optional>

// A session's history made up on the spot and served in pages, as the engine pages it:
//   "history": {"<thread id>": {"items": 45,                  items 1..45, oldest first, a user
//                                                              message and Codex's reply by turns
//                               "itemsUnsupported": true,     thread/items/list fails as in Codex
//                               0.169 "notMaterialized": true}}     thread/turns/list fails: no
//                               user message yet
// Pages run newest first; a cursor is the number of the newest item (or turn) of the next page.
// The reply to thread/items/list or thread/turns/list for such a thread, or nothing for any other.
// runningTurn is the id of the thread's turn that has started and not completed, if any.
std::optional<nimbrel::JSONValue> historyReply(const nimbrel::JSONValue& engine,
                                               const std::string& method,
                                               const nimbrel::JSONValue& id,
                                               const nimbrel::JSONValue& params,
                                               const std::string& runningTurn = {});
