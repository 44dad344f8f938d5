#include "FakeTurn.h"

#include <string>

using nimbrel::JSONValue;

namespace {

std::string textAt(const JSONValue& options, const char* key, const char* fallback)
{
    const JSONValue* value = options.find(key);
    return std::string(value && value->isString() ? *value->stringView() : fallback);
}

JSONValue usage(int total, int input, int output)
{
    return JSONValue::object({{"totalTokens", total},
                              {"inputTokens", input},
                              {"cachedInputTokens", 0},
                              {"outputTokens", output},
                              {"reasoningOutputTokens", output / 4}});
}

} // namespace

std::vector<JSONValue> turnNotifications(const JSONValue& options, const JSONValue* input)
{
    const std::string thread = textAt(options, "threadId", "thr_1");
    const std::string turn = textAt(options, "turnId", "turn-1");
    const std::string status = textAt(options, "status", "completed");
    const long deltas =
        static_cast<long>(options["deltas"].value_or(JSONValue(3)).numberValue().value_or(3));
    const bool finalText =
        options["finalText"].value_or(JSONValue(true)).boolValue().value_or(true);

    std::vector<JSONValue> out;
    auto note = [&](const char* method, std::vector<std::pair<std::string, JSONValue>> params) {
        params.insert(params.begin(), {"turnId", turn});
        params.insert(params.begin(), {"threadId", thread});
        out.push_back(JSONValue::object(
            {{"method", method}, {"params", JSONValue::object(std::move(params))}}));
    };
    auto item = [&](const char* method, JSONValue value) {
        note(method, {{"item", std::move(value)}});
    };
    auto id = [&](const char* part) { return turn + "-" + part; };

    note("turn/started", {{"turn", JSONValue::object({{"id", turn}, {"status", "inProgress"}})}});
    const bool echo = options.find("echoInput") && input && input->isArray();
    const JSONValue user = JSONValue::object(
        {{"type", "userMessage"},
         {"id", id("user")},
         {"content",
          echo ? *input
               : JSONValue::array({JSONValue::object(
                     {{"type", "text"}, {"text", textAt(options, "prompt", "Fix the build")}})})}});
    item("item/started", user);
    item("item/completed", user);

    item("item/started", JSONValue::object({{"type", "reasoning"}, {"id", id("reasoning")}}));
    note("item/reasoning/summaryPartAdded", {{"itemId", id("reasoning")}, {"summaryIndex", 0}});
    note("item/reasoning/summaryTextDelta",
         {{"itemId", id("reasoning")}, {"summaryIndex", 0}, {"delta", "Reading the "}});
    note("item/reasoning/summaryTextDelta",
         {{"itemId", id("reasoning")}, {"summaryIndex", 0}, {"delta", "build files"}});
    note("item/reasoning/summaryTextDelta",
         {{"itemId", id("reasoning")}, {"summaryIndex", 1}, {"delta", "Planning the fix"}});
    item("item/completed", JSONValue::object({{"type", "reasoning"}, {"id", id("reasoning")}}));

    note("turn/plan/updated",
         {{"explanation", "Fixing the build"},
          {"plan", JSONValue::array(
                       {JSONValue::object({{"step", "Read the error"}, {"status", "completed"}}),
                        JSONValue::object({{"step", "Change the flags"}, {"status", "inProgress"}}),
                        JSONValue::object({{"step", "Run the tests"}, {"status", "pending"}})})}});

    const JSONValue command = JSONValue::object({{"type", "commandExecution"},
                                                 {"id", id("command")},
                                                 {"command", "make test"},
                                                 {"cwd", "/work"},
                                                 {"status", "inProgress"}});
    item("item/started", command);
    note("item/commandExecution/outputDelta", {{"itemId", id("command")}, {"delta", "ok 1\n"}});
    note("item/commandExecution/outputDelta", {{"itemId", id("command")}, {"delta", "ok 2\n"}});
    item("item/completed", JSONValue::object({{"type", "commandExecution"},
                                              {"id", id("command")},
                                              {"command", "make test"},
                                              {"aggregatedOutput", "ok 1\nok 2\n"},
                                              {"exitCode", 0},
                                              {"status", "completed"}}));

    const JSONValue change = JSONValue::object(
        {{"type", "fileChange"},
         {"id", id("change")},
         {"changes",
          JSONValue::array({JSONValue::object({{"path", "/work/Makefile"},
                                               {"kind", JSONValue::object({{"type", "update"}})},
                                               {"diff", "-CFLAGS=-O0\n+CFLAGS=-O2\n"}})})}});
    item("item/started", change);
    item("item/completed", change);
    const JSONValue* diff = options.find("diff");
    if (diff)
        note("turn/diff/updated", {{"diff", *diff}});

    item(
        "item/started",
        JSONValue::object(
            {{"type", "mcpToolCall"}, {"id", id("tool")}, {"server", "docs"}, {"tool", "search"}}));
    note("item/mcpToolCall/progress", {{"itemId", id("tool")}, {"message", "Searching the docs"}});
    note("item/mcpToolCall/progress", {{"itemId", id("tool")}, {"message", "Searching the docs"}});
    item("item/completed", JSONValue::object({{"type", "mcpToolCall"},
                                              {"id", id("tool")},
                                              {"server", "docs"},
                                              {"tool", "search"},
                                              {"status", "completed"}}));
    const JSONValue search =
        JSONValue::object({{"type", "webSearch"}, {"id", id("search")}, {"query", "gcc -O2"}});
    item("item/started", search);
    item("item/completed", search);

    std::string reply;
    item("item/started",
         JSONValue::object({{"type", "agentMessage"}, {"id", id("reply")}, {"text", ""}}));
    const std::string written = textAt(options, "reply", "");
    for (long i = 0; i < deltas; ++i) {
        std::string piece = "word" + std::to_string(i) + " ";
        if (options.find("reply")) {
            const std::size_t from =
                written.size() * static_cast<std::size_t>(i) / static_cast<std::size_t>(deltas);
            const std::size_t to =
                written.size() * static_cast<std::size_t>(i + 1) / static_cast<std::size_t>(deltas);
            piece = written.substr(from, to - from);
        }
        reply += piece;
        note("item/agentMessage/delta", {{"itemId", id("reply")}, {"delta", piece}});
    }
    item("item/completed",
         JSONValue::object(
             {{"type", "agentMessage"}, {"id", id("reply")}, {"text", finalText ? reply : ""}}));

    note("thread/tokenUsage/updated",
         {{"tokenUsage", JSONValue::object({{"total", usage(1200, 1000, 200)},
                                            {"last", usage(400, 300, 100)},
                                            {"modelContextWindow", 200000}})}});
    if (diff)
        note("turn/diff/updated", {{"diff", *diff}});
    std::vector<std::pair<std::string, JSONValue>> ended{{"id", turn}, {"status", status}};
    if (const JSONValue* message = options.find("errorMessage"))
        ended.emplace_back("error", JSONValue::object({{"message", *message}}));
    note("turn/completed", {{"turn", JSONValue::object(std::move(ended))}});
    return out;
}
