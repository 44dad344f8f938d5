#pragma once

#include <QString>

namespace nimbrel {

// User-perceived characters (grapheme clusters) in text.
int characterCount(const QString& text);

// The first limit user-perceived characters of text (all of it when it is shorter).
QString firstCharacters(const QString& text, int limit);

// text itself when it has at most limit user-perceived characters; otherwise its first limit
// characters followed by "…". Clusters such as flags, emoji sequences and combining marks are never
// split.
QString truncatedToCharacters(const QString& text, int limit);

// A number as the user's locale writes it, with no fractional part when it is whole.
QString formatLocaleNumber(double value);

// A random UUID in upper-case text form, without braces.
QString randomUUIDText();

} // namespace nimbrel
