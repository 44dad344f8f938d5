// JSON decode and encode of engine-like traffic, side by side with RapidJSON's DOM and
// nlohmann::json.
#include "EngineLikeDocuments.h"
#include "peer/JSONValue.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

using nimbrel::JSONValue;

namespace {

const std::string& largeDocument()
{
    static const std::string text = nimbrel::bench::turnsListResult(20u << 20);
    return text;
}

const std::vector<std::string>& smallDocuments()
{
    static const std::vector<std::string> lines = nimbrel::bench::deltaNotifications(100000);
    return lines;
}

std::size_t totalBytes(const std::vector<std::string>& lines)
{
    std::size_t bytes = 0;
    for (const auto& line : lines)
        bytes += line.size();
    return bytes;
}

// ---- decode

void DecodeLarge_Nimbrel(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(JSONValue::decode(largeDocument()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * largeDocument().size()));
}
void DecodeLarge_RapidJSON(benchmark::State& state)
{
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(largeDocument().data(), largeDocument().size());
        benchmark::DoNotOptimize(document.HasParseError());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * largeDocument().size()));
}
void DecodeLarge_Nlohmann(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(nlohmann::json::parse(largeDocument()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * largeDocument().size()));
}

void DecodeSmall_Nimbrel(benchmark::State& state)
{
    for (auto _ : state)
        for (const auto& line : smallDocuments())
            benchmark::DoNotOptimize(JSONValue::decode(line));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * smallDocuments().size()));
    state.SetBytesProcessed(
        static_cast<int64_t>(state.iterations() * totalBytes(smallDocuments())));
}
void DecodeSmall_RapidJSON(benchmark::State& state)
{
    for (auto _ : state)
        for (const auto& line : smallDocuments()) {
            rapidjson::Document document;
            document.Parse(line.data(), line.size());
            benchmark::DoNotOptimize(document.HasParseError());
        }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * smallDocuments().size()));
    state.SetBytesProcessed(
        static_cast<int64_t>(state.iterations() * totalBytes(smallDocuments())));
}
void DecodeSmall_Nlohmann(benchmark::State& state)
{
    for (auto _ : state)
        for (const auto& line : smallDocuments())
            benchmark::DoNotOptimize(nlohmann::json::parse(line));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * smallDocuments().size()));
    state.SetBytesProcessed(
        static_cast<int64_t>(state.iterations() * totalBytes(smallDocuments())));
}

// ---- encode

void EncodeLarge_Nimbrel(benchmark::State& state)
{
    const JSONValue value = JSONValue::decode(largeDocument()).value();
    for (auto _ : state)
        benchmark::DoNotOptimize(value.encode());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * largeDocument().size()));
}
void EncodeLarge_RapidJSON(benchmark::State& state)
{
    rapidjson::Document document;
    document.Parse(largeDocument().data(), largeDocument().size());
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        document.Accept(writer);
        benchmark::DoNotOptimize(buffer.GetString());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * largeDocument().size()));
}
void EncodeLarge_Nlohmann(benchmark::State& state)
{
    const auto document = nlohmann::json::parse(largeDocument());
    for (auto _ : state)
        benchmark::DoNotOptimize(document.dump());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * largeDocument().size()));
}

void EncodeSmall_Nimbrel(benchmark::State& state)
{
    std::vector<JSONValue> values;
    for (const auto& line : smallDocuments())
        values.push_back(JSONValue::decode(line).value());
    for (auto _ : state)
        for (const auto& value : values)
            benchmark::DoNotOptimize(value.encode());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values.size()));
}
void EncodeSmall_RapidJSON(benchmark::State& state)
{
    std::vector<rapidjson::Document> documents(smallDocuments().size());
    for (std::size_t i = 0; i < documents.size(); ++i)
        documents[i].Parse(smallDocuments()[i].data(), smallDocuments()[i].size());
    for (auto _ : state)
        for (const auto& document : documents) {
            rapidjson::StringBuffer buffer;
            rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
            document.Accept(writer);
            benchmark::DoNotOptimize(std::string(buffer.GetString(), buffer.GetSize()));
        }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * documents.size()));
}
void EncodeSmall_Nlohmann(benchmark::State& state)
{
    std::vector<nlohmann::json> documents;
    for (const auto& line : smallDocuments())
        documents.push_back(nlohmann::json::parse(line));
    for (auto _ : state)
        for (const auto& document : documents)
            benchmark::DoNotOptimize(document.dump());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * documents.size()));
}

} // namespace

BENCHMARK(DecodeLarge_Nimbrel)->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeLarge_RapidJSON)->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeLarge_Nlohmann)->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeSmall_Nimbrel)->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeSmall_RapidJSON)->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeSmall_Nlohmann)->Unit(benchmark::kMillisecond);
BENCHMARK(EncodeLarge_Nimbrel)->Unit(benchmark::kMillisecond);
BENCHMARK(EncodeLarge_RapidJSON)->Unit(benchmark::kMillisecond);
BENCHMARK(EncodeLarge_Nlohmann)->Unit(benchmark::kMillisecond);
BENCHMARK(EncodeSmall_Nimbrel)->Unit(benchmark::kMillisecond);
BENCHMARK(EncodeSmall_RapidJSON)->Unit(benchmark::kMillisecond);
BENCHMARK(EncodeSmall_Nlohmann)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
