#pragma once

#include <string>
#include <vector>

namespace orvplay {

// Text measured and cut as a terminal shows it: in columns, of which a Japanese character takes two
// (East Asian Width, UAX #11) and a combining mark none.

// One line that a terminal can be given, whatever a stream or another program named: blanks for
// control characters and line ends, U+FFFD for bytes that are no UTF-8, nothing for characters that
// command without being seen (directions of writing and the like), "?" for what is no character.
// The rest of this header takes such text.
std::string terminalText(const std::string& utf8);

int columnsOf(const std::string& text);

// The text itself where it fits, else as much of it as does, with "~" behind. Never more columns
// than that; nothing for none.
std::string cutToColumns(const std::string& text, int columns);

// The text in so many lines at most, cut between words where there are any; the last one as above.
std::vector<std::string> wrapToColumns(const std::string& text, int columns, size_t lines);

}  // namespace orvplay
