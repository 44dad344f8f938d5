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
    case PermissionMode::Custom:
        return QStringLiteral("custom");
    }
    return {};
}

std::optional<PermissionMode> permissionModeFromKey(const QString& key)
{
    for (PermissionMode mode : permissionModes())
        if (permissionModeKey(mode) == key)
            return mode;
    if (key == permissionModeKey(PermissionMode::Custom))
        return PermissionMode::Custom;
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
    case PermissionMode::Custom:
        return QStringLiteral("Custom");
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
    case PermissionMode::Custom:
        return QStringLiteral("Codex runs this session with approval and sandbox settings that "
                              "are none of these three. Choose one to change them.");
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
    case PermissionMode::Custom:
        return QStringLiteral("gray");
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
    case PermissionMode::Custom:
        break;
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
    case PermissionMode::Custom:
        break;
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
    case PermissionMode::Custom:
        break;
    }
    return JSONValue();
}

std::optional<PermissionMode> permissionModeOf(const QString& approvalPolicy,
                                               const QString& sandbox)
{
    for (PermissionMode mode : permissionModes())
        if (approvalPolicyOf(mode) == approvalPolicy && sandboxModeOf(mode) == sandbox)
            return mode;
    return std::nullopt;
}

std::optional<PermissionMode> permissionModeIn(const JSONValue& paramsOrResult)
{
    const JSONValue* policy = paramsOrResult.find("approvalPolicy");
    const JSONValue* sandbox = paramsOrResult.find("sandbox");
    if (!sandbox || sandbox->isNull())
        sandbox = paramsOrResult.find("sandboxPolicy");
    const bool hasPolicy = policy && !policy->isNull();
    const bool hasSandbox = sandbox && !sandbox->isNull();
    if (!hasPolicy && !hasSandbox)
        return std::nullopt;
    if (!hasPolicy || !hasSandbox || !policy->isString())
        return PermissionMode::Custom;
    QString sandboxMode = sandbox->isString() ? *sandbox->stringValue() : QString();
    if (const JSONValue* type = sandbox->find("type"); type && type->isString()) {
        const QString name = *type->stringValue();
        for (PermissionMode mode : permissionModes())
            if (sandboxPolicyOf(mode)["type"].value_or(JSONValue()).stringValue() == name)
                sandboxMode = sandboxModeOf(mode);
    }
    return permissionModeOf(*policy->stringValue(), sandboxMode).value_or(PermissionMode::Custom);
}

JSONValue withPermissionMode(const JSONValue& params, PermissionMode mode, bool forTurn)
{
    if (mode == PermissionMode::Custom || !params.isObject())
        return params;
    std::vector<std::pair<std::string, JSONValue>> members;
    for (const auto& member : params.members()) {
        const std::string name(member.name());
        if (name != "approvalPolicy" && name != "sandbox" && name != "sandboxPolicy")
            members.emplace_back(name, member.value);
    }
    members.emplace_back("approvalPolicy", approvalPolicyOf(mode));
    if (forTurn)
        members.emplace_back("sandboxPolicy", sandboxPolicyOf(mode));
    else
        members.emplace_back("sandbox", sandboxModeOf(mode));
    return JSONValue::object(std::move(members));
}

} // namespace nimbrel
