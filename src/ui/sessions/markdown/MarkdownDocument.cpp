#include "MarkdownDocument.h"

#include <algorithm>

namespace nimbrel {

namespace {

qsizetype indentation(QStringView line)
{
    qsizetype count = 0;
    while (count < line.size() && line[count] == QLatin1Char(' '))
        ++count;
    return count;
}

// The fence a line opens or closes: its character and length, else nothing.
std::pair<QChar, qsizetype> fenceOf(QStringView line)
{
    const qsizetype start = indentation(line);
    if (start > 3 || start >= line.size())
        return {};
    const QChar character = line[start];
    if (character != QLatin1Char('`') && character != QLatin1Char('~'))
        return {};
    qsizetype end = start;
    while (end < line.size() && line[end] == character)
        ++end;
    if (end - start < 3)
        return {};
    return {character, end - start};
}

bool isBlank(QStringView line)
{
    return line.trimmed().isEmpty();
}

// A line that may continue the list or quote before a blank line rather than begin a new block.
bool mayContinue(QStringView line)
{
    if (line.isEmpty() || line[0].isSpace())
        return true;
    const QChar first = line[0];
    if ((first == QLatin1Char('-') || first == QLatin1Char('*') || first == QLatin1Char('+')) &&
        (line.size() == 1 || line[1] == QLatin1Char(' ')))
        return true;
    qsizetype digits = 0;
    while (digits < line.size() && digits < 10 && line[digits].isDigit())
        ++digits;
    if (digits > 0 && digits < line.size() &&
        (line[digits] == QLatin1Char('.') || line[digits] == QLatin1Char(')')))
        return true;
    // A link definition may be used by the blocks before it.
    return first == QLatin1Char('[');
}

} // namespace

void MarkdownDocument::reset()
{
    *this = MarkdownDocument();
}

const MarkdownBlock& MarkdownDocument::block(std::size_t index) const
{
    return index < m_settled.size() ? m_settled[index] : m_tail[index - m_settled.size()];
}

std::size_t MarkdownDocument::firstBlockFrom(qsizetype offset) const
{
    const auto before = [](const MarkdownBlock& block, qsizetype value) {
        return block.sourceStart < value;
    };
    const auto settled = std::lower_bound(m_settled.begin(), m_settled.end(), offset, before);
    if (settled != m_settled.end())
        return static_cast<std::size_t>(settled - m_settled.begin());
    const auto tail = std::lower_bound(m_tail.begin(), m_tail.end(), offset, before);
    return m_settled.size() + static_cast<std::size_t>(tail - m_tail.begin());
}

void MarkdownDocument::scanLines(const QString& text)
{
    while (true) {
        const qsizetype end = text.indexOf(QLatin1Char('\n'), m_scanned);
        if (end < 0)
            return;
        const QStringView line = QStringView(text).sliced(m_scanned, end - m_scanned);
        const auto [character, length] = fenceOf(line);
        if (!m_fenceCharacter.isNull()) {
            if (character == m_fenceCharacter && length >= m_fenceLength &&
                isBlank(line.sliced(indentation(line) + length)))
                m_fenceCharacter = QChar();
        } else {
            if (m_previousBlank && !isBlank(line) && !mayContinue(line))
                m_cut = m_scanned;
            if (!character.isNull() &&
                !(character == QLatin1Char('`') &&
                  line.sliced(indentation(line) + length).contains(QLatin1Char('`')))) {
                m_fenceCharacter = character;
                m_fenceLength = length;
            }
        }
        m_previousBlank = m_fenceCharacter.isNull() && isBlank(line);
        m_scanned = end + 1;
    }
}

void MarkdownDocument::update(const QString& text)
{
    if (!text.startsWith(m_text))
        reset();
    m_text = text;
    scanLines(text);
    if (m_cut > m_settledEnd) {
        std::vector<MarkdownBlock> settled = parseMarkdown(
            QStringView(text).sliced(m_settledEnd, m_cut - m_settledEnd), m_settledEnd);
        std::move(settled.begin(), settled.end(), std::back_inserter(m_settled));
        m_settledEnd = m_cut;
    }
    if (text.size() - m_settledEnd <= tailLimit) {
        m_tail = parseMarkdown(QStringView(text).sliced(m_settledEnd), m_settledEnd);
        return;
    }
    qsizetype start = text.size() - plainTailShown;
    if (text[start].isLowSurrogate())
        ++start;
    MarkdownBlock plain;
    plain.spans = {MarkdownSpan{text.sliced(start), false, false, false, false, {}, false}};
    plain.sourceStart = start;
    m_tail = {plain};
}

} // namespace nimbrel
