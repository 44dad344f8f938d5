#include "MarkdownCard.h"

#include "ui/sessions/transcript/TranscriptPresentation.h"

#include <QVariantMap>

#include <algorithm>

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

namespace {

// The fence a line opens or closes, as its run of backticks or tildes; empty if none.
QStringView fenceOf(QStringView line)
{
    qsizetype start = 0;
    while (start < line.size() && start < 4 && line[start] == QLatin1Char(' '))
        ++start;
    if (start > 3 || start >= line.size() ||
        (line[start] != QLatin1Char('`') && line[start] != QLatin1Char('~')))
        return {};
    qsizetype end = start;
    while (end < line.size() && line[end] == line[start])
        ++end;
    return end - start >= 3 ? line.sliced(start, end - start) : QStringView();
}

} // namespace

std::vector<qsizetype> markdownParts(QStringView text, qsizetype budget)
{
    std::vector<qsizetype> starts{0};
    qsizetype start = 0;
    QStringView fence; // the open fence, if any
    while (text.size() - start > budget) {
        const qsizetype limit = start + budget;
        // Only the part's own characters are searched.
        const QStringView part = text.sliced(start, budget);
        qsizetype blankCut = 0;
        qsizetype lineCut = 0;
        QStringView lineFence = fence;
        for (qsizetype at = start; at < limit;) {
            const qsizetype found = part.indexOf(QLatin1Char('\n'), at - start);
            if (found < 0)
                break;
            const qsizetype end = start + found;
            const QStringView line = text.sliced(at, end - at);
            const QStringView marker = fenceOf(line);
            const qsizetype after =
                marker.isEmpty() ? 0 : marker.data() - line.data() + marker.size();
            if (!fence.isEmpty()) {
                if (!marker.isEmpty() && marker[0] == fence[0] && marker.size() >= fence.size() &&
                    line.sliced(after).trimmed().isEmpty())
                    fence = {};
            } else if (!marker.isEmpty() && !(marker[0] == QLatin1Char('`') &&
                                              line.sliced(after).contains(QLatin1Char('`')))) {
                fence = marker;
            }
            at = end + 1;
            if (fence.isEmpty() && line.trimmed().isEmpty())
                blankCut = at;
            lineCut = at;
            lineFence = fence;
        }
        qsizetype cut = blankCut ? blankCut : lineCut;
        if (blankCut)
            fence = {};
        else if (lineCut)
            fence = lineFence;
        if (!cut) {
            qsizetype space = part.size() - 1;
            while (space > 0 && part[space] != QLatin1Char(' '))
                --space;
            cut = space > 0 ? start + space + 1 : limit;
            if (text[cut - 1].isHighSurrogate())
                --cut;
        }
        starts.push_back(cut);
        start = cut;
    }
    return starts;
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

qsizetype MarkdownCard::partStart(int part) const
{
    return part >= 0 && part < partCount() ? m_parts[static_cast<std::size_t>(part)] : m_textSize;
}

void MarkdownCard::show(const QString& text, bool isStreaming, bool showsFullText, int part)
{
    m_textSize = text.size();
    MarkdownSlice slice;
    if (isStreaming) {
        m_partsOf.clear();
        m_parts = {0};
        m_document.update(text);
        slice = markdownSlice(m_document, true, showsFullText);
    } else {
        if (m_partsOf.isEmpty() || m_partsOf != text) {
            m_parts = markdownParts(text);
            m_partsOf = text;
        }
        part = std::clamp(part, 0, partCount() - 1);
        m_document.update(text.sliced(partStart(part), partStart(part + 1) - partStart(part)));
        slice = markdownSlice(m_document, false, true);
    }
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
