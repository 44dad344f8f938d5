// The Sessions page as a user feels it, offscreen: the time from a history of 10,000 entries
// arriving to the frame that shows its newest page; then, during a flood of 100,000 deltas into the
// open session, the longest stall of the main thread (the worst lateness of a 1 ms timer) and the
// resident memory.
#include "app/BridgeWindow.h"
#include "platform/Scheduler.h"
#include "platform/UserDefaults.h"
#include "ui/common/WindowPalette.h"
#include "ui/sessions/BridgeWorkspaceViewModel.h"
#include "workspace/CodexWorkspace.h"

#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

using namespace nimbrel;

namespace {

const QByteArray pageQml = R"(
import QtQuick
import QtQuick.Controls
import "qrc:/NimbrelBridge/ui/sessions"
ApplicationWindow {
    id: window
    required property var view
    required property var workspace
    required property var palette_
    width: 1100; height: 760
    BridgeWorkspaceView { anchors.fill: parent; view: window.view; workspace: window.workspace; palette_: window.palette_ }
})";

double memoryMiB(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith(field))
            return line.simplified().split(' ').value(1).toDouble() / 1024;
    return -1;
}

JSONValue history(int entries)
{
    std::vector<JSONValue> items;
    items.reserve(static_cast<std::size_t>(entries));
    for (int number = entries; number >= 1; --number) {
        const std::string text = "Step " + std::to_string(number) +
                                 ": the build passes after the header became a dependency.";
        items.push_back(JSONValue::object(
            {{"item",
              number % 2
                  ? JSONValue::object({{"type", "agentMessage"},
                                       {"id", "item-" + std::to_string(number)},
                                       {"text", text}})
                  : JSONValue::object({{"type", "userMessage"},
                                       {"id", "item-" + std::to_string(number)},
                                       {"content", JSONValue::array({JSONValue::object(
                                                       {{"type", "text"}, {"text", text}})})}})}}));
    }
    return JSONValue::object(
        {{"data", JSONValue::array(std::move(items))}, {"nextCursor", JSONValue()}});
}

void waitForFrame(QQuickWindow* window)
{
    bool swapped = false;
    const QMetaObject::Connection connection =
        QObject::connect(window, &QQuickWindow::frameSwapped, [&] { swapped = true; });
    window->requestUpdate();
    while (!swapped)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    QObject::disconnect(connection);
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
    AppServerClient::RequestCompletion historyArrives;
    workspace.requester = [&](const QString& method, const JSONValue&,
                              AppServerClient::RequestCompletion completion) {
        if (method == QLatin1String("thread/items/list"))
            historyArrives = std::move(completion);
    };
    workspace.setEngineReady(true, {});
    BridgeWorkspaceViewModel page(workspace, scheduler, defaults);
    WindowPalette palette;

    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData(pageQml, QUrl(QStringLiteral("qrc:/bench/Sessions.qml")));
    std::unique_ptr<QObject> root(component.createWithInitialProperties(
        {{"view", QVariant::fromValue<QObject*>(&page)},
         {"workspace", QVariant::fromValue<QObject*>(&workspace)},
         {"palette_", QVariant::fromValue<QObject*>(&palette)}}));
    auto* window = qobject_cast<QQuickWindow*>(root.get());
    if (!window) {
        std::fprintf(stderr, "%s\n", qPrintable(component.errorString()));
        return 1;
    }
    window->show();
    waitForFrame(window);
    const double idleMiB = memoryMiB("VmRSS:");

    const QString id = QStringLiteral("thr_big");
    workspace.rememberThread({id,
                              QStringLiteral("A long session"),
                              {},
                              QStringLiteral("/srv/app"),
                              QStringLiteral("cli"),
                              QStringLiteral("idle"),
                              0,
                              {},
                              {}});
    workspace.openThread(id);
    waitForFrame(window);
    const JSONValue tenThousand = history(10000);
    QElapsedTimer clock;
    clock.start();
    historyArrives(tenThousand);
    waitForFrame(window);
    const double openMs = static_cast<double>(clock.nsecsElapsed()) / 1e6;
    const int shown = page.sessionView()->transcriptView()->rows()->rowCount();

    // The flood: a running turn, then 100,000 deltas in batches of 500 as the pipe delivers them.
    workspace.handleNotification(
        QStringLiteral("turn/started"),
        JSONValue::object(
            {{"threadId", "thr_big"}, {"turn", JSONValue::object({{"id", "turn-1"}})}}));
    workspace.handleNotification(
        QStringLiteral("item/started"),
        JSONValue::object(
            {{"threadId", "thr_big"},
             {"turnId", "turn-1"},
             {"item",
              JSONValue::object({{"type", "agentMessage"}, {"id", "reply"}, {"text", ""}})}}));
    const JSONValue delta = JSONValue::object(
        {{"threadId", "thr_big"}, {"turnId", "turn-1"}, {"itemId", "reply"}, {"delta", "word "}});
    double worstLateMs = 0;
    QElapsedTimer sinceTick;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setInterval(1);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        worstLateMs =
            std::max(worstLateMs, static_cast<double>(sinceTick.nsecsElapsed()) / 1e6 - 1);
        sinceTick.restart();
    });
    int frames = 0;
    QObject::connect(window, &QQuickWindow::frameSwapped, [&] { ++frames; });
    sinceTick.start();
    ticker.start();
    clock.restart();
    int sent = 0;
    QTimer feeder;
    QObject::connect(&feeder, &QTimer::timeout, [&] {
        for (int i = 0; i < 500 && sent < 100000; ++i, ++sent)
            workspace.handleNotification(QStringLiteral("item/agentMessage/delta"), delta);
    });
    feeder.start(0);
    while (sent < 100000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    feeder.stop();
    // The last deltas reach the transcript on the next flush.
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 500)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    ticker.stop();
    const double floodMs = static_cast<double>(clock.nsecsElapsed()) / 1e6;

    std::printf("The Sessions page, offscreen\n");
    std::printf("  10,000 entries: history arrived to newest page shown  %7.1f ms (%d rows)\n",
                openMs, shown);
    std::printf("  100,000 deltas into the open session: %7.0f ms, %d frames drawn\n", floodMs,
                frames);
    std::printf("    longest main-thread stall                          %7.1f ms\n", worstLateMs);
    std::printf("  resident memory: idle %.0f MiB, after the flood %.0f MiB, peak %.0f MiB\n",
                idleMiB, memoryMiB("VmRSS:"), memoryMiB("VmHWM:"));
    return 0;
}
