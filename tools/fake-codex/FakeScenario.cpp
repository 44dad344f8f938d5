#include "FakeScenario.h"

#include <cstdio>
#include <fstream>
#include <sstream>

using nimbrel::JSONValue;

FakeScenario FakeScenario::load(const char* path, int launch)
{
    FakeScenario scenario{JSONValue::object({}), JSONValue::object({})};
    if (!path || !*path)
        return scenario;
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    auto decoded = JSONValue::decode(text.str());
    if (!decoded.ok()) {
        std::fprintf(stderr, "fake-codex: bad scenario %s: %s\n", path,
                     qPrintable(decoded.error().message));
        std::exit(70);
    }
    const JSONValue& root = decoded.value();
    if (const JSONValue* version = root.find("version"))
        scenario.version = *version;
    scenario.engine = root;
    if (const JSONValue* launches = root.find("launches"); launches && launches->arrayValue()) {
        const auto list = *launches->arrayValue();
        if (!list.empty())
            scenario.engine =
                list[std::min<std::size_t>(static_cast<std::size_t>(launch - 1), list.size() - 1)];
    }
    return scenario;
}

JSONValue FakeScenario::handlerFor(const std::string& method, int call) const
{
    if (const JSONValue* methods = engine.find("methods"))
        if (const JSONValue* handler = methods->find(method)) {
            if (const auto sequence = handler->arrayValue(); sequence && !sequence->empty())
                return (*sequence)[std::min<std::size_t>(static_cast<std::size_t>(call),
                                                         sequence->size() - 1)];
            return *handler;
        }
    if (const JSONValue* fallback = engine.find("defaultHandler"))
        return *fallback;
    return JSONValue::object({{"result", JSONValue::object({})}});
}

JSONValue FakeScenario::actions(const char* key) const
{
    const JSONValue* found = engine.find(key);
    return found ? *found : JSONValue::array({});
}

JSONValue FakeScenario::notificationActions(const std::string& method) const
{
    if (const JSONValue* notifications = engine.find("notifications"))
        if (const JSONValue* found = notifications->find(method))
            return *found;
    return JSONValue::array({});
}

JSONValue FakeScenario::cuedActions(const std::string& encodedParams) const
{
    std::vector<JSONValue> cued;
    if (const JSONValue* cues = engine.find("cues"))
        for (const JSONValue& cue : cues->items()) {
            const JSONValue* word = cue.find("when");
            const JSONValue* actions = cue.find("actions");
            if (word && actions &&
                encodedParams.find(word->stringView().value_or("\x01")) != std::string::npos)
                for (const JSONValue& action : actions->items())
                    cued.push_back(action);
        }
    return JSONValue::array(std::move(cued));
}
