#pragma once

#include "bridge/BridgeController.h"
#include "support/FakeEngine.h"
#include "support/TemporaryHome.h"
#include "support/VirtualScheduler.h"

#include <memory>

namespace nimbrel::test {

JSONValue json(const char* text);

// Fake engine scenario pieces: an action that sends message, and a cue that runs actions after a
// request whose params hold word.
JSONValue sendAction(JSONValue message);
JSONValue cue(const char* word, std::vector<JSONValue> actions);

// The real controller, started over the fake engine playing scenario, in a temporary home and on
// virtual time; its link listens on loopback.
class BridgeUnderTest {
public:
    explicit BridgeUnderTest(const JSONValue& scenario);

    BridgeController& controller() { return *m_controller; }
    CodexWorkspace& workspace() { return m_controller->workspace(); }
    quint16 port() { return m_controller->link().listeningPort(); }
    // The program again, in the same home: a new controller over a new engine.
    void restart();
    // Asks the engine for a turn whose text holds word, so that its cues play.
    void say(const char* word, const char* threadID = "thr_1");
    // How many requests of method the engine has read.
    long received(const char* method) const;

    TemporaryHome home;
    FakeEngine engine;
    SettingsUserDefaults defaults;
    VirtualScheduler scheduler;

private:
    std::unique_ptr<BridgeController> m_controller;
};

} // namespace nimbrel::test
