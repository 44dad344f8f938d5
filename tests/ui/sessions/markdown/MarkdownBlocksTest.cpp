#include "ui/sessions/markdown/MarkdownBlocks.h"
#include "ui/sessions/markdown/MarkdownDocument.h"

#include <gtest/gtest.h>

using namespace nimbrel;

namespace nimbrel {
void PrintTo(const MarkdownSpan& span, std::ostream* out)
{
    *out << '"' << span.text.toStdString() << '"' << (span.strong ? " strong" : "")
         << (span.emphasis ? " emphasis" : "") << (span.code ? " code" : "")
         << (span.address ? " address" : "") << (span.link.isEmpty() ? "" : " link ")
         << span.link.toStdString();
}
} // namespace nimbrel

namespace {

MarkdownSpan span(const QString& text)
{
    return MarkdownSpan{text, false, false, false, false, {}, false};
}
MarkdownSpan strong(const QString& text)
{
    MarkdownSpan result = span(text);
    result.strong = true;
    return result;
}
MarkdownSpan emphasis(const QString& text)
{
    MarkdownSpan result = span(text);
    result.emphasis = true;
    return result;
}
MarkdownSpan code(const QString& text)
{
    MarkdownSpan result = span(text);
    result.code = true;
    return result;
}
MarkdownSpan linked(const QString& text, const QString& link)
{
    MarkdownSpan result = span(text);
    result.link = link;
    return result;
}
MarkdownSpan address(const QString& text)
{
    MarkdownSpan result = span(QStringLiteral(" (") + text + QLatin1Char(')'));
    result.address = true;
    return result;
}

MarkdownBlock paragraph(MarkdownSpans spans, int listDepth = 0, const QString& marker = {},
                        int quoteDepth = 0)
{
    MarkdownBlock block;
    block.spans = std::move(spans);
    block.listDepth = listDepth;
    block.marker = marker;
    block.quoteDepth = quoteDepth;
    return block;
}

TEST(MarkdownBlocks, HeadingsAndParagraphsWithTheirSpans)
{
    const auto blocks = parseMarkdown(u"## Plan\n\nUse *care*, **force** and `grep -n`.\n");
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks[0].kind, MarkdownBlockKind::Heading);
    EXPECT_EQ(blocks[0].headingLevel, 2);
    EXPECT_EQ(blocks[0].spans, MarkdownSpans{span("Plan")});
    EXPECT_EQ(blocks[1], paragraph({span("Use "), emphasis("care"), span(", "), strong("force"),
                                    span(" and "), code("grep -n"), span(".")}));
}

TEST(MarkdownBlocks, LineBreaksWithinAParagraphStay)
{
    const auto blocks = parseMarkdown(u"✓ Reproduce\n✓ Fix\n");
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(plainText(blocks[0].spans), QStringLiteral("✓ Reproduce\n✓ Fix"));
}

TEST(MarkdownBlocks, NestedListsCarryDepthAndMarkers)
{
    const auto blocks = parseMarkdown(u"- one\n  1. first\n  2. second\n- two\n\n3. three\n");
    const std::vector<MarkdownBlock> expected{
        paragraph({span("one")}, 1, "•"), paragraph({span("first")}, 2, "1."),
        paragraph({span("second")}, 2, "2."), paragraph({span("two")}, 1, "•"),
        paragraph({span("three")}, 1, "3.")};
    EXPECT_EQ(blocks, expected);
}

TEST(MarkdownBlocks, QuotesTasksAndRules)
{
    const auto blocks = parseMarkdown(u"> quoted\n> > deeper\n\n- [x] done\n- [ ] open\n\n---\n");
    ASSERT_EQ(blocks.size(), 5u);
    EXPECT_EQ(blocks[0], paragraph({span("quoted")}, 0, {}, 1));
    EXPECT_EQ(blocks[1], paragraph({span("deeper")}, 0, {}, 2));
    EXPECT_EQ(blocks[2].marker, QStringLiteral("☑"));
    EXPECT_EQ(blocks[3].marker, QStringLiteral("☐"));
    EXPECT_EQ(blocks[4].kind, MarkdownBlockKind::Rule);
}

TEST(MarkdownBlocks, FencedCodeKeepsItsTextAndLanguage)
{
    const auto blocks =
        parseMarkdown(u"```cpp\nint main() {\n    return 0;\n}\n```\n    indented\n");
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks[0].kind, MarkdownBlockKind::Code);
    EXPECT_EQ(blocks[0].language, QStringLiteral("cpp"));
    EXPECT_EQ(blocks[0].code, QStringLiteral("int main() {\n    return 0;\n}"));
    EXPECT_EQ(blocks[1].code, QStringLiteral("indented"));
}

