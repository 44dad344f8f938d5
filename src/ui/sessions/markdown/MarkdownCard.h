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

// Spans as the view reads them: a list of maps with text, strong, emphasis, code, struck, link and
// address. A table block's cells come row after row, each a map of spans and header.
QVariantList spanValues(const MarkdownSpans& spans);

// The blocks one message card shows, kept while the card is on the page. Rows are keyed by block,
// so a delta changes only the block that grew.
class MarkdownCard {
public:
    static const QList<QByteArray> roles;

    void show(const QString& text, bool isStreaming, bool showsFullText);
    RecordListModel* blocks() { return &m_blocks; }

private:
    MarkdownDocument m_document;
    RecordListModel m_blocks{roles};
};

} // namespace nimbrel
