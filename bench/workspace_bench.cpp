// The cost of one periodic thread-list answer, paid every four seconds for as long as the program
// runs: 100 listed threads into a workspace that has seen 10,000 and holds 50 tabs. And the cost
// of one write to a session (the live stream makes one per flush), by the transcript's length.
#include "BenchSupport.h"
#include "platform/Scheduler.h"
#include "platform/UserDefaults.h"
#include "workspace/CodexWorkspace.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace nimbrel;

namespace {

JSONValue threadPage(int first, int count)
{
    std::vector<JSONValue> threads;
    for (int i = first; i < first + count; ++i)
        threads.push_back(JSONValue::object({{"id", "thr_" + std::to_string(i)},
                                             {"name", "Session number " + std::to_string(i)},
                                             {"preview", std::string(300, 'p')},
                                             {"cwd", "/home/dev/project-" + std::to_string(i % 40)},
                                             {"source", "cli"},
                                             {"status", JSONValue::object({{"type", "idle"}})},
                                             {"updatedAt", 1763800000 - i},
                                             {"model", "gpt-5-codex"}}));
    return JSONValue::object({{"data", JSONValue::array(std::move(threads))}});
}

void run(benchmark::State& state, UserDefaults& defaults)
{
    SystemScheduler scheduler;
    CodexWorkspace workspace(defaults, scheduler, "SarvaneBridgeOpenSessionTabs", 4, 20);
    for (int page = 0; page < 100; ++page)
        workspace.handleThreadList(threadPage(page * 100, 100));
    for (int i = 0; i < 50; ++i)
        workspace.openThread(QStringLiteral("thr_%1").arg(i));
    const JSONValue latest = threadPage(0, 100);
    for (auto _ : state)
        workspace.handleThreadList(latest);
    state.SetItemsProcessed(state.iterations());
}

void HandleThreadList_MemoryDefaults(benchmark::State& state)
{
    MemoryUserDefaults defaults;
    run(state, defaults);
}

void HandleThreadList_SettingsFile(benchmark::State& state)
{
    QTemporaryDir folder;
    SettingsUserDefaults defaults(folder.filePath("defaults.ini"));
    run(state, defaults);
}

// A workspace holding one session with entries transcript entries.
std::unique_ptr<CodexWorkspace> workspaceWithTranscript(Scheduler& scheduler,
                                                        UserDefaults& defaults, int entries)
{
    auto workspace = std::make_unique<CodexWorkspace>(defaults, scheduler,
                                                      "SarvaneBridgeOpenSessionTabs", 4, 20);
    fillTranscript(*workspace, "thr_1", entries);
    return workspace;
}

void SessionWrite(benchmark::State& state)
{
    SystemScheduler scheduler;
    MemoryUserDefaults defaults;
    auto workspace = workspaceWithTranscript(scheduler, defaults, static_cast<int>(state.range(0)));
    int tick = 0;
    for (auto _ : state)
        workspace->changeSession("thr_1", [&](CodexSessionState& session) {
            session.activityText = (++tick % 2) ? QStringLiteral("Writing the response…")
                                                : QStringLiteral("Codex is thinking…");
        });
}

} // namespace

BENCHMARK(SessionWrite)->Arg(10)->Arg(10000);
BENCHMARK(HandleThreadList_MemoryDefaults)->Unit(benchmark::kMicrosecond);
BENCHMARK(HandleThreadList_SettingsFile)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