TEST(MarkdownBlocks, TablesHaveRowsOfCells)
{
    const auto blocks = parseMarkdown(u"| File | Lines |\n|---|--:|\n| `a.c` | **3** |\n");
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(blocks[0].kind, MarkdownBlockKind::Table);
    const std::vector<std::vector<MarkdownSpans>> rows{{{span("File")}, {span("Lines")}},
                                                       {{code("a.c")}, {strong("3")}}};
    EXPECT_EQ(blocks[0].rows, rows);
}

TEST(MarkdownBlocks, LinksShowTheirTargetAndOnlyOpenableOnesAreLinks)
{
    struct Case {
        const char16_t* markdown;
        MarkdownSpans spans;
    } cases[] = {
        {u"[docs](https://example.com/a)",
         {linked("docs", "https://example.com/a"), address("https://example.com/a")}},
        {u"see https://example.com",
         {span("see "), linked("https://example.com", "https://example.com")}},
        {u"www.example.com", {linked("www.example.com", "http://www.example.com")}},
        {u"[mail](mailto:a@example.com)",
         {linked("mail", "mailto:a@example.com"), address("mailto:a@example.com")}},
        {u"[run](javascript:alert(1))", {span("run"), address("javascript:alert(1)")}},
        {u"[file](file:///etc/passwd)", {span("file"), address("file:///etc/passwd")}},
        {u"[data](data:text/html,hi)", {span("data"), address("data:text/html,hi")}},
    };
    for (const Case& c : cases) {
        const auto blocks = parseMarkdown(QStringView(c.markdown));
        ASSERT_EQ(blocks.size(), 1u) << QString::fromUtf16(c.markdown).toStdString();
        EXPECT_EQ(blocks[0].spans, c.spans) << QString::fromUtf16(c.markdown).toStdString();
    }
}

TEST(MarkdownBlocks, ImagesAndHtmlStayText)
{
    const auto image = parseMarkdown(u"![chart](https://example.com/x.png)");
    ASSERT_EQ(image.size(), 1u);
    EXPECT_EQ(plainText(image[0].spans),
              QStringLiteral("Image: chart (https://example.com/x.png)"));
    for (const MarkdownSpan& part : image[0].spans)
        EXPECT_TRUE(part.link.isEmpty());

    const auto html = parseMarkdown(
        u"<script>alert(1)</script>\n\nText <img src=\"https://example.com/t.png\"> &amp; &#65;\n");
    ASSERT_EQ(html.size(), 2u);
    EXPECT_EQ(html[0], paragraph({span("<script>alert(1)</script>")}));
    EXPECT_EQ(html[1], paragraph({span("Text <img src=\"https://example.com/t.png\"> & A")}));
}

TEST(MarkdownBlocks, OpenableLinks)
{
    for (const char* yes : {"https://example.com", "http://example.com/a?b#c", "mailto:a@b.c"})
        EXPECT_TRUE(isOpenableLink(QString::fromLatin1(yes))) << yes;
    for (const char* no :
         {"javascript:alert(1)", "JavaScript:alert(1)", "file:///etc/passwd", "data:text/html,x",
          "https://", "ftp://example.com", "/relative", "mailto:", " https://example.com"})
        EXPECT_FALSE(isOpenableLink(QString::fromLatin1(no))) << no;
}

// Streamed in pieces of every size, the document ends with the blocks of the whole text.
TEST(MarkdownDocument, StreamedTextEndsWithTheBlocksOfTheWhole)
{
    const QString text = QStringLiteral(
        "# Title\n\nFirst *paragraph*\ncontinues.\n\n- item\n\n- loose item\n\n```\ncode\n\n"
        "more code\n```\n\nSecond\n===\n\n> quote\n\n| a | b |\n|---|---|\n| 1 | 2 |\n\nEnd.\n");
    const auto whole = parseMarkdown(text);
    for (qsizetype step : {1, 3, 7, 20}) {
        MarkdownDocument document;
        for (qsizetype end = step; end < text.size() + step; end += step)
            document.update(text.first(std::min(end, text.size())));
        ASSERT_EQ(document.blockCount(), whole.size()) << step;
        for (std::size_t i = 0; i < whole.size(); ++i) {
            MarkdownBlock block = document.block(i);
            block.sourceStart = 0;
            MarkdownBlock expected = whole[i];
            expected.sourceStart = 0;
            EXPECT_EQ(block, expected) << step << " block " << i;
        }
    }
}

TEST(MarkdownDocument, TextThatDoesNotExtendStartsAfresh)
{
    MarkdownDocument document;
    document.update(QStringLiteral("one\n\ntwo\n\nthree"));
    document.update(QStringLiteral("other\n"));
    ASSERT_EQ(document.blockCount(), 1u);
    EXPECT_EQ(plainText(document.block(0).spans), QStringLiteral("other"));
    EXPECT_EQ(document.firstBlockFrom(0), 0u);
    EXPECT_EQ(document.firstBlockFrom(1), 1u);
}

} // namespace
