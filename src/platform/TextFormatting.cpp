#include "TextFormatting.h"

#include <QLocale>
#include <QTextBoundaryFinder>
#include <QUuid>

#include <algorithm>
#include <cmath>

namespace nimbrel {

namespace {

// Position just behind the first limit clusters, or -1 when the text has no more than limit.
qsizetype cutPosition(const QString& text, int limit)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int clusters = 0;
    qsizetype position = 0;
    while (position < text.size()) {
        const qsizetype next = finder.toNextBoundary();
        if (next < 0)
            break;
        if (clusters == limit)
            return position;
        ++clusters;
        position = next;
    }
    return -1;
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

bool isControl(char16_t unit)
{
    return unit < 0x20 || (unit >= 0x7F && unit <= 0x9F) || unit == 0x2028 || unit == 0x2029;
}

} // namespace

bool hasControlCharacters(const QString& text)
{
    return std::any_of(text.cbegin(), text.cend(), [](QChar c) { return isControl(c.unicode()); });
}

QString withEscapedControlCharacters(const QString& text)
{
    if (!hasControlCharacters(text))
        return text;
    QString escaped;
    escaped.reserve(text.size() + 16);
    for (const QChar c : text) {
        const char16_t unit = c.unicode();
        if (!isControl(unit))
            escaped.append(c);
        else if (unit == u'\n')
            escaped.append(QLatin1String("\\n"));
        else if (unit == u'\r')
            escaped.append(QLatin1String("\\r"));
        else if (unit == u'\t')
            escaped.append(QLatin1String("\\t"));
        else
            escaped.append(QStringLiteral("\\u") + QString::number(unit, 16).toUpper().rightJustified(4, QLatin1Char('0')));
    }
    return escaped;
}

QString loggableText(const QString& text)
{
    return withEscapedControlCharacters(truncatedToCharacters(text, loggableCharacters));
}

QString formatLocaleNumber(double value)
{
    const QLocale locale;
    if (std::isfinite(value) && std::trunc(value) == value && std::fabs(value) < 1e15)
        return locale.toString(static_cast<qlonglong>(value));
    return locale.toString(value, 'f', QLocale::FloatingPointShortest);
}

QString randomUUIDText() { return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(); }

} // namespace nimbrel
