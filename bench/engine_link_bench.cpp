// Notifications per second from the fake engine to the owner's thread, against a baseline that
// only reads the pipe and splits lines.
#include "engine/AppServerClient.h"
#include "engine/AppServerLineBuffer.h"
#include "peer/JSONValue.h"
#include "platform/Scheduler.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

using namespace nimbrel;

namespace {

constexpr int notificationCount = 200000;

JSONValue floodAction()
{
    const JSONValue delta = JSONValue::object({
        {"method", "item/agentMessage/delta"},
        {"params", JSONValue::object({{"threadId", "thr_0193a1b2c3d4e5f6"},
                                      {"turnId", "turn-42"},
                                      {"itemId", "item-a42"},
                                      {"delta", "the build passes over the tests "}})},
    });
    return JSONValue::array({JSONValue::object(
        {{"flood", JSONValue::object({{"count", notificationCount}, {"message", delta}})}})});
}

void writeScenario(const QString& path, const JSONValue& scenario)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(QByteArray::fromStdString(*scenario.encode()));
}

double baselineRate(const QString& scenarioPath)
{
    writeScenario(scenarioPath, JSONValue::object({{"onStart", floodAction()}}));
    QProcess process;
    AppServerLineBuffer buffer;
    int lines = 0;
    QElapsedTimer timer;
    QObject::connect(&process, &QProcess::readyReadStandardOutput, [&] {
        const QByteArray bytes = process.readAllStandardOutput();
        lines += static_cast<int>(
            buffer.append(std::string_view(bytes.constData(), bytes.size())).size());
        if (lines >= notificationCount)
            QCoreApplication::exit(0);
    });
    timer.start();
    process.start(QStringLiteral(FAKE_CODEX_PATH), {QStringLiteral("app-server")});
    QCoreApplication::exec();
    const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    process.kill();
    process.waitForFinished();
    return lines / seconds;
}

double clientRate(const QString& scenarioPath)
{
    writeScenario(scenarioPath,
                  JSONValue::object(
                      {{"notifications", JSONValue::object({{"initialized", floodAction()}})}}));
    SystemScheduler scheduler;
    AppServerClient client(scheduler);
    int received = 0;
    QElapsedTimer timer;
    client.onStatus = [&](const QString&, bool ready) {
        if (ready)
            timer.start();
    };
    client.onNotification = [&](const QString&, const JSONValue&) {
        if (++received == notificationCount)
            QCoreApplication::exit(0);
    };
    client.start(QStringLiteral(FAKE_CODEX_PATH));
    QCoreApplication::exec();
    return received / (static_cast<double>(timer.nsecsElapsed()) / 1e9);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir folder;
    const QString scenarioPath = folder.filePath(QStringLiteral("scenario.json"));
    qputenv("FAKE_CODEX_SCENARIO", scenarioPath.toUtf8());
    for (int round = 1; round <= 3; ++round) {
        const double baseline = baselineRate(scenarioPath);
        const double client = clientRate(scenarioPath);
        std::printf("round %d: baseline (read + split) %.0f lines/s; client to owner's thread %.0f "
                    "notifications/s; "
                    "ratio %.2f\n",
                    round, baseline, client, client / baseline);
    }
    return 0;
}
