#include "WindowPalette.h"

namespace nimbrel {

QColor WindowPalette::color(const QString& name) const
{
    if (name == QLatin1String("green"))
        return QColor(0x34, 0xa8, 0x53);
    if (name == QLatin1String("orange"))
        return QColor(0xf2, 0x8c, 0x28);
    if (name == QLatin1String("cyan"))
        return QColor(0x1f, 0xa9, 0xc6);
    if (name == QLatin1String("purple"))
        return QColor(0x9b, 0x59, 0xd0);
    if (name == QLatin1String("indigo"))
        return QColor(0x5c, 0x6b, 0xc0);
    if (name == QLatin1String("yellow"))
        return QColor(0xd4, 0xa0, 0x17);
    if (name == QLatin1String("red"))
        return QColor(0xd9, 0x3f, 0x3f);
    if (name == QLatin1String("accent"))
        return QColor(0x2d, 0x6c, 0xdf);
    return QColor(0x80, 0x80, 0x80);
}

} // namespace nimbrel
