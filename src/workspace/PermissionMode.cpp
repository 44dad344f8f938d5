#include "workspace/PermissionMode.h"

#include <array>

namespace nimbrel {

std::span<const PermissionMode> permissionModes()
{
    static constexpr std::array modes{PermissionMode::FullAccess, PermissionMode::AskBeforeActing,
                                      PermissionMode::ReadOnly};
    return modes;
}

QString permissionModeKey(PermissionMode mode)
{
    switch (mode) {
    case PermissionMode::FullAccess:
        return QStringLiteral("full-access");
    case PermissionMode::AskBeforeActing:
        return QStringLiteral("ask");
    case PermissionMode::ReadOnly:
        return QStringLiteral("read-only");
    }
    return {};
}

std::optional<PermissionMode> permissionModeFromKey(const QString& key)
{
    for (PermissionMode mode : permissionModes())
        if (permissionModeKey(mode) == key)
            return mode;
    return std::nullopt;
}

QString permissionModeTitle(PermissionMode mode)
{
    switch (mode) {
    case PermissionMode::FullAccess:
        return QStringLiteral("Full access");
    case PermissionMode::AskBeforeActing:
        return QStringLiteral("Ask before acting");
    case PermissionMode::ReadOnly:
        return QStringLiteral("Read only");
    }
    return {};
}

QString permissionModeSummary(PermissionMode mode)
{
    switch (mode) {
    case PermissionMode::FullAccess:
        return QStringLiteral("Codex runs commands and changes files anywhere on this computer, "
                              "with network access, and never asks.");
    case PermissionMode::AskBeforeActing:
        return QStringLiteral("Codex works in the session's folder and asks you before it runs "
                              "a command that could change something and before it changes "
                              "files.");
    case PermissionMode::ReadOnly:
        return QStringLiteral("Codex may read files and run harmless commands; it asks you for "
                              "anything else.");
    }
    return {};
}

QString permissionModeColour(PermissionMode mode)
{
    switch (mode) {
    case PermissionMode::FullAccess:
        return QStringLiteral("orange");
    case PermissionMode::AskBeforeActing:
        return QStringLiteral("green");
    case PermissionMode::ReadOnly:
        return QStringLiteral("cyan");
    }
    return {};
}

QString approvalPolicyOf(PermissionMode mode)
{
    switch (mode) {
    case PermissionMode::FullAccess:
        return QStringLiteral("never");
    case PermissionMode::AskBeforeActing:
        return QStringLiteral("untrusted");
    case PermissionMode::ReadOnly:
        return QStringLiteral("on-request");
    }
    return {};
}

QString sandboxModeOf(PermissionMode mode)
{
    switch (mode) {
    case PermissionMode::FullAccess:
        return QStringLiteral("danger-full-access");
    case PermissionMode::AskBeforeActing:
        return QStringLiteral("workspace-write");
    case PermissionMode::ReadOnly:
        return QStringLiteral("read-only");
    }
    return {};
}

JSONValue sandboxPolicyOf(PermissionMode mode)
{
    switch (mode) {
    case PermissionMode::FullAccess:
        return JSONValue::object({{"type", "dangerFullAccess"}});
    case PermissionMode::AskBeforeActing:
        return JSONValue::object({{"type", "workspaceWrite"}});
    case PermissionMode::ReadOnly:
        return JSONValue::object({{"type", "readOnly"}});
    }
    return JSONValue::object({});
}

std::optional<PermissionMode> permissionModeOf(const QString& approvalPolicy,
                                               const QString& sandbox)
{
    for (PermissionMode mode : permissionModes())
        if (approvalPolicyOf(mode) == approvalPolicy && sandboxModeOf(mode) == sandbox)
            return mode;
    return std::nullopt;
}

} // namespace nimbrel
