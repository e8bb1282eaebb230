#pragma once

#include <cstdint>

namespace OrvPlayer {

// The character sets of Latin captions (ISO/IEC 8859-15, and the special characters of the SBTVD
// caption coding, ABNT NBR 15606-1), byte by byte to Unicode. Pure functions without state.
class UTF32 {
public:
    enum charset_t : int {
        CHARSET_DEFAULT = 0,  // ISO/IEC 8859-15
        CHARSET_SPECIAL = 1   // the set of the single shift; it gives back what 8859-15 replaces
    };

    // The code point of a byte, taken as unsigned. Bytes that a set says nothing of, control codes
    // among them, and every byte of any other set are their own code points.
    static uint32_t getUTF32Char(charset_t charset, char character);
};

}  // namespace OrvPlayer
