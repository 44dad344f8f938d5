#pragma once

#include <QString>
#include <QStringView>

#include <vector>

namespace nimbrel {

// Markdown as the window lays it out: a flat list of blocks, each a run of styled spans or a piece
// of code, with the lists and quotes it sits in given as depths. Nothing in it refers to anything
// the window would load: an image is its alt text and its address, raw HTML is text, and a link
// keeps its target only where the user may open it (http, https, mailto). Line breaks within a
// paragraph are kept.

struct MarkdownSpan {
    QString text;
    bool strong = false;
    bool emphasis = false;
    bool code = false;
    bool struck = false;
    // The address a click opens; empty where the span is no link or its scheme is not allowed.
    QString link;
    // The span shows an address (a link's target or an image's source) rather than prose.
    bool address = false;

    friend bool operator==(const MarkdownSpan&, const MarkdownSpan&) = default;
};

using MarkdownSpans = std::vector<MarkdownSpan>;

enum class MarkdownBlockKind { Heading, Paragraph, Code, Table, Rule };

struct MarkdownBlock {
    MarkdownBlockKind kind = MarkdownBlockKind::Paragraph;
    int headingLevel = 0; // 1 to 6 for a heading
    int listDepth = 0;    // how many lists the block sits in
    QString marker;       // "•", "3." or a task box, on the first block of a list item
    int quoteDepth = 0;   // how many block quotes the block sits in
    MarkdownSpans spans;  // headings and paragraphs
    QString code;         // code blocks, without the closing line break
    QString language;     // a fenced block's language, as written
    std::vector<std::vector<MarkdownSpans>> rows; // tables: the header row first
    qsizetype sourceStart = 0;                    // where in the message the block's part begins

    friend bool operator==(const MarkdownBlock&, const MarkdownBlock&) = default;
};

// The blocks of text; sourceStart of each is offset (the text's place in a longer message).
std::vector<MarkdownBlock> parseMarkdown(QStringView text, qsizetype offset = 0);

// Whether a click may open this address in the system browser: http, https and mailto only.
bool isOpenableLink(const QString& address);

// The text of spans run together, for accessibility and tests.
QString plainText(const MarkdownSpans& spans);

} // namespace nimbrel
