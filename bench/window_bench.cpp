// What the window costs a user: the time from starting the program to its first frame, and its
// resident memory when idle, against the same program headless. Runs the built program over the
// fake engine in a temporary home; offscreen stands in for the display.
#include "BenchSupport.h"

#include <QProcess>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace nimbrel;

namespace {

struct Run {
    double firstFrameMs = -1;
    double engineReadyMs = -1;
    double residentMiB = -1;
};

double residentMiB(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.simplified().split(' ').value(1).toDouble() / 1024;
    return -1;
}

Run start(const QTemporaryDir& home, bool windowed)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HOME", home.path());
    environment.insert("XDG_CONFIG_HOME", home.filePath("config"));
    environment.insert("PATH", home.filePath("bin") + ":/usr/bin:/bin");
    environment.insert("NIMBREL_LINK_ADDRESS", "127.0.0.1");
    environment.insert("NIMBREL_LINK_PORT", "0");
    environment.insert("NIMBREL_REPORT_FIRST_FRAME", "1");
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    environment.remove("DISPLAY");
    environment.remove("WAYLAND_DISPLAY");
    if (windowed)
        environment.insert("WAYLAND_DISPLAY", "bench");
    QProcess program;
    program.setProcessEnvironment(environment);
    QString errors;
    Run run;
    QElapsedTimer clock;
    QObject::connect(&program, &QProcess::readyReadStandardError, [&] {
        errors += QString::fromUtf8(program.readAllStandardError());
        if (run.firstFrameMs < 0 && errors.contains("First frame shown"))
            run.firstFrameMs = static_cast<double>(clock.nsecsElapsed()) / 1e6;
        if (run.engineReadyMs < 0 && errors.contains("Codex app-server ready"))
            run.engineReadyMs = static_cast<double>(clock.nsecsElapsed()) / 1e6;
    });
    clock.start();
    program.start(qEnvironmentVariable("NIMBREL_BENCH_BRIDGE", QStringLiteral(NIMBREL_BRIDGE_PATH)),
                  windowed ? QStringList{} : QStringList{"--headless"});
    pump([&] { return run.engineReadyMs >= 0 && (!windowed || run.firstFrameMs >= 0); }, 30000);
    // Idle: nothing asks anything for three seconds.
    QElapsedTimer idle;
    idle.start();
    pump([&] { return idle.elapsed() > 3000; });
    run.residentMiB = residentMiB(program.processId());
    program.terminate();
    program.waitForFinished(5000);
    return run;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("FAKE_CODEX_SCENARIO",
            installFakeCodex(home, FAKE_CODEX_PATH, JSONValue::object({})).toUtf8());
    constexpr int runs = 5;
    std::vector<double> frame, readyWindowed, readyHeadless, memoryWindowed, memoryHeadless;
    for (int i = 0; i < runs; ++i) {
        const Run windowed = start(home, true);
        const Run headless = start(home, false);
        frame.push_back(windowed.firstFrameMs);
        readyWindowed.push_back(windowed.engineReadyMs);
        readyHeadless.push_back(headless.engineReadyMs);
        memoryWindowed.push_back(windowed.residentMiB);
        memoryHeadless.push_back(headless.residentMiB);
    }
    std::printf("Window against headless, median of %d starts (offscreen, fake engine)\n", runs);
    std::printf("  start to first frame:            %7.1f ms\n", median(frame));
    std::printf("  start to engine ready, window:   %7.1f ms\n", median(readyWindowed));
    std::printf("  start to engine ready, headless: %7.1f ms\n", median(readyHeadless));
    std::printf("  resident when idle, window:      %7.1f MiB\n", median(memoryWindowed));
    std::printf("  resident when idle, headless:    %7.1f MiB\n", median(memoryHeadless));
    std::printf("  window / headless memory:        %7.2f x\n",
                median(memoryWindowed) / median(memoryHeadless));
    return 0;
}
