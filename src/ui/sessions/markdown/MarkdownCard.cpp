#include "MarkdownCard.h"

#include "ui/sessions/transcript/TranscriptPresentation.h"

#include <QVariantMap>

namespace nimbrel {

namespace {

// Deeper lists and quotes are drawn at this depth, so that nesting cannot push text out of sight.
constexpr int maximumDepth = 6;

QString blockType(MarkdownBlockKind kind)
{
    switch (kind) {
    case MarkdownBlockKind::Heading:
        return QStringLiteral("heading");
    case MarkdownBlockKind::Code:
        return QStringLiteral("code");
    case MarkdownBlockKind::Table:
        return QStringLiteral("table");
    case MarkdownBlockKind::Rule:
        return QStringLiteral("rule");
    case MarkdownBlockKind::Paragraph:
        break;
    }
    return QStringLiteral("paragraph");
}

ListRecord blockRow(std::size_t index, const MarkdownBlock& block)
{
    // A table's cells row by row, each row as wide as the widest.
    int columns = 0;
    for (const auto& row : block.rows)
        columns = std::max(columns, static_cast<int>(row.size()));
    QVariantList cells;
    for (std::size_t row = 0; row < block.rows.size(); ++row)
        for (int column = 0; column < columns; ++column) {
            const auto& cellsOfRow = block.rows[row];
            const MarkdownSpans spans = static_cast<std::size_t>(column) < cellsOfRow.size()
                                            ? cellsOfRow[static_cast<std::size_t>(column)]
                                            : MarkdownSpans();
            cells.append(QVariantMap{{QStringLiteral("spans"), spanValues(spans)},
                                     {QStringLiteral("header"), row == 0}});
        }
    return {QStringLiteral("block:") + QString::number(index),
            {blockType(block.kind), block.headingLevel, std::min(block.listDepth, maximumDepth),
             block.marker, std::min(block.quoteDepth, maximumDepth), spanValues(block.spans),
             block.code, block.language, cells, columns, plainText(block.spans)}};
}

ListRecord noticeRow(const QString& notice)
{
    return {QStringLiteral("notice"),
            {QStringLiteral("notice"), 0, 0, QString(), 0, QVariantList(), QString(), QString(),
             QVariantList(), 0, notice}};
}

} // namespace

const QList<QByteArray> MarkdownCard::roles = {
    "blockType", "headingLevel", "listDepth", "marker",  "quoteDepth", "spans",
    "code",      "language",     "cells",     "columns", "plainText"};

MarkdownSlice markdownSlice(const MarkdownDocument& document, bool isStreaming, bool showsFullText)
{
    const std::size_t count = document.blockCount();
    const qsizetype size = document.textSize();
    const int limit = isStreaming ? streamingOutputLimit : settledOutputLimit;
    if (showsFullText || size <= limit)
        return {count, QString(), count};
    // The block that holds a cut shows whole: the cut moves back to its start.
    const auto blockAt = [&](qsizetype offset) {
        const std::size_t after = document.firstBlockFrom(offset);
        return after > 0 && (after == count || document.block(after).sourceStart > offset)
                   ? after - 1
                   : after;
    };
    if (isStreaming)
        return {0, liveOutputNotice(), blockAt(size - streamingOutputLimit)};
    const std::size_t headEnd =
        std::max<std::size_t>(document.firstBlockFrom(settledOutputHead), 1);
    return {headEnd, shortenedOutputNotice(), std::max(headEnd, blockAt(size - settledOutputTail))};
}

QVariantList spanValues(const MarkdownSpans& spans)
{
    QVariantList values;
    for (const MarkdownSpan& span : spans)
        values.append(QVariantMap{{QStringLiteral("text"), span.text},
                                  {QStringLiteral("strong"), span.strong},
                                  {QStringLiteral("emphasis"), span.emphasis},
                                  {QStringLiteral("code"), span.code},
                                  {QStringLiteral("struck"), span.struck},
                                  {QStringLiteral("link"), span.link},
                                  {QStringLiteral("address"), span.address}});
    return values;
}

void MarkdownCard::show(const QString& text, bool isStreaming, bool showsFullText)
{
    m_document.update(text);
    const MarkdownSlice slice = markdownSlice(m_document, isStreaming, showsFullText);
    QList<ListRecord> rows;
    for (std::size_t index = 0; index < slice.headEnd; ++index)
        rows.append(blockRow(index, m_document.block(index)));
    if (!slice.notice.isEmpty())
        rows.append(noticeRow(slice.notice));
    for (std::size_t index = slice.tailStart; index < m_document.blockCount(); ++index)
        rows.append(blockRow(index, m_document.block(index)));
    m_blocks.setRecords(rows);
}

} // namespace nimbrel
