#include "TerminalText.h"

#include <algorithm>

namespace nimbrel {

namespace {

constexpr char16_t escape = 0x1B;
constexpr char16_t bell = 0x07;
constexpr char16_t singleCharacterCsi = 0x9B;

bool isCsiFinal(char16_t c)
{
    return c >= 0x40 && c <= 0x7E;
}
bool isCsiBody(char16_t c)
{
    return c >= 0x20 && c <= 0x3F;
}

// The index just past the CSI sequence whose parameters start at from: past its final byte, or
// past the parameters when a foreign character cuts it short.
qsizetype afterCsi(const QString& text, qsizetype from)
{
    qsizetype i = from;
    while (i < text.size() && isCsiBody(text.at(i).unicode()))
        ++i;
    if (i < text.size() && isCsiFinal(text.at(i).unicode()))
        ++i;
    return i;
}

// The index just past the OSC string whose body starts at from: past BEL or ESC \, or the end.
qsizetype afterOsc(const QString& text, qsizetype from)
{
    for (qsizetype i = from; i < text.size(); ++i) {
        const char16_t c = text.at(i).unicode();
        if (c == bell)
            return i + 1;
        if (c == escape && i + 1 < text.size() && text.at(i + 1) == QLatin1Char('\\'))
            return i + 2;
    }
    return text.size();
}

} // namespace

QString withoutTerminalSequences(const QString& text)
{
    if (!text.contains(QChar(escape)) && !text.contains(QChar(singleCharacterCsi)))
        return text;
    QString kept;
    kept.reserve(text.size());
    qsizetype i = 0;
    while (i < text.size()) {
        const char16_t c = text.at(i).unicode();
        if (c == singleCharacterCsi) {
            i = afterCsi(text, i + 1);
        } else if (c != escape) {
            kept += text.at(i++);
        } else if (i + 1 >= text.size()) {
            ++i;
        } else if (text.at(i + 1) == QLatin1Char('[')) {
            i = afterCsi(text, i + 2);
        } else if (text.at(i + 1) == QLatin1Char(']')) {
            i = afterOsc(text, i + 2);
        } else if (QStringView(u"()*+#%").contains(text.at(i + 1))) {
            i = std::min(i + 3, text.size()); // a character set or line size: one more character
        } else {
            i += 2;
        }
    }
    return kept;
}

} // namespace nimbrel
