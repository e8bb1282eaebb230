// Names and texts as tables carry them, in 8-bit character coding (ARIB STD-B24 volume 1 part 2; in
// Brazil its Latin profile, ABNT NBR 15606-1).

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mksample/Options.h"

namespace mksample {

// The country without a guide takes the text as it is. Brazil: ISO/IEC 8859-15. Japan: from the
// state at the start of a text, kanji on the left and hiragana on the right; letters and digits of
// ASCII by locking shift 1, half-wide ones therefore, and katakana by single shift 3. Throws
// Failure for a character that the coding does not have.
std::vector<uint8_t> broadcastText(const std::string& utf8, Country country);

}  // namespace mksample
