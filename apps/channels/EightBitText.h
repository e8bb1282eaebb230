#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "channels/BroadcastText.h"

namespace orvplay {

// Decodes one text of the 8-bit character coding of ARIB STD-B24 (volume 1 part 2, clause 7): an
// extension of ISO/IEC 2022.
//
//   0x21..0x7E  a character of the set on the left (GL)     each of the two is one of G0 to G3,
//   0xA1..0xFE  a character of the set on the right (GR)    chosen by locking shifts, and each of
//   0x19, 0x1D  the next one is of G2, of G3                these a set, designated by an escape
//
// The Latin profile begins with letters on the left and the upper half of ISO/IEC 8859-15 on the
// right, the Japanese with kanji and hiragana.
class EightBitText {
public:
    explicit EightBitText(TextCoding coding);

    // Code points. A text that is cut in a character or a sequence ends before it.
    std::vector<uint32_t> decode(const std::vector<uint8_t>& raw);

private:
    enum class Set : uint8_t {
        LETTERS,        // ASCII, with the yen sign and the overline in Japan
        LATIN,          // the upper half of ISO/IEC 8859-15
        LATIN_SPECIAL,  // of SBTVD
        HIRAGANA,
        KATAKANA,
        HALF_KATAKANA,  // JIS X 0201
        KANJI,          // JIS X 0208 and symbols; two bytes, as the next ones
        KANJI_EXTENDED,
        UNKNOWN,       // drawn characters and mosaics: read past
        UNKNOWN_WIDE,  // likewise, two bytes
    };

    static bool isWide(Set set);
    static Set setOf(uint8_t final, bool wide);
    void control(uint8_t code);
    void escape();
    void controlSequence();
    void character(uint8_t first);
    void put(Set set, uint8_t first, uint8_t second);
    void putKanji(const char* charset, uint8_t first, uint8_t second);
    uint8_t take();  // 0 at the end

    const TextCoding mCoding;
    std::array<Set, 4> mSets;  // G0 to G3
    size_t mLeft = 0;          // which of them
    size_t mRight = 2;
    int mSingle = -1;  // for one character

    const std::vector<uint8_t>* mRaw = nullptr;
    size_t mAt = 0;
    std::vector<uint32_t> mOut;
};

}  // namespace orvplay
