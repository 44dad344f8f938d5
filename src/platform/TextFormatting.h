#pragma once

#include <QString>

namespace nimbrel {

// User-perceived characters (grapheme clusters) in text.
int characterCount(const QString& text);

// The first limit user-perceived characters of text (all of it when it is shorter).
QString firstCharacters(const QString& text, int limit);

// The last limit user-perceived characters of text (all of it when it is shorter).
QString lastCharacters(const QString& text, int limit);

// Whether text has more than limit user-perceived characters. Like firstCharacters and
// lastCharacters it reads only about as much of the text as the limit covers, so a megabyte costs
// no more than a page.
bool hasMoreCharactersThan(const QString& text, int limit);

// text itself when it has at most limit user-perceived characters; otherwise its first limit
// characters followed by "…". Clusters such as flags, emoji sequences and combining marks are never
// split.
QString truncatedToCharacters(const QString& text, int limit);

// Whether text holds a control character (U+0000–U+001F, U+007F–U+009F), a line or paragraph
// separator (U+2028, U+2029) or a bidirectional control (U+202A–U+202E, U+2066–U+2069), which
// would make the text read in another order than it runs.
bool hasControlCharacters(const QString& text);

// text with every control character, line break and bidirectional control shown as an escape
// (\n, \r, \t, \u001B, \u202E): for one line of a log or a terminal.
QString withEscapedControlCharacters(const QString& text);

// The same, except that line feeds and tabs stay as they are: for a view that lays out lines.
QString withEscapedControlCharactersKeepingLines(const QString& text);

// Text that someone outside chose (a peer's name, a message's kind), made safe for one log line:
// cut to 120 user-perceived characters with "…", its control characters escaped as above.
QString loggableText(const QString& text);
inline constexpr int loggableCharacters = 120;

// A number as the user's locale writes it in its default decimal format: at most three fraction
// digits, none when it is whole.
QString formatLocaleNumber(double value);

// A share as the user's locale writes it: rounded to a whole number, then "%".
QString formatLocalePercent(double value);

// A random UUID in upper-case text form, without braces.
QString randomUUIDText();

} // namespace nimbrel
