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
enum class PermissionMode { FullAccess, AskBeforeActing, ReadOnly };

// In the order the window offers them.
std::span<const PermissionMode> permissionModes();

// The stable key stored in settings and shown to peers: "full-access", "ask", "read-only".
QString permissionModeKey(PermissionMode mode);
std::optional<PermissionMode> permissionModeFromKey(const QString& key);
QString permissionModeTitle(PermissionMode mode);
// What the mode allows, for the Settings and the new-session sheet.
QString permissionModeSummary(PermissionMode mode);
// The palette colour the mode is shown in: orange, green or cyan.
QString permissionModeColour(PermissionMode mode);

QString approvalPolicyOf(PermissionMode mode);
// The `sandbox` of thread/start and thread/resume.
QString sandboxModeOf(PermissionMode mode);
// The `sandboxPolicy` of turn/start.
JSONValue sandboxPolicyOf(PermissionMode mode);

// The mode whose approval policy and sandbox these are; nothing for any other pair.
std::optional<PermissionMode> permissionModeOf(const QString& approvalPolicy,
                                               const QString& sandbox);

} // namespace nimbrel
