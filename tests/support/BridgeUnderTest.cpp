#include "BridgeUnderTest.h"

#include <algorithm>

namespace nimbrel::test {

JSONValue json(const char* text)
{
    return JSONValue::decode(text).value();
}

JSONValue sendAction(JSONValue message)
{
    return JSONValue::object({{"send", std::move(message)}});
}

JSONValue cue(const char* word, std::vector<JSONValue> actions)
{
    return JSONValue::object({{"when", word}, {"actions", JSONValue::array(std::move(actions))}});
}

BridgeUnderTest::BridgeUnderTest(const JSONValue& scenario)
    : engine(scenario)
    , defaults(home.filePath("defaults.ini"))
{
    home.makeLink("bin/codex", FakeEngine::executablePath());
    home.setPath(home.filePath("bin"));
    m_controller = std::make_unique<BridgeController>(scheduler, defaults,
                                                      PeerLinkSettings{QHostAddress::LocalHost, 0},
                                                      SecretStore(home.filePath("secrets")));
    m_controller->startOnce();
}

void BridgeUnderTest::restart()
{
    m_controller.reset();
    m_controller = std::make_unique<BridgeController>(scheduler, defaults,
                                                      PeerLinkSettings{QHostAddress::LocalHost, 0},
                                                      SecretStore(home.filePath("secrets")));
    m_controller->startOnce();
}

void BridgeUnderTest::say(const char* word, const char* threadID)
{
    m_controller->appServer().request("turn/start",
                                      JSONValue::object({{"threadId", threadID}, {"text", word}}),
                                      [](const AppServerClient::RequestResult&) {});
}

long BridgeUnderTest::received(const char* method) const
{
    const auto methods = engine.receivedMethods();
    return std::count(methods.begin(), methods.end(), method);
}

} // namespace nimbrel::test
