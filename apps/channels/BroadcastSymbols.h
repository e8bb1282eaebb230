#pragma once

#include <string_view>

namespace orvplay {

// The marks of programmes among the additional symbols of ARIB STD-B24 (volume 1 part 2, table
// 7-10), by row and cell: captioned, new, repeated and so on. In brackets where the symbol is a
// box around a word. Empty for any other.
std::u32string_view broadcastSymbol(int row, int cell);

}  // namespace orvplay
