#pragma once

#include "peer/JSONValue.h"

#include <QString>

#include <optional>
#include <span>

namespace nimbrel {

// How much a session may do without asking, named for what it means to a person.
// "Ask before acting" uses the approval policy "untrusted": Codex asks before every command that
// is not known to be harmless and before every file change ("on-request" lets the model decide
// when to ask, so it may run commands and write inside the workspace without asking).
// Custom is what Codex reports for a session whose approval policy and sandbox are none of the
// three; it is never offered, and nothing is sent for it: the session keeps Codex's own settings.
enum class PermissionMode { FullAccess, AskBeforeActing, ReadOnly, Custom };

// The three that can be chosen, in the order the window offers them.
std::span<const PermissionMode> permissionModes();

// The stable key stored in settings and shown to peers: "full-access", "ask", "read-only",
// "custom".
QString permissionModeKey(PermissionMode mode);
std::optional<PermissionMode> permissionModeFromKey(const QString& key);
QString permissionModeTitle(PermissionMode mode);
// What the mode allows, for the Settings and the new-session sheet.
QString permissionModeSummary(PermissionMode mode);
// The palette colour the mode is shown in: orange, green or cyan.
QString permissionModeColour(PermissionMode mode);

// Empty for Custom.
QString approvalPolicyOf(PermissionMode mode);
// The `sandbox` of thread/start and thread/resume; empty for Custom.
QString sandboxModeOf(PermissionMode mode);
// The `sandboxPolicy` of turn/start; null for Custom.
JSONValue sandboxPolicyOf(PermissionMode mode);

// The mode whose approval policy and sandbox these are; nothing for any other pair.
std::optional<PermissionMode> permissionModeOf(const QString& approvalPolicy,
                                               const QString& sandbox);

// The mode that params of thread/start, thread/resume, thread/fork or turn/start ask for (its
// `approvalPolicy` and `sandbox` or `sandboxPolicy`): one of the three, Custom for any other
// combination, nothing where they name neither. The answers of thread/start, thread/resume and
// thread/fork report the session's mode the same way.
std::optional<PermissionMode> permissionModeIn(const JSONValue& paramsOrResult);

// params with the mode's approval policy and sandbox (sandboxPolicy for turn/start) put in, in
// place of any given; unchanged for Custom.
JSONValue withPermissionMode(const JSONValue& params, PermissionMode mode, bool forTurn);

} // namespace nimbrel
