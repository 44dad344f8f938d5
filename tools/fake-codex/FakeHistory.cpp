#include "FakeHistory.h"

#include <string>
#include <vector>

using nimbrel::JSONValue;

namespace {

long numberAt(const JSONValue& object, const char* key, long fallback)
{
    return static_cast<long>(object[key]
                                 .value_or(JSONValue(static_cast<double>(fallback)))
                                 .numberValue()
                                 .value_or(static_cast<double>(fallback)));
}

// A picture of one pixel, padded after its end to bytes, as a data URL.
std::string pictureURL(long bytes)
{
    static const unsigned char pixel[] = {
        0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48,
        0x44, 0x52, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x06, 0x00, 0x00,
        0x00, 0x1f, 0x15, 0xc4, 0x89, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x44, 0x41, 0x54, 0x78,
        0x9c, 0x63, 0xf8, 0xcf, 0xc0, 0xf0, 0x1f, 0x00, 0x05, 0x00, 0x01, 0xff, 0x89, 0x99,
        0x3d, 0x1d, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};
    std::string raw(reinterpret_cast<const char*>(pixel), sizeof pixel);
    raw.resize(static_cast<std::size_t>(std::max<long>(bytes, static_cast<long>(sizeof pixel))));
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string url = "data:image/png;base64,";
    url.reserve(url.size() + (raw.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < raw.size(); at += 3) {
        const auto byte = [&](std::size_t i) {
            return i < raw.size() ? static_cast<unsigned char>(raw[i]) : 0u;
        };
        const unsigned value = byte(at) << 16 | byte(at + 1) << 8 | byte(at + 2);
        url += digits[value >> 18 & 63];
        url += digits[value >> 12 & 63];
        url += at + 1 < raw.size() ? digits[value >> 6 & 63] : '=';
        url += at + 2 < raw.size() ? digits[value & 63] : '=';
    }
    return url;
}

// Item number of items, as the history describes it.
JSONValue item(const JSONValue& history, long number, long items)
{
    const std::string id = "item-" + std::to_string(number);
    std::string text = "message " + std::to_string(number);
    if (number % 2 == 1) {
        std::vector<JSONValue> content{JSONValue::object({{"type", "text"}, {"text", text}})};
        // User messages from the newest back: the first `messages` of them carry pictures.
        const JSONValue images = history["images"].value_or(JSONValue::object({}));
        const long newestUser = items % 2 == 1 ? items : items - 1;
        if ((newestUser - number) / 2 < numberAt(images, "messages", 0))
            for (long i = 0; i < numberAt(images, "perMessage", 1); ++i)
                content.push_back(JSONValue::object(
                    {{"type", "image"}, {"url", pictureURL(numberAt(images, "bytes", 0))}}));
        return JSONValue::object({{"type", "userMessage"},
                                  {"id", id},
                                  {"content", JSONValue::array(std::move(content))}});
    }
    const JSONValue* texts = history.find("texts");
    const long newestReply = items % 2 == 0 ? items : items - 1;
    const auto index = static_cast<std::size_t>((newestReply - number) / 2);
    if (texts && texts->isArray() && index < texts->arrayValue()->size())
        text = std::string((*texts->arrayValue())[index].stringView().value_or(text));
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
            page.push_back(JSONValue::object({{"item", item(*history, number, items)}}));
            continue;
        }
        std::vector<JSONValue> turnItems{item(*history, 2 * number - 1, items)};
        if (2 * number <= items)
            turnItems.push_back(item(*history, 2 * number, items));
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
