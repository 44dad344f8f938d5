// The time to build and lay out a page of 20 transcript cards offscreen: answers of 4,000
// characters each (shown whole, as Markdown), the same page when each answer holds a megabyte
// (shown a part at a time), and, for comparison, 4,000 characters of plain text each (the user's
// messages; answers showed so before they were Markdown).
#include "app/BridgeWindow.h"
#include "platform/Scheduler.h"
#include "platform/UserDefaults.h"
#include "ui/common/WindowPalette.h"
#include "ui/sessions/transcript/SessionActivityPreference.h"
#include "ui/sessions/transcript/TranscriptViewModel.h"
#include "workspace/CodexWorkspace.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickStyle>
#include <QQuickWindow>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

using namespace nimbrel;

namespace {

const QByteArray page = R"(
import QtQuick
import QtQuick.Controls
import "qrc:/NimbrelBridge/ui/sessions/transcript"
ApplicationWindow {
    id: window
    required property var view
    required property var palette_
    width: 900; height: 800
    Flickable {
        anchors.fill: parent
        contentHeight: rows.height
        TranscriptRows { id: rows; width: parent.width; view: window.view; palette_: window.palette_ }
    }
})";

// Milliseconds from making the view model to the first frame of the laid-out page.
double buildAndShow(CodexWorkspace& workspace, SessionActivityPreference& preference,
                    WindowPalette& palette)
{
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData(page, QUrl(QStringLiteral("qrc:/bench/Page.qml")));
    QElapsedTimer clock;
    clock.start();
    TranscriptViewModel view(workspace, preference, QStringLiteral("s"));
    std::unique_ptr<QObject> root(component.createWithInitialProperties(
        {{"view", QVariant::fromValue<QObject*>(&view)},
         {"palette_", QVariant::fromValue<QObject*>(&palette)}}));
    auto* window = qobject_cast<QQuickWindow*>(root.get());
    if (!window) {
        std::fprintf(stderr, "%s\n", qPrintable(component.errorString()));
        return -1;
    }
    bool shown = false;
    QObject::connect(window, &QQuickWindow::frameSwapped, [&] { shown = true; });
    window->show();
    while (!shown)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return static_cast<double>(clock.nsecsElapsed()) / 1e6;
}

double medianOf(CodexWorkspace& workspace, SessionActivityPreference& preference,
                WindowPalette& palette, int characters,
                TranscriptKind kind = TranscriptKind::Assistant)
{
    // Prose: words and spaces, as an agent writes.
    const QString words =
        QStringLiteral("The build passes after the header became a dependency of the library. ");
    const QString text = words.repeated(characters / words.size() + 1).left(characters);
    workspace.changeSession(QStringLiteral("s"), [&](CodexSessionState& session) {
        session.transcript.clear();
        for (int i = 0; i < 20; ++i)
            session.transcript.push_back({QStringLiteral("e%1").arg(i),
                                          kind,
                                          QStringLiteral("Codex"),
                                          QString::number(i) + text,
                                          std::nullopt,
                                          std::nullopt,
                                          {}});
    });
    std::vector<double> times;
    // NIMBREL_BENCH_RUNS: fewer runs, where one takes long.
    const int runs = std::max(1, qEnvironmentVariableIntValue("NIMBREL_BENCH_RUNS"));
    for (int run = 0; run < (qEnvironmentVariableIsSet("NIMBREL_BENCH_RUNS") ? runs : 7); ++run)
        times.push_back(buildAndShow(workspace, preference, palette));
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    QGuiApplication app(argc, argv);
    BridgeWindow::useIconTheme();
    MemoryUserDefaults defaults;
    SystemScheduler scheduler;
    CodexWorkspace workspace(defaults, scheduler, QStringLiteral("Tabs"), 4, 20);
    SessionActivityPreference preference(defaults);
    WindowPalette palette;
    std::printf(
        "A page of 20 cards, built and laid out to its first frame (median of runs, offscreen)\n");
    std::printf("  4,000 characters each:  %7.1f ms\n",
                medianOf(workspace, preference, palette, 4000));
    std::printf("  1 MB each (shortened):  %7.1f ms\n",
                medianOf(workspace, preference, palette, 1 << 20));
    std::printf("  4,000 plain each:       %7.1f ms\n",
                medianOf(workspace, preference, palette, 4000, TranscriptKind::User));
    return 0;
}
