#include "FakeHistory.h"

#include <string>
#include <vector>

using nimbrel::JSONValue;

namespace {

JSONValue item(long number)
{
    const std::string id = "item-" + std::to_string(number);
    const std::string text = "message " + std::to_string(number);
    if (number % 2 == 1)
        return JSONValue::object(
            {{"type", "userMessage"},
             {"id", id},
             {"content",
              JSONValue::array({JSONValue::object({{"type", "text"}, {"text", text}})})}});
    return JSONValue::object({{"type", "agentMessage"}, {"id", id}, {"text", text}});
}

JSONValue failure(const JSONValue& id, const std::string& message)
{
    return JSONValue::object(
        {{"id", id}, {"error", JSONValue::object({{"code", -32600}, {"message", message}})}});
}

} // namespace

std::optional<JSONValue> historyReply(const JSONValue& engine, const std::string& method,
                                      const JSONValue& id, const JSONValue& params,
                                      const std::string& runningTurn)
{
    const bool byItems = method == "thread/items/list";
    if (!byItems && method != "thread/turns/list")
        return std::nullopt;
    const std::string threadID(params["threadId"].value_or(JSONValue()).stringView().value_or(""));
    const JSONValue* histories = engine.find("history");
    const JSONValue* history = histories ? histories->find(threadID) : nullptr;
    if (!history)
        return std::nullopt;
    if (byItems && history->find("itemsUnsupported"))
        return failure(id, "thread/items/list is not supported yet");
    if (!byItems && history->find("notMaterialized"))
        return failure(id, "thread " + threadID +
                               " is not materialized yet; thread/turns/list is unavailable before "
                               "first user message");

    const long items =
        static_cast<long>((*history)["items"].value_or(JSONValue(0)).numberValue().value_or(0));
    const long total = byItems ? items : (items + 1) / 2; // a turn is a message and its reply
    const long limit = std::max(
        1L, static_cast<long>(params["limit"].value_or(JSONValue(20)).numberValue().value_or(20)));
    long newest = total;
    if (const JSONValue* cursor = params.find("cursor"))
        newest = std::stol(std::string(cursor->stringView().value_or("0")));
    std::vector<JSONValue> page;
    if (!byItems && !params.find("cursor") && !runningTurn.empty() &&
        history->find("listsRunningTurn"))
        page.push_back(JSONValue::object(
            {{"id", runningTurn}, {"status", "inProgress"}, {"items", JSONValue::array({})}}));
    for (long number = newest; number > 0 && number > newest - limit; --number) {
        if (byItems) {
            page.push_back(JSONValue::object({{"item", item(number)}}));
            continue;
        }
        std::vector<JSONValue> turnItems{item(2 * number - 1)};
        if (2 * number <= items)
            turnItems.push_back(item(2 * number));
        page.push_back(JSONValue::object({{"id", "turn-" + std::to_string(number)},
                                          {"status", "completed"},
                                          {"items", JSONValue::array(std::move(turnItems))}}));
    }
    const long next = newest - limit;
    return JSONValue::object(
        {{"id", id},
         {"result", JSONValue::object({{"data", JSONValue::array(std::move(page))},
                                       {"nextCursor", next > 0 ? JSONValue(std::to_string(next))
                                                               : JSONValue()}})}});
}
