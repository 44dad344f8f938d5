#include "WindowPalette.h"

#include <QHash>

namespace nimbrel {

QColor WindowPalette::color(const QString& name) const
{
    static const QHash<QString, QColor> colours = {
        {QStringLiteral("green"), QColor(0x34, 0xa8, 0x53)},
        {QStringLiteral("orange"), QColor(0xf2, 0x8c, 0x28)},
        {QStringLiteral("cyan"), QColor(0x1f, 0xa9, 0xc6)},
        {QStringLiteral("mutedCyan"), QColor(0x1f, 0xa9, 0xc6, 0x8c)},
        {QStringLiteral("purple"), QColor(0x9b, 0x59, 0xd0)},
        {QStringLiteral("indigo"), QColor(0x5c, 0x6b, 0xc0)},
        {QStringLiteral("yellow"), QColor(0xd4, 0xa0, 0x17)},
        {QStringLiteral("red"), QColor(0xd9, 0x3f, 0x3f)},
        {QStringLiteral("accent"), QColor(0x2d, 0x6c, 0xdf)},
        // Markdown: links, the addresses shown beside them, code and quotes.
        {QStringLiteral("link"), QColor(0x2d, 0x6c, 0xdf)},
        {QStringLiteral("address"), QColor(0x80, 0x80, 0x80)},
        {QStringLiteral("codeBackground"), QColor(0x80, 0x80, 0x80, 0x1f)},
        {QStringLiteral("quote"), QColor(0x80, 0x80, 0x80, 0x8c)},
        // Diffs: added and removed lines, and the lines that place a hunk.
        {QStringLiteral("added"), QColor(0x34, 0xa8, 0x53)},
        {QStringLiteral("removed"), QColor(0xd9, 0x3f, 0x3f)},
        {QStringLiteral("hunk"), QColor(0x5c, 0x6b, 0xc0)},
        // What dims the window behind a sheet.
        {QStringLiteral("scrim"), QColor(0x10, 0x12, 0x18, 0x73)}};
    return colours.value(name, QColor(0x80, 0x80, 0x80));
}

} // namespace nimbrel
