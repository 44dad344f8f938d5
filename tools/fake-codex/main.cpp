// fake-codex: speaks the engine's side of `codex app-server` as a scenario file tells it.
// FAKE_CODEX_SCENARIO names the scenario (see FakeScenario.h); FAKE_CODEX_RECORD names a file
// that receives one JSON line per launch and per message read, for tests to assert on.
#include "FakeHistory.h"
#include "FakeScenario.h"
#include "FakeTurn.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using nimbrel::JSONValue;

namespace {

const char* recordPath = nullptr;
int launchNumber = 1;
// The input items of the request whose cues are being played, for turns that echo them.
JSONValue cueInput;

void record(const JSONValue& entry)
{
    if (!recordPath)
        return;
    std::ofstream out(recordPath, std::ios::app | std::ios::binary);
    out << *entry.encode() << '\n';
}

int nextLaunchNumber()
{
    if (!recordPath)
        return 1;
    const std::string counterPath = std::string(recordPath) + ".launches";
    int count = 0;
    std::ifstream(counterPath) >> count;
    std::ofstream(counterPath, std::ios::trunc) << count + 1;
    return count + 1;
}

void writeRaw(std::string_view bytes, FILE* stream = stdout)
{
    std::fwrite(bytes.data(), 1, bytes.size(), stream);
    std::fflush(stream);
}

std::string bytesFromHex(const JSONValue& hex)
{
    const std::string digits(hex.stringView().value_or(""));
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

// The turn of each thread that has started and not completed, as the notifications sent tell.
std::map<std::string, std::string> runningTurns;

std::string textAtPath(const JSONValue& value, std::initializer_list<std::string_view> path)
{
    const JSONValue* at = &value;
    for (std::string_view key : path)
        if (!(at = at->find(key)))
            return {};
    return std::string(at->stringView().value_or(""));
}

void send(const JSONValue& message)
{
    const std::string method = textAtPath(message, {"method"});
    const std::string thread = textAtPath(message, {"params", "threadId"});
    if (method == "turn/started")
        runningTurns[thread] = textAtPath(message, {"params", "turn", "id"});
    else if (method == "turn/completed")
        runningTurns.erase(thread);
    writeRaw(*message.encode() + "\n");
}

void sleepMilliseconds(double milliseconds)
{
    std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(milliseconds));
}

// The params of the request whose cue is being performed, while it is.
const JSONValue* cueingParams = nullptr;

// The user's message as the engine gives it back once a turn has it: the request's input as sent.
void echoUserMessage(const JSONValue& params)
{
    const JSONValue* thread = params.find("threadId");
    const JSONValue* input = params.find("input");
    static int echoed = 0;
    send(JSONValue::object(
        {{"method", "item/completed"},
         {"params",
          JSONValue::object(
              {{"threadId", thread ? *thread : JSONValue("")},
               {"item", JSONValue::object(
                            {{"type", "userMessage"},
                             {"id", "user-" + std::to_string(++echoed)},
                             {"clientId", params["clientUserMessageId"].value_or(JSONValue())},
                             {"content", input ? *input : JSONValue::array({})}})}})}}));
}

// The options of a turn to play: with "numbered", each turn played gets an id of its own, the
// turnId followed by its number, and so do its items.
JSONValue turnToPlay(const JSONValue& options)
{
    if (!options.find("numbered"))
        return options;
    static long played = 0;
    std::string turnID = "turn";
    std::vector<std::pair<std::string, JSONValue>> members;
    for (const auto& member : options.members()) {
        if (member.name() == "turnId")
            turnID = std::string(member.value.stringView().value_or("turn"));
        else
            members.emplace_back(std::string(member.name()), member.value);
    }
    members.emplace_back("turnId", turnID + "-" + std::to_string(++played));
    return JSONValue::object(std::move(members));
}

void perform(const JSONValue& actions)
{
    const auto list = actions.arrayValue();
    if (!list)
        return;
    for (const JSONValue& action : *list) {
        if (const JSONValue* message = action.find("send"))
            send(*message);
        if (action.find("echoUserMessage") && cueingParams)
            echoUserMessage(*cueingParams);
        if (action.find("completeInterruptedTurn") && cueingParams)
            send(JSONValue::object(
                {{"method", "turn/completed"},
                 {"params",
                  JSONValue::object(
                      {{"threadId", textAtPath(*cueingParams, {"threadId"})},
                       {"turn", JSONValue::object({{"id", textAtPath(*cueingParams, {"turnId"})},
                                                   {"status", "interrupted"},
                                                   {"items", JSONValue::array({})}})}})}}));
        if (const JSONValue* raw = action.find("raw"))
            writeRaw(raw->stringView().value_or(""));
        if (const JSONValue* text = action.find("stderr"))
            writeRaw(text->stringView().value_or(""), stderr);
        if (const JSONValue* hex = action.find("stderrHex"))
            writeRaw(bytesFromHex(*hex), stderr);
        if (const JSONValue* delay = action.find("sleepMs"))
            sleepMilliseconds(delay->numberValue().value_or(0));
        if (action.find("closeStdin"))
            ::close(STDIN_FILENO);
        if (const JSONValue* flood = action.find("flood")) {
            const std::string line = *(*flood)["message"]->encode() + "\n";
            const auto count = static_cast<long>((*flood)["count"]->numberValue().value_or(0));
            std::string block;
            for (long i = 0; i < count; ++i) {
                block += line;
                if (block.size() > (1 << 20)) {
                    std::fwrite(block.data(), 1, block.size(), stdout);
                    block.clear();
                }
            }
            writeRaw(block);
        }
        if (const JSONValue* options = action.find("streamTurn")) {
            const JSONValue played = turnToPlay(*options);
            const JSONValue* turn = &played;
            const double pause =
                (*turn)["delayMs"].value_or(JSONValue(0)).numberValue().value_or(0);
            const bool recordDeltas = turn->find("recordDeltas") != nullptr;
            for (const JSONValue& message : turnNotifications(*turn, &cueInput)) {
                send(message);
                // When each delta left, on the wall clock, for measuring how soon clients show it.
                if (recordDeltas &&
                    message["method"]->stringView() == std::string_view("item/agentMessage/delta"))
                    record(JSONValue::object(
                        {{"deltaSent", *(*message["params"])["delta"]},
                         {"atMs", std::chrono::duration<double, std::milli>(
                                      std::chrono::system_clock::now().time_since_epoch())
                                      .count()}}));
                if (pause > 0)
                    sleepMilliseconds(pause);
            }
        }
        if (const JSONValue* code = action.find("exit")) {
            std::fflush(stdout);
            std::fflush(stderr);
            std::_Exit(static_cast<int>(code->numberValue().value_or(0)));
        }
    }
}

// The account/login/completed that waits for its cue, where one does.
std::optional<JSONValue> pendingLoginCompletion;
std::string loginCompletesOn;

// Replies held back by a handler's "replyOn", with the method that releases each.
std::vector<std::pair<std::string, JSONValue>> heldReplies;

void sendOrHold(const JSONValue& handler, JSONValue reply)
{
    const JSONValue* on = handler.find("replyOn");
    if (on && on->isString())
        heldReplies.emplace_back(std::string(*on->stringView()), std::move(reply));
    else
        send(reply);
}

// Sends, in the order they were held, the replies that wait for a message of this method.
void releaseHeldReplies(const std::string& method)
{
    std::vector<std::pair<std::string, JSONValue>> waiting;
    for (auto& held : heldReplies) {
        if (held.first == method)
            send(held.second);
        else
            waiting.push_back(std::move(held));
    }
    heldReplies = std::move(waiting);
}

std::string textIn(const JSONValue& value, std::string_view key, std::string_view fallback)
{
    const JSONValue* found = value.find(key);
    return std::string(found && found->isString() ? *found->stringView() : fallback);
}

// account/login/start as Codex answers it, for a scenario that does not script it.
void answerLogin(const FakeScenario& scenario, const JSONValue& id, const JSONValue& params,
                 int call)
{
    const JSONValue login = scenario.engine["login"].value_or(JSONValue::object({}));
    const std::string type = textIn(params, "type", "");
    const std::string loginID = "login-" + std::to_string(call + 1);
    if (type == "chatgpt")
        send(JSONValue::object(
            {{"id", id},
             {"result",
              JSONValue::object(
                  {{"type", "chatgpt"},
                   {"loginId", loginID},
                   {"authUrl",
                    textIn(login, "authUrl", "https://auth.example.invalid/oauth/authorize")}})}}));
    else if (type == "chatgptDeviceCode")
        send(JSONValue::object(
            {{"id", id},
             {"result", JSONValue::object({{"type", "chatgptDeviceCode"},
                                           {"loginId", loginID},
                                           {"userCode", textIn(login, "userCode", "ABCD-1234")},
                                           {"verificationUrl",
                                            textIn(login, "verificationUrl",
                                                   "https://auth.example.invalid/device")}})}}));
    else if (type == "apiKey" && !textIn(params, "apiKey", "").empty())
        send(JSONValue::object({{"id", id}, {"result", JSONValue::object({{"type", "apiKey"}})}}));
    else {
        send(JSONValue::object(
            {{"id", id},
             {"error", JSONValue::object({{"code", -32600}, {"message", "Invalid request"}})}}));
        return;
    }
    const JSONValue* success = login.find("success");
    const JSONValue* error = login.find("error");
    const JSONValue completion = JSONValue::object(
        {{"method", "account/login/completed"},
         {"params",
          JSONValue::object({{"loginId", type == "apiKey" ? JSONValue() : JSONValue(loginID)},
                             {"success", success ? *success : JSONValue(true)},
                             {"error", error ? *error : JSONValue()}})}});
    loginCompletesOn = textIn(login, "completeOn", "");
    if (loginCompletesOn.empty())
        send(completion);
    else
        pendingLoginCompletion = completion;
}

void answer(const FakeScenario& scenario, const JSONValue& id, const std::string& method,
            const JSONValue& params, int call)
{
    const JSONValue* listed = scenario.engine.find("methods");
    if (method == "account/login/start" && !(listed && listed->find(method)))
        return answerLogin(scenario, id, params, call);
    const auto running = runningTurns.find(textAtPath(params, {"threadId"}));
    if (!(listed && listed->find(method)))
        if (const std::optional<JSONValue> page =
                historyReply(scenario.engine, method, id, params,
                             running == runningTurns.end() ? std::string() : running->second)) {
            send(*page);
            return;
        }
    const JSONValue handler = scenario.handlerFor(method, call);
    cueingParams = &params;
    if (const JSONValue* before = handler.find("before"))
        perform(*before);
    if (const JSONValue* delay = handler.find("delayMs"))
        sleepMilliseconds(delay->numberValue().value_or(0));
    if (const JSONValue* raw = handler.find("raw")) {
        writeRaw(raw->stringView().value_or(""));
    } else if (const JSONValue* reply = handler.find("reply")) {
        // A whole reply, shaped by the scenario; the request's id unless it gives its own.
        std::vector<std::pair<std::string, JSONValue>> members;
        if (!reply->contains("id"))
            members.emplace_back("id", id);
        for (const auto& member : reply->members())
            members.emplace_back(std::string(member.name()), member.value);
        sendOrHold(handler, JSONValue::object(std::move(members)));
    } else if (handler.find("echoParams"))
        sendOrHold(handler, JSONValue::object({{"id", id}, {"result", params}}));
    else if (const JSONValue* error = handler.find("error"))
        sendOrHold(handler, JSONValue::object({{"id", id}, {"error", *error}}));
    else if (const JSONValue* result = handler.find("result"))
        sendOrHold(handler, JSONValue::object({{"id", id}, {"result", *result}}));
    if (const JSONValue* after = handler.find("after"))
        perform(*after);
    cueingParams = &params;
    cueInput = params["input"].value_or(JSONValue());
    perform(scenario.cuedActions(*params.encode()));
    cueingParams = nullptr;
}

// value with every text "$id" replaced by id.
JSONValue withID(const JSONValue& value, const JSONValue& id)
{
    if (value.stringView() == std::string_view("$id"))
        return id;
    if (value.isArray()) {
        std::vector<JSONValue> items;
        for (const JSONValue& item : value.items())
            items.push_back(withID(item, id));
        return JSONValue::array(std::move(items));
    }
    if (value.isObject()) {
        std::vector<std::pair<std::string, JSONValue>> members;
        for (const auto& member : value.members())
            members.emplace_back(std::string(member.name()), withID(member.value, id));
        return JSONValue::object(std::move(members));
    }
    return value;
}

int printVersion(const FakeScenario& scenario)
{
    const JSONValue& version = scenario.version;
    if (const JSONValue* hang = version.find("hangSeconds"))
        sleepMilliseconds(hang->numberValue().value_or(0) * 1000);
    if (const JSONValue* hex = version.find("outputHex")) {
        writeRaw(bytesFromHex(*hex));
    } else {
        const JSONValue* output = version.find("output");
        writeRaw(output ? output->stringView().value_or("") : "codex-cli 0.0.0-fake\n");
    }
    const JSONValue* code = version.find("exitCode");
    return code ? static_cast<int>(code->numberValue().value_or(0)) : 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    recordPath = std::getenv("FAKE_CODEX_RECORD");
    // A scenario file beside the executable wins, so that copies in two folders can differ.
    std::string besideMe = argv[0];
    besideMe = besideMe.substr(0, besideMe.rfind('/') + 1) + "fake-codex-scenario.json";
    const char* scenarioPath = ::access(besideMe.c_str(), R_OK) == 0
                                   ? besideMe.c_str()
                                   : std::getenv("FAKE_CODEX_SCENARIO");
    if (argc >= 2 && std::strcmp(argv[1], "--version") == 0)
        return printVersion(FakeScenario::load(scenarioPath, 1));
    if (argc < 2 || std::strcmp(argv[1], "app-server") != 0) {
        std::fprintf(stderr, "usage: fake-codex app-server [-c key=value] | --version\n");
        return 64;
    }

    launchNumber = nextLaunchNumber();
    const FakeScenario scenario = FakeScenario::load(scenarioPath, launchNumber);
    std::vector<JSONValue> arguments;
    for (int i = 1; i < argc; ++i)
        arguments.emplace_back(argv[i]);
    record(JSONValue::object(
        {{"launch", launchNumber}, {"event", "start"}, {"args", JSONValue::array(arguments)}}));
    perform(scenario.actions("onStart"));

    std::map<std::string, int> calls;
    std::string line;
    while (std::getline(std::cin, line)) {
        auto decoded = JSONValue::decode(line);
        if (!decoded.ok()) {
            record(JSONValue::object({{"launch", launchNumber}, {"undecodable", line}}));
            continue;
        }
        const JSONValue& message = decoded.value();
        record(JSONValue::object({{"launch", launchNumber}, {"received", message}}));
        const JSONValue* method = message.find("method");
        const JSONValue* id = message.find("id");
        const JSONValue* given = message.find("params");
        const JSONValue params = given ? *given : JSONValue::object({});
        if (method && method->isString()) {
            const std::string name(*method->stringView());
            releaseHeldReplies(name);
            if (id)
                answer(scenario, *id, name, params, calls[name]++);
            else
                perform(scenario.notificationActions(name));
            if (pendingLoginCompletion && name == loginCompletesOn) {
                send(*pendingLoginCompletion);
                pendingLoginCompletion.reset();
            }
        } else if (id) {
            perform(withID(scenario.actions("responses"), *id));
        }
    }
    record(JSONValue::object({{"launch", launchNumber}, {"event", "eof"}}));
    const JSONValue onEof = scenario.actions("onEof");
    perform(onEof);
    return 0;
}
