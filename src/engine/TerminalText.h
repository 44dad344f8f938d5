#pragma once

#include <QString>

namespace nimbrel {

// text without the terminal's control sequences that programs write for colour and cursor
// movement: CSI sequences (ESC [ … final byte, and the one-character CSI U+009B), OSC strings
// (ESC ] … ended by BEL or ESC \) and other escapes of one character. Other control characters
// stay, for the log to escape.
QString withoutTerminalSequences(const QString& text);

} // namespace nimbrel
