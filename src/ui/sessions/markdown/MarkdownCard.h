#pragma once

#include "ui/common/RecordListModel.h"
#include "ui/sessions/markdown/MarkdownDocument.h"

namespace nimbrel {

// Which blocks of a message are on screen: all of a short one; of a long one while it streams,
// those of its newest characters after a notice; of a long settled one, its first and last blocks
// around a notice, unless the user unfolded it.
struct MarkdownSlice {
    std::size_t headEnd = 0;   // blocks [0, headEnd)
    QString notice;            // shown after them where not empty
    std::size_t tailStart = 0; // then blocks [tailStart, count)
    friend bool operator==(const MarkdownSlice&, const MarkdownSlice&) = default;
};
MarkdownSlice markdownSlice(const MarkdownDocument& document, bool isStreaming, bool showsFullText);

// A settled message shows at most about this many characters of Markdown at a time: its parts.
// Laying out text costs the window in proportion to its length, so a part costs about what a
// card of shortened output costs (4,000 characters and a notice).
inline constexpr qsizetype markdownPartBudget = 6000;

// Where the parts of text begin, the first at 0: each part holds at most budget characters, cut
// after the last blank line outside a code fence, else after its last line break, else after its
// last space, else at budget (never inside a character). Reads each character about once.
std::vector<qsizetype> markdownParts(QStringView text, qsizetype budget = markdownPartBudget);

// Spans as the view reads them: a list of maps with text, strong, emphasis, code, struck, link and
// address. A table block's cells come row after row, each a map of spans and header.
QVariantList spanValues(const MarkdownSpans& spans);

// The blocks one message card shows, kept while the card is on the page. Rows are keyed by block,
// so a delta changes only the block that grew. While the message streams, its newest blocks show
// (read incrementally); once it settles, one part of it (part, counted from 0), read alone.
class MarkdownCard {
public:
    static const QList<QByteArray> roles;

    void show(const QString& text, bool isStreaming, bool showsFullText, int part = 0);
    RecordListModel* blocks() { return &m_blocks; }
    // The parts of the settled message last shown (1 while it streams), and where each begins.
    int partCount() const { return static_cast<int>(m_parts.size()); }
    qsizetype partStart(int part) const;
    qsizetype textSize() const { return m_textSize; }

private:
    MarkdownDocument m_document;
    RecordListModel m_blocks{roles};
    QString m_partsOf; // the text m_parts were found for
    std::vector<qsizetype> m_parts{0};
    qsizetype m_textSize = 0;
};

} // namespace nimbrel
