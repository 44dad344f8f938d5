#include "PendingUserInputRequests.h"

#include "platform/TextFormatting.h"

#include <algorithm>

namespace nimbrel {

std::optional<PendingUserInputRequests::Pending>
PendingUserInputRequests::add(const JSONValue& serverID, const JSONValue& params)
{
    for (const Pending& entry : requests)
        if (entry.serverID == serverID)
            return entry;
    std::optional<UserInputRequest> request = parseUserInputRequest(randomUUIDText(), params);
    if (!request)
        return std::nullopt;
    requests.push_back(Pending{serverID, std::move(*request), params, false});
    return requests.back();
}

std::optional<PendingUserInputRequests::Pending>
PendingUserInputRequests::beginAnswer(const QString& requestID, const JSONValue& response)
{
    for (Pending& entry : requests) {
        if (entry.request.id != requestID)
            continue;
        if (entry.isSubmitting || !isCompleteResponse(entry.request, response))
            return std::nullopt;
        entry.isSubmitting = true;
        return entry;
    }
    return std::nullopt;
}

void PendingUserInputRequests::endAnswer(const QString& requestID)
{
    for (Pending& entry : requests)
        if (entry.request.id == requestID)
            entry.isSubmitting = false;
}

std::optional<PendingUserInputRequests::Pending>
PendingUserInputRequests::remove(const QString& requestID)
{
    const auto found = std::find_if(requests.begin(), requests.end(), [&](const Pending& entry) {
        return entry.request.id == requestID;
    });
    if (found == requests.end())
        return std::nullopt;
    Pending entry = std::move(*found);
    requests.erase(found);
    return entry;
}

BridgeMessage PendingUserInputRequests::questionEvent(const Pending& entry)
{
    return BridgeMessage{bridgeProtocolVersion, BridgeMessageKind::Event, entry.request.id,
                         QStringLiteral("sarvane/userInputRequest"), entry.params};
}

bool closesQuestion(const PendingUserInputRequests::Pending& entry, const QString& method,
                    const JSONValue& params)
{
    if (!params.isObject() || params.members().empty())
        return false;
    const JSONValue* threadID = params.find("threadId");
    if (!threadID || threadID->stringValue() != entry.request.threadID)
        return false;
    if (method == QLatin1String("serverRequest/resolved")) {
        const JSONValue* requestID = params.find("requestId");
        return requestID && *requestID == entry.serverID;
    }
    const JSONValue* turn = params.find("turn");
    const JSONValue* turnID = turn ? turn->find("id") : nullptr;
    const std::optional<QString> id = turnID ? turnID->stringValue() : std::nullopt;
    if (method == QLatin1String("turn/completed"))
        return !id || *id == entry.request.turnID;
    if (method == QLatin1String("turn/started"))
        return id && *id != entry.request.turnID;
    return false;
}

} // namespace nimbrel
