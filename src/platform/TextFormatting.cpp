#include "TextFormatting.h"

#include <QLocale>
#include <QTextBoundaryFinder>
#include <QUuid>

#include <algorithm>
#include <cmath>

namespace nimbrel {

namespace {

// Two printable ASCII characters in a row always have a cluster boundary between them: a window of
// the text that starts or ends there cuts no cluster, and its boundaries are the text's own.
bool isPlainASCII(QChar c)
{
    return c.unicode() >= 0x20 && c.unicode() < 0x7f;
}

qsizetype safeEdgeAtOrBefore(const QString& text, qsizetype position)
{
    for (qsizetype edge = position; edge > 0 && position - edge < 512; --edge)
        if (edge == text.size() || (isPlainASCII(text[edge - 1]) && isPlainASCII(text[edge])))
            return edge;
    return 0;
}

qsizetype safeEdgeAtOrAfter(const QString& text, qsizetype position)
{
    for (qsizetype edge = std::max<qsizetype>(position, 1);
         edge < text.size() && edge - position < 512; ++edge)
        if (isPlainASCII(text[edge - 1]) && isPlainASCII(text[edge]))
            return edge;
    return text.size();
}

// Units of text a first guess reads for limit clusters; doubled while it proves too short.
qsizetype windowFor(int limit)
{
    return 4 * static_cast<qsizetype>(std::max(limit, 0)) + 64;
}

// Position just behind the first limit clusters, or -1 when the text has no more than limit.
qsizetype cutPosition(const QString& text, int limit)
{
    for (qsizetype span = windowFor(limit);; span *= 2) {
        const qsizetype end = safeEdgeAtOrAfter(text, std::min(span, text.size()));
        const QStringView window = QStringView(text).left(end);
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, window);
        int clusters = 0;
        qsizetype position = 0;
        while (position < window.size()) {
            const qsizetype next = finder.toNextBoundary();
            if (next < 0)
                break;
            if (clusters == limit)
                return position;
            ++clusters;
            position = next;
        }
        if (end == text.size())
            return -1;
    }
}

} // namespace

int characterCount(const QString& text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int clusters = 0;
    while (finder.toNextBoundary() > 0)
        ++clusters;
    return clusters;
}

QString firstCharacters(const QString& text, int limit)
{
    const qsizetype cut = text.size() <= limit ? -1 : cutPosition(text, limit);
    return cut < 0 ? text : text.left(cut);
}

QString lastCharacters(const QString& text, int limit)
{
    if (text.size() <= limit)
        return text;
    for (qsizetype span = windowFor(limit);; span *= 2) {
        const qsizetype start =
            safeEdgeAtOrBefore(text, std::max<qsizetype>(text.size() - span, 0));
        const QStringView window = QStringView(text).mid(start);
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, window);
        finder.toEnd();
        qsizetype position = window.size();
        for (int clusters = 0; clusters < limit && position > 0; ++clusters)
            position = finder.toPreviousBoundary();
        if (position > 0)
            return text.mid(start + position);
        if (start == 0)
            return text;
    }
}

bool hasMoreCharactersThan(const QString& text, int limit)
{
    return text.size() > limit && cutPosition(text, limit) >= 0;
}

QString truncatedToCharacters(const QString& text, int limit)
{
    if (text.size() <= limit)
        return text; // fewer UTF-16 units than the limit means fewer clusters too
    const qsizetype cut = cutPosition(text, limit);
    if (cut < 0)
        return text;
    return text.left(cut) + QChar(0x2026);
}

namespace {

bool isBidiControl(char16_t unit)
{
    return (unit >= 0x202A && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
}

bool isControl(char16_t unit)
{
    return unit < 0x20 || (unit >= 0x7F && unit <= 0x9F) || unit == 0x2028 || unit == 0x2029 ||
           isBidiControl(unit);
}

QString escaped(const QString& text, bool keepLines)
{
    const auto escapes = [keepLines](QChar c) {
        return isControl(c.unicode()) && !(keepLines && (c == u'\n' || c == u'\t'));
    };
    if (std::none_of(text.cbegin(), text.cend(), escapes))
        return text;
    QString result;
    result.reserve(text.size() + 16);
    for (const QChar c : text) {
        const char16_t unit = c.unicode();
        if (!escapes(c))
            result.append(c);
        else if (unit == u'\n')
            result.append(QLatin1String("\\n"));
        else if (unit == u'\r')
            result.append(QLatin1String("\\r"));
        else if (unit == u'\t')
            result.append(QLatin1String("\\t"));
        else
            result.append(QStringLiteral("\\u") +
                          QString::number(unit, 16).toUpper().rightJustified(4, QLatin1Char('0')));
    }
    return result;
}

} // namespace

bool hasControlCharacters(const QString& text)
{
    return std::any_of(text.cbegin(), text.cend(), [](QChar c) { return isControl(c.unicode()); });
}

QString withEscapedControlCharacters(const QString& text)
{
    return escaped(text, false);
}

QString withEscapedControlCharactersKeepingLines(const QString& text)
{
    return escaped(text, true);
}

QString loggableText(const QString& text)
{
    return withEscapedControlCharacters(truncatedToCharacters(text, loggableCharacters));
}

QString formatLocaleNumber(double value)
{
    const QLocale locale;
    if (std::isfinite(value) && std::fabs(value) < 1e12)
        value = std::round(value * 1000) / 1000 + 0.0;
    if (std::isfinite(value) && std::trunc(value) == value && std::fabs(value) < 1e15)
        return locale.toString(static_cast<qlonglong>(value));
    return locale.toString(value, 'f', QLocale::FloatingPointShortest);
}

QString formatLocalePercent(double value)
{
    // Halves go to the even neighbour, as the platform's number formats round.
    return formatLocaleNumber(std::nearbyint(value) + 0.0) + QLatin1Char('%');
}

QString randomUUIDText()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

} // namespace nimbrel
