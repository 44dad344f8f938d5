// Transcript parsing and grouping on engine-sized inputs; time per entry is the figure to read.
#include "EngineLikeDocuments.h"
#include "workspace/SessionParsers.h"

#include <benchmark/benchmark.h>

using namespace nimbrel;

namespace {

const JSONValue& turnsPage()
{
    static const JSONValue page = JSONValue::decode(bench::turnsListResult(20u << 20)).value();
    return page;
}

void EntriesFromTurns_20MB(benchmark::State& state)
{
    const auto turns = turnsPage().find("data")->items();
    std::size_t entries = 0;
    for (auto _ : state) {
        auto parsed = entriesFromTurns(turns);
        entries = parsed.size();
        benchmark::DoNotOptimize(parsed);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * entries));
    state.counters["entries"] = static_cast<double>(entries);
}

void GroupTranscriptBlocks_100k(benchmark::State& state)
{
    std::vector<TranscriptEntry> entries;
    const auto turns = turnsPage().find("data")->items();
    const auto parsed = entriesFromTurns(turns);
    while (entries.size() < 100000)
        for (const auto& entry : parsed) {
            if (entries.size() == 100000)
                break;
            entries.push_back(entry);
        }
    for (auto _ : state)
        benchmark::DoNotOptimize(groupTranscriptBlocks(entries));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * entries.size()));
}

} // namespace

BENCHMARK(EntriesFromTurns_20MB)->Unit(benchmark::kMillisecond);
BENCHMARK(GroupTranscriptBlocks_100k)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
