#pragma once

#include "ui/sessions/markdown/MarkdownBlocks.h"

#include <span>

namespace nimbrel {

// The blocks of a message that grows as Codex writes it. Blocks that can no longer change (those
// before a blank line that starts a new top-level block outside any code fence) are parsed once;
// each update parses only the part after the last such line. Text that does not extend the text
// before starts afresh.
class MarkdownDocument {
public:
    // A growing tail longer than this is not read as Markdown: its newest characters show as one
    // plain paragraph (what a live card shows of it) until a block after it begins.
    static constexpr qsizetype tailLimit = 20000;
    static constexpr qsizetype plainTailShown = 2000;

    void update(const QString& text);

    // Every block, oldest first; the settled ones, then those of the growing tail.
    std::size_t blockCount() const { return m_settled.size() + m_tail.size(); }
    const MarkdownBlock& block(std::size_t index) const;
    // The index of the first block whose part begins at or after offset (blockCount() if none).
    std::size_t firstBlockFrom(qsizetype offset) const;
    qsizetype textSize() const { return m_text.size(); }

private:
    void reset();
    // Reads the complete lines not yet read, moving m_cut to the last place it may cut.
    void scanLines(const QString& text);

    QString m_text;
    std::vector<MarkdownBlock> m_settled; // from the text before m_settledEnd
    qsizetype m_settledEnd = 0;
    std::vector<MarkdownBlock> m_tail;
    qsizetype m_scanned = 0; // complete lines before this are read
    qsizetype m_cut = 0;     // the last place a new top-level block begins after a blank line
    bool m_previousBlank = false;
    QChar m_fenceCharacter; // inside a fence: its character, else null
    qsizetype m_fenceLength = 0;
};

} // namespace nimbrel
