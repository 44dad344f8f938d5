#pragma once

// What the benchmarks share: the event loop run until a condition, a folder with the fake engine
// on its PATH playing a scenario, a flood of deltas, and a session with a long transcript.
#include "peer/JSONValue.h"
#include "workspace/CodexWorkspace.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <functional>

namespace nimbrel {

inline void pump(const std::function<bool()>& until, int milliseconds = 120000)
{
    QElapsedTimer timer;
    timer.start();
    while (!until() && timer.elapsed() < milliseconds)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

// Links the fake engine as bin/codex in home and writes {"methods": methods} beside it; returns the
// scenario's path, for FAKE_CODEX_SCENARIO.
inline QString installFakeCodex(const QTemporaryDir& home, const QString& fakeCodex,
                                const JSONValue& methods)
{
    QDir().mkpath(home.filePath("bin"));
    QFile::link(fakeCodex, home.filePath("bin/codex"));
    QFile scenario(home.filePath("scenario.json"));
    scenario.open(QIODevice::WriteOnly);
    scenario.write(QByteArray::fromStdString(*JSONValue::object({{"methods", methods}}).encode()));
    return scenario.fileName();
}

// The environment a bridge under measure runs in: home as its home and configuration, the fake
// engine of home's bin on its PATH playing scenario, its link on a free loopback port.
inline QProcessEnvironment bridgeEnvironment(const QTemporaryDir& home, const QString& scenario)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HOME", home.path());
    environment.insert("PATH", home.filePath("bin") + ":/usr/bin:/bin");
    environment.insert("XDG_CONFIG_HOME", home.filePath("config"));
    environment.insert("XDG_DATA_HOME", home.filePath("data"));
    environment.insert("NIMBREL_LINK_ADDRESS", "127.0.0.1");
    environment.insert("NIMBREL_LINK_PORT", "0");
    environment.insert("FAKE_CODEX_SCENARIO", scenario);
    return environment;
}

// Starts the bridge under measure headless (NIMBREL_BENCH_BRIDGE names another build of it, for
// figures side by side; else builtPath) and waits until its engine is ready and its link listens.
// errors is what the bridge has printed, kept up to date by the caller. Returns the link's port, 0
// where the bridge did not start.
inline quint16 startBridge(QProcess& bridge, const QString& errors, const QString& builtPath)
{
    bridge.start(qEnvironmentVariable("NIMBREL_BENCH_BRIDGE", builtPath), {"--headless"});
    pump([&] {
        return errors.contains("Codex app-server ready") && errors.contains("Listening on");
    });
    return static_cast<quint16>(
        QRegularExpression("wss://127\\.0\\.0\\.1:(\\d+)").match(errors).captured(1).toUInt());
}

// A handler that answers {} and then sends count agent-message deltas for threadID.
inline JSONValue deltaFlood(int count, const char* threadID, const char* itemID,
                            const std::string& text)
{
    const JSONValue delta = JSONValue::object({{"method", "item/agentMessage/delta"},
                                               {"params", JSONValue::object({{"threadId", threadID},
                                                                             {"turnId", "turn-1"},
                                                                             {"itemId", itemID},
                                                                             {"delta", text}})}});
    return JSONValue::object(
        {{"result", JSONValue::object({})},
         {"after", JSONValue::array({JSONValue::object(
                       {{"flood", JSONValue::object({{"count", count}, {"message", delta}})}})})}});
}

// Gives threadID's session entries more assistant entries of 400 characters.
inline void fillTranscript(CodexWorkspace& workspace, const QString& threadID, int entries)
{
    workspace.changeSession(threadID, [&](CodexSessionState& session) {
        for (int i = 0; i < entries; ++i)
            session.transcript.push_back(TranscriptEntry{QStringLiteral("held-%1").arg(i),
                                                         TranscriptKind::Assistant,
                                                         "Codex",
                                                         QString(400, 'x'),
                                                         std::nullopt,
                                                         std::nullopt,
                                                         {}});
    });
}

} // namespace nimbrel
