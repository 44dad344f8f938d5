#include "TranscriptPresentation.h"

#include "platform/TextFormatting.h"

#include <QVariantMap>

#include <algorithm>

namespace nimbrel {

TranscriptPage transcriptPage(qsizetype count, qint64 pageOffset)
{
    const qint64 offset = std::max<qint64>(pageOffset, 0);
    const qsizetype end = static_cast<qsizetype>(std::max<qint64>(count - offset, 0));
    return {std::max<qsizetype>(end - transcriptPageSize, 0), end};
}

bool showsEarlierOutput(qsizetype count, qint64 pageOffset, bool canLoadEarlier)
{
    return std::max<qint64>(pageOffset, 0) + transcriptPageSize < count || canLoadEarlier;
}

bool entryIsStreaming(const TranscriptEntry& entry, TurnControlState::Phase phase)
{
    if (phase == TurnControlState::Phase::Idle || !entry.status)
        return false;
    const QString& status = *entry.status;
    return status == QLatin1String("running") || status == QLatin1String("thinking") ||
           status == QLatin1String("inProgress") || status == QLatin1String("updating");
}

TranscriptCardStyle transcriptCardStyle(TranscriptKind kind)
{
    switch (kind) {
    case TranscriptKind::User:
        return {"avatar-default", "purple"};
    case TranscriptKind::Assistant:
        return {"starred", "cyan"};
    case TranscriptKind::Command:
        return {"utilities-terminal", "orange"};
    case TranscriptKind::FileChange:
        return {"accessories-text-editor", "green"};
    case TranscriptKind::Reasoning:
        return {"dialog-information", "indigo"};
    case TranscriptKind::System:
        break;
    }
    return {"edit-paste", "yellow"};
}

QString liveOutputNotice()
{
    return QStringLiteral("… showing latest live output …");
}

QString shortenedOutputNotice()
{
    return QStringLiteral("… output shortened to keep this conversation responsive …");
}

QVariantList transcriptImages(const TranscriptEntry& entry)
{
    static const QStringList drawn = {
        QStringLiteral("data:image/png;base64,"), QStringLiteral("data:image/jpeg;base64,"),
        QStringLiteral("data:image/gif;base64,"), QStringLiteral("data:image/webp;base64,")};
    QVariantList images;
    for (const QString& image : entry.images) {
        const bool draws = std::any_of(drawn.begin(), drawn.end(), [&](const QString& prefix) {
            return image.startsWith(prefix, Qt::CaseInsensitive);
        });
        images.append(QVariantMap{
            {QStringLiteral("source"), draws ? image : QString()},
            {QStringLiteral("label"), draws ? QString() : firstCharacters(image, 300)}});
    }
    return images;
}

bool rendersMarkdown(const TranscriptEntry& entry)
{
    return entry.kind == TranscriptKind::Assistant ||
           (entry.kind == TranscriptKind::System && entry.title == QLatin1String("Plan"));
}

TranscriptOutput transcriptOutput(const TranscriptEntry& entry, bool isStreaming,
                                  bool showsFullText)
{
    TranscriptOutput output;
    output.monospaced = entry.kind == TranscriptKind::Command;
    const QString text = entry.combinedText();
    if (text.isEmpty()) {
        if (entry.kind == TranscriptKind::Reasoning) {
            output.muted = true;
            output.text = isStreaming
                              ? QStringLiteral("Waiting for a thinking summary…")
                              : QStringLiteral("No summary text is available for this step.");
        }
        return output;
    }
    const int limit = isStreaming ? streamingOutputLimit : settledOutputLimit;
    const bool overLimit = hasMoreCharactersThan(text, limit);
    if (overLimit)
        output.toggleLabel = showsFullText ? QStringLiteral("Collapse output")
                                           : QStringLiteral("Show complete output");
    if (showsFullText || !overLimit)
        output.text = text;
    else if (isStreaming)
        output.text = liveOutputNotice() + QStringLiteral("\n\n") +
                      lastCharacters(text, streamingOutputLimit);
    else
        output.text = firstCharacters(text, settledOutputHead) + QStringLiteral("\n\n") +
                      shortenedOutputNotice() + QStringLiteral("\n\n") +
                      lastCharacters(text, settledOutputTail);
    return output;
}

QString activityUpdatesText(std::size_t count)
{
    return QString::number(count) + QStringLiteral(" updates");
}

bool activityGroupExpanded(std::optional<bool> override, bool expandedByDefault)
{
    return override.value_or(expandedByDefault);
}

QString expansionValue(bool expanded)
{
    return expanded ? QStringLiteral("Expanded") : QStringLiteral("Collapsed");
}

bool showsActivityStrip(const CodexSessionState& state)
{
    return state.turnControl.phase != TurnControlState::Phase::Idle;
}

QString activityStripText(const CodexSessionState& state)
{
    if (state.turnControl.phase == TurnControlState::Phase::Stopping)
        return QStringLiteral("Stopping Codex…");
    return state.activityText.value_or(QStringLiteral("Codex is working…"));
}

} // namespace nimbrel
