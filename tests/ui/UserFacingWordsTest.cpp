// Texts that users read never name another platform's devices or tools: on this computer they say
// "this computer", "your phone or tablet", "the same network" and "a terminal".

#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QStringList>

#include <gtest/gtest.h>

namespace {

struct Literal {
    int line;
    QString text;
};

// The quoted texts of a C++, QML or JavaScript source: string literals (raw ones too) and, in
// JavaScript, template literals. Comments, character literals and #include lines are passed over;
// identifiers such as MacSessionView never reach the check.
QList<Literal> literalsIn(const QString& source, bool cpp)
{
    QList<Literal> found;
    int line = 1;
    const qsizetype size = source.size();
    auto at = [&](qsizetype i) { return i < size ? source.at(i) : QChar(); };
    for (qsizetype i = 0; i < size; ++i) {
        const QChar c = source.at(i);
        if (c == QLatin1Char('\n')) {
            ++line;
        } else if (c == QLatin1Char('/') && at(i + 1) == QLatin1Char('/')) {
            while (i + 1 < size && source.at(i + 1) != QLatin1Char('\n'))
                ++i;
        } else if (c == QLatin1Char('/') && at(i + 1) == QLatin1Char('*')) {
            for (i += 2; i + 1 < size && !(source.at(i) == QLatin1Char('*') &&
                                           source.at(i + 1) == QLatin1Char('/'));
                 ++i)
                line += source.at(i) == QLatin1Char('\n');
            ++i;
        } else if (cpp && c == QLatin1Char('#') && source.mid(i, 8) == QLatin1String("#include")) {
            while (i + 1 < size && source.at(i + 1) != QLatin1Char('\n'))
                ++i;
        } else if (cpp && c == QLatin1Char('R') && at(i + 1) == QLatin1Char('"')) {
            const qsizetype open = source.indexOf(QLatin1Char('('), i + 2);
            const QString close =
                QLatin1Char(')') + source.mid(i + 2, open - i - 2) + QLatin1Char('"');
            const qsizetype end = source.indexOf(close, open);
            const QString text = source.mid(open + 1, end - open - 1);
            found.append({line, text});
            line += text.count(QLatin1Char('\n'));
            i = end + close.size() - 1;
        } else if (c == QLatin1Char('"') || c == QLatin1Char('`') ||
                   (c == QLatin1Char('\'') && !cpp)) {
            const int startLine = line;
            QString text;
            for (++i; i < size && source.at(i) != c; ++i) {
                if (source.at(i) == QLatin1Char('\\'))
                    ++i;
                else
                    text += source.at(i);
                line += at(i) == QLatin1Char('\n');
            }
            found.append({startLine, text});
        } else if (c == QLatin1Char('\'')) { // a C++ character literal
            for (++i; i < size && source.at(i) != c; ++i)
                i += source.at(i) == QLatin1Char('\\');
        }
    }
    return found;
}

// The words another platform's texts use, as whole words.
bool namesAnotherPlatform(const QString& text)
{
    static const QRegularExpression words(
        QStringLiteral(R"(\bMacs?\b|iPhone|iPad|\b[Ww]i-?[Ff]i\b|\bTerminal\b)"));
    return words.match(text).hasMatch();
}

QStringList offendingTexts(const QString& source, bool cpp)
{
    QStringList offending;
    for (const Literal& literal : literalsIn(source, cpp))
        if (namesAnotherPlatform(literal.text))
            offending.append(QString::number(literal.line) + QStringLiteral(": ") + literal.text);
    return offending;
}

TEST(UserFacingWordsTest, TheCheckFindsQuotedTextsOnly)
{
    struct Case {
        const char* source;
        bool cpp;
        int offending;
    };
    const Case cases[] = {
        {R"(QStringLiteral("Your Mac is ready"))", true, 1},
        {R"(QStringLiteral("Run codex in Terminal"))", true, 1},
        {"auto x = R\"(on this Wi-Fi network)\";", true, 1},
        {R"(const char c = '"'; auto t = "an iPad";)", true, 1},
        {R"(#include "ui/sessions/MacSessionViewModel.h")", true, 0},
        {R"(// the Mac's window)", true, 0},
        {R"(/* "iPhone" */ MacSessionView {})", false, 0},
        {R"(QStringLiteral("MacSessionView.qml"))", true, 0},
        {R"(el('p', {}, `Open it on an iPhone`))", false, 1},
        {R"(const p = /iPhone|iPad/.test(agent) ? 'iOS' : 'Linux';)", false, 0},
        {R"("run codex in a terminal", "utilities-terminal")", true, 0},
    };
    for (const Case& testCase : cases)
        EXPECT_EQ(offendingTexts(QString::fromUtf8(testCase.source), testCase.cpp).size(),
                  testCase.offending)
            << testCase.source;
}

TEST(UserFacingWordsTest, NoTextInTheSourcesNamesAnotherPlatform)
{
    QStringList offending;
    int files = 0;
    QDirIterator it(QStringLiteral(NIMBREL_SOURCE_DIR "/src"), QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const bool cpp = path.endsWith(QLatin1String(".cpp")) || path.endsWith(QLatin1String(".h"));
        const bool script =
            path.endsWith(QLatin1String(".qml")) || path.endsWith(QLatin1String(".js"));
        const bool page = path.endsWith(QLatin1String(".html"));
        if (!cpp && !script && !page)
            continue;
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << qPrintable(path);
        const QString source = QString::fromUtf8(file.readAll());
        ++files;
        if (page) {
            if (namesAnotherPlatform(source))
                offending.append(path);
            continue;
        }
        for (const QString& text : offendingTexts(source, cpp))
            offending.append(path.mid(sizeof(NIMBREL_SOURCE_DIR)) + QStringLiteral(":") + text);
    }
    EXPECT_GT(files, 50);
    EXPECT_TRUE(offending.isEmpty()) << qPrintable(offending.join(QLatin1Char('\n')));
}

} // namespace
