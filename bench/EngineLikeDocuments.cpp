#include "EngineLikeDocuments.h"

#include "peer/JSONValue.h"

#include <random>

namespace nimbrel::bench {

namespace {

std::string sentence(std::mt19937& random, std::size_t words)
{
    static const char* const vocabulary[] = {
        "the",   "build",  "passes", "über", "file",  "\"quoted\"", "path/to/src", "tests",
        "fixed", "error:", "→",      "line", "value", "naïve",      "done"};
    std::string text;
    for (std::size_t i = 0; i < words; ++i) {
        if (i)
            text += (random() % 11 == 0) ? "\n" : " ";
        text += vocabulary[random() % std::size(vocabulary)];
    }
    return text;
}

} // namespace

std::string turnsListResult(std::size_t approximateBytes)
{
    std::mt19937 random(7);
    std::vector<JSONValue> turns;
    std::size_t size = 0;
    for (int turn = 0; size < approximateBytes; ++turn) {
        std::vector<JSONValue> items;
        items.push_back(JSONValue::object(
            {{"type", "userMessage"},
             {"id", "item-u" + std::to_string(turn)},
             {"content", JSONValue::array({JSONValue::object(
                             {{"type", "text"}, {"text", sentence(random, 20)}})})}}));
        for (int step = 0; step < 6; ++step) {
            items.push_back(
                JSONValue::object({{"type", "reasoning"},
                                   {"id", "item-r" + std::to_string(turn * 10 + step)},
                                   {"summary", JSONValue::array({sentence(random, 12)})}}));
            items.push_back(JSONValue::object({
                {"type", "commandExecution"},
                {"id", "item-c" + std::to_string(turn * 10 + step)},
                {"command", "/bin/zsh -lc 'cargo test --workspace'"},
                {"cwd", "/Users/dev/project"},
                {"status", "completed"},
                {"exitCode", 0},
                {"durationMs", 1234 + step},
                {"aggregatedOutput", sentence(random, 400 + random() % 800)},
            }));
        }
        items.push_back(JSONValue::object({{"type", "agentMessage"},
                                           {"id", "item-a" + std::to_string(turn)},
                                           {"text", sentence(random, 120)}}));
        JSONValue value = JSONValue::object({{"id", "turn-" + std::to_string(turn)},
                                             {"status", "completed"},
                                             {"items", JSONValue::array(std::move(items))}});
        size += value.encode()->size();
        turns.push_back(std::move(value));
    }
    return *JSONValue::object(
                {{"data", JSONValue::array(std::move(turns))}, {"nextCursor", nullptr}})
                .encode();
}

std::vector<std::string> deltaNotifications(std::size_t count)
{
    std::mt19937 random(11);
    std::vector<std::string> lines;
    lines.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        lines.push_back(
            *JSONValue::object(
                 {
                     {"method", "item/agentMessage/delta"},
                     {"params", JSONValue::object({{"threadId", "thr_0193a1b2c3d4"},
                                                   {"turnId", "turn-" + std::to_string(i / 100)},
                                                   {"itemId", "item-a" + std::to_string(i / 100)},
                                                   {"delta", sentence(random, 6)}})},
                 })
                 .encode());
    return lines;
}

} // namespace nimbrel::bench
