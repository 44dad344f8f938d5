#include "TranscriptPaging.h"

#include "workspace/SessionParsers.h"

#include <unordered_map>
#include <unordered_set>

namespace nimbrel {

std::vector<TranscriptEntry> entriesFromPage(const JSONValue& result, TranscriptPageSource source)
{
    if (source == TranscriptPageSource::Items)
        return entriesFromItemsPage(result);
    const JSONValue* data = result.find("data");
    if (!data || !data->isArray())
        return {};
    // Turns arrive newest first.
    const std::span<const JSONValue> newestFirst = data->items();
    const std::vector<JSONValue> chronological(newestFirst.rbegin(), newestFirst.rend());
    return entriesFromTurns(chronological);
}

std::vector<TranscriptEntry> mergeTranscript(std::span<const TranscriptEntry> page,
                                             std::span<const TranscriptEntry> current)
{
    std::unordered_set<QString> pageIDs;
    for (const TranscriptEntry& entry : page)
        pageIDs.insert(entry.id);
    std::size_t overlap = 0;
    while (overlap < current.size() && !pageIDs.count(current[overlap].id))
        ++overlap;
    if (overlap == current.size())
        overlap = 0;

    std::vector<TranscriptEntry> merged(current.begin(),
                                        current.begin() + static_cast<std::ptrdiff_t>(overlap));
    merged.insert(merged.end(), page.begin(), page.end());
    std::unordered_map<QString, std::size_t> positions;
    for (std::size_t index = 0; index < merged.size(); ++index)
        positions[merged[index].id] = index;

    for (std::size_t index = overlap; index < current.size(); ++index) {
        const TranscriptEntry& held = current[index];
        const auto found = positions.find(held.id);
        if (found == positions.end()) {
            positions[held.id] = merged.size();
            merged.push_back(held);
            continue;
        }
        TranscriptEntry& engine = merged[found->second];
        static const QStringList finished{QStringLiteral("completed"), QStringLiteral("failed"),
                                          QStringLiteral("declined")};
        if (engine.status && finished.contains(*engine.status)) {
            engine.progressMessages = held.progressMessages;
        } else {
            // The engine's copy is unfinished: the live one knows more.
            TranscriptEntry live = held;
            if (live.text.isEmpty())
                live.text = engine.text;
            if (!live.phase)
                live.phase = engine.phase;
            engine = std::move(live);
        }
    }
    return merged;
}

std::size_t transcriptEntryBytes(const TranscriptEntry& entry)
{
    auto bytes = [](const QString& text) { return static_cast<std::size_t>(text.size()) * 2; };
    std::size_t total = sizeof(TranscriptEntry) + bytes(entry.id) + bytes(entry.title) +
                        bytes(entry.text) + bytes(entry.status.value_or(QString())) +
                        bytes(entry.phase.value_or(QString()));
    for (const QString& line : entry.progressMessages)
        total += bytes(line);
    for (const QString& image : entry.images)
        total += bytes(image);
    return total;
}

std::size_t entriesBeyondBound(std::span<const TranscriptEntry> transcript,
                               const TranscriptBound& bound, std::size_t shown)
{
    const std::size_t keptAnyway = std::max<std::size_t>(shown, 1);
    std::size_t kept = 0;
    std::size_t bytes = 0;
    for (auto entry = transcript.rbegin(); entry != transcript.rend(); ++entry) {
        bytes += transcriptEntryBytes(*entry);
        if (kept >= keptAnyway && (kept + 1 > bound.entries || bytes > bound.bytes))
            break;
        ++kept;
    }
    return transcript.size() - kept;
}

bool shouldFallBackToTurns(const QString& errorText)
{
    const QString text = errorText.toLower();
    auto holdsAny = [&](std::initializer_list<const char*> words) {
        return std::any_of(words.begin(), words.end(),
                           [&](const char* word) { return text.contains(QLatin1String(word)); });
    };
    return holdsAny({"method", "thread/items/list", "item pagination"}) &&
           holdsAny({"not found", "unsupported", "not supported", "not available", "unknown",
                     "unrecognized"});
}

bool isUnmaterializedThreadError(const QString& errorText)
{
    return errorText.contains(QLatin1String("is not materialized yet")) &&
           errorText.contains(
               QLatin1String("thread/turns/list is unavailable before first user message"));
}

} // namespace nimbrel
