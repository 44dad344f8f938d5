#include "platform/TextFormatting.h"

#include <gtest/gtest.h>

using namespace nimbrel;

TEST(TextFormatting, ControlsAreShownEscapedNotObeyed)
{
    struct Case {
        QString text;
        QString oneLine;      // for a log line or a terminal
        QString keepingLines; // for a view that lays out lines
    };
    const Case cases[] = {
        {"plain text, é 😀 עברית", "plain text, é 😀 עברית", "plain text, é 😀 עברית"},
        {"a\nb\tc\rd", "a\\nb\\tc\\rd", "a\nb\tc\\rd"},
        {"\x1b[2J\x07", "\\u001B[2J\\u0007", "\\u001B[2J\\u0007"},
        {QString(QChar(0x85)) + QChar(0x2028) + QChar(0x2029), "\\u0085\\u2028\\u2029",
         "\\u0085\\u2028\\u2029"},
        // Bidirectional embeddings, overrides and isolates, and the characters around them.
        {QStringLiteral("rm -rf \u202Ebd\u202C"), "rm -rf \\u202Ebd\\u202C",
         "rm -rf \\u202Ebd\\u202C"},
        {QStringLiteral("\u2029\u202A\u202B\u202D\u202F"), "\\u2029\\u202A\\u202B\\u202D\u202F",
         "\\u2029\\u202A\\u202B\\u202D\u202F"},
        {QStringLiteral("\u2065\u2066\u2067\u2068\u2069\u206A"),
         "\u2065\\u2066\\u2067\\u2068\\u2069\u206A", "\u2065\\u2066\\u2067\\u2068\\u2069\u206A"},
        // Marks that only steer neutral characters stay.
        {QStringLiteral("\u200E\u200F"), QStringLiteral("\u200E\u200F"),
         QStringLiteral("\u200E\u200F")},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(withEscapedControlCharacters(c.text), c.oneLine) << c.text.toStdString();
        EXPECT_EQ(withEscapedControlCharactersKeepingLines(c.text), c.keepingLines)
            << c.text.toStdString();
        EXPECT_EQ(hasControlCharacters(c.text), c.text != c.oneLine) << c.text.toStdString();
    }
    EXPECT_EQ(loggableText(QStringLiteral("Ada\u202E") + QString(200, 'x')),
              "Ada\\u202E" + QString(116, 'x') + QChar(0x2026));
}
