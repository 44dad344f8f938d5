#pragma once

#include "support/RequesterDouble.h"
#include "support/TemporaryHome.h"
#include "support/VirtualScheduler.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <string>

namespace nimbrel::test {

// A workspace over a scripted engine that has risen and listed no session, on virtual time.
class ScriptedWorkspace : public ::testing::Test {
protected:
    ScriptedWorkspace()
        : defaults(home.filePath("defaults.ini"))
        , workspace(defaults, scheduler, "Tabs", 4.0, 20.0)
    {
        workspace.requester = engine.requester();
        workspace.setEngineReady(true, {});
        engine.answerList(JSONValue::decode(R"({"data":[]})").value());
    }

    void notify(const char* method, const std::string& params)
    {
        workspace.handleNotification(method, JSONValue::decode(params).value());
    }
    // Virtual time passes, and what came due runs.
    void advance(double seconds)
    {
        scheduler.advance(seconds);
        QCoreApplication::processEvents();
    }

    TemporaryHome home;
    SettingsUserDefaults defaults;
    VirtualScheduler scheduler;
    RequesterDouble engine;
    CodexWorkspace workspace;
};

} // namespace nimbrel::test
