#include "channels/EightBitText.h"

#include <iconv.h>

#include "channels/BroadcastSymbols.h"
#include "decoder/UTF32.h"

using OrvPlayer::UTF32;

namespace orvplay {

namespace {

constexpr uint32_t MISSING = 0x3013;  // the geta mark, which print puts in a missing type's place
constexpr uint8_t FIRST_SYMBOL_ROW = 90;

// The Unicode character of a two-byte code of an EUC charset; 0 when there is none.
uint32_t convert(const char* charset, uint8_t first, uint8_t second) {
    const iconv_t converter = iconv_open("UCS-4LE", charset);
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        return 0;
    }
    char in[] = {static_cast<char>(first | 0x80), static_cast<char>(second | 0x80)};
    unsigned char out[8] = {};
    char* from = in;
    char* to = reinterpret_cast<char*>(out);
    size_t fromLeft = sizeof in;
    size_t toLeft = sizeof out;
    const bool done = iconv(converter, &from, &fromLeft, &to, &toLeft) != static_cast<size_t>(-1);
    iconv_close(converter);
    return done && toLeft < sizeof out
               ? out[0] | uint32_t{out[1]} << 8 | uint32_t{out[2]} << 16 | uint32_t{out[3]} << 24
               : 0;
}

// The kana sets: the row of JIS X 0208, and behind it some signs.
uint32_t kana(uint8_t code, uint32_t firstKana, uint32_t firstMark, uint8_t lastKana) {
    constexpr uint32_t SIGNS[] = {0x30FC, 0x3002, 0x300C, 0x300D, 0x3001, 0x30FB};
    if (code <= lastKana) {
        return firstKana + (code - 0x21u);
    }
    if (code == 0x77 || code == 0x78) {
        return firstMark + (code - 0x77u);  // iteration marks
    }
    return code >= 0x79 ? SIGNS[code - 0x79] : MISSING;
}

}  // namespace

EightBitText::EightBitText(TextCoding coding)
    : mCoding(coding),
      mSets(coding == TextCoding::JAPANESE
                ? std::array{Set::KANJI, Set::LETTERS, Set::HIRAGANA, Set::KATAKANA}
                : std::array{Set::LETTERS, Set::LETTERS, Set::LATIN, Set::LATIN_SPECIAL}) {}

bool EightBitText::isWide(Set set) {
    return set == Set::KANJI || set == Set::KANJI_EXTENDED || set == Set::UNKNOWN_WIDE;
}

// By the final byte of its designation.
EightBitText::Set EightBitText::setOf(uint8_t final, bool wide) {
    switch (final) {
        case 0x42:
        case 0x3B:  // symbols: rows of the same plane
            return wide ? Set::KANJI : Set::UNKNOWN;
        case 0x39:
            return wide ? Set::KANJI_EXTENDED : Set::UNKNOWN;
        case 0x4A:
        case 0x36:
            return Set::LETTERS;
        case 0x30:
        case 0x37:
            return Set::HIRAGANA;
        case 0x31:
        case 0x38:
            return Set::KATAKANA;
        case 0x49:
            return Set::HALF_KATAKANA;
        case 0x4B:
            return Set::LATIN;
        case 0x4C:
            return Set::LATIN_SPECIAL;
        default:
            return wide ? Set::UNKNOWN_WIDE : Set::UNKNOWN;
    }
}

std::vector<uint32_t> EightBitText::decode(const std::vector<uint8_t>& raw) {
    mRaw = &raw;
    mAt = 0;
    mOut.clear();
    while (mAt < raw.size()) {
        const uint8_t code = take();
        if ((code & 0x7F) < 0x20) {
            control(code);
        } else if (code == 0x20) {
            mOut.push_back(' ');
        } else if (code != 0x7F) {
            character(code);
        }
    }
    return std::move(mOut);
}

uint8_t EightBitText::take() {
    return mAt < mRaw->size() ? (*mRaw)[mAt++] : 0;
}

// Reads past the parameters of what moves or colours.
void EightBitText::control(uint8_t code) {
    switch (code) {
        case 0x0D:  // APR
        case 0x0A:  // APD
            mOut.push_back('\n');
            break;
        case 0x0E:  // LS1
            mLeft = 1;
            break;
        case 0x0F:  // LS0
            mLeft = 0;
            break;
        case 0x19:  // SS2
            mSingle = 2;
            break;
        case 0x1D:  // SS3
            mSingle = 3;
            break;
        case 0x1B:
            escape();
            break;
        case 0x1C:  // APS
        case 0x9D:  // TIME
            take();
            take();
            break;
        case 0x90:  // COL
        case 0x92:  // CDC
            if (take() == 0x20) {
                take();
            }
            break;
        case 0x9B:
            controlSequence();
            break;
        case 0x16:  // PAPF
        case 0x8B:  // SZX
        case 0x91:  // FLC
        case 0x93:  // POL
        case 0x94:  // WMM
        case 0x95:  // MACRO
        case 0x97:  // HLC
        case 0x98:  // RPC
            take();
            break;
        default:
            break;
    }
}

// Locking shifts, and which set is which.
void EightBitText::escape() {
    uint8_t code = take();
    switch (code) {
        case 0x6E:
            mLeft = 2;
            return;
        case 0x6F:
            mLeft = 3;
            return;
        case 0x7C:
            mRight = 3;
            return;
        case 0x7D:
            mRight = 2;
            return;
        case 0x7E:
            mRight = 1;
            return;
        default:
            break;
    }
    const bool wide = code == 0x24;
    size_t number = 0;
    if (wide) {
        code = take();
    }
    if (code >= 0x28 && code <= 0x2B) {
        number = code - 0x28u;
    } else if (wide && mAt > 0) {
        --mAt;  // the short form, of G0: that was the final byte
    } else {
        return;
    }
    uint8_t final = take();
    const bool drawn = final == 0x20;
    final = drawn ? take() : final;
    mSets[number] = drawn ? wide ? Set::UNKNOWN_WIDE : Set::UNKNOWN : setOf(final, wide);
}

// Up to its final byte, which says what it is.
void EightBitText::controlSequence() {
    uint8_t code = 0x20;
    while (mAt < mRaw->size() && code < 0x40) {
        code = take();
    }
}

void EightBitText::character(uint8_t first) {
    const size_t number = mSingle >= 0   ? static_cast<size_t>(mSingle)
                          : first < 0x80 ? mLeft
                                         : mRight;
    mSingle = -1;
    const Set set = mSets[number];
    if (isWide(set) && mAt == mRaw->size()) {
        return;
    }
    put(set, first, isWide(set) ? take() : 0);
}

void EightBitText::put(Set set, uint8_t first, uint8_t second) {
    const uint8_t code = first & 0x7F;
    if (set != Set::LATIN && (code == 0x20 || code == 0x7F)) {
        return;  // only that set has characters there
    }
    switch (set) {
        case Set::LETTERS:
            if (mCoding == TextCoding::JAPANESE && (code == 0x5C || code == 0x7E)) {
                mOut.push_back(code == 0x5C ? 0xA5 : 0x203E);
            } else {
                mOut.push_back(code);
            }
            break;
        case Set::LATIN:
            mOut.push_back(
                UTF32::getUTF32Char(UTF32::CHARSET_DEFAULT, static_cast<char>(code | 0x80)));
            break;
        case Set::LATIN_SPECIAL:
            mOut.push_back(UTF32::getUTF32Char(UTF32::CHARSET_SPECIAL, static_cast<char>(code)));
            break;
        case Set::HIRAGANA:
            mOut.push_back(kana(code, 0x3041, 0x309D, 0x73));
            break;
        case Set::KATAKANA:
            mOut.push_back(kana(code, 0x30A1, 0x30FD, 0x76));
            break;
        case Set::HALF_KATAKANA:
            mOut.push_back(code <= 0x5F ? 0xFF61 + (code - 0x21u) : MISSING);
            break;
        case Set::KANJI:
            putKanji("EUC-JP", code, second & 0x7F);
            break;
        case Set::KANJI_EXTENDED:
            putKanji("EUC-JISX0213", code, second & 0x7F);
            break;
        default:
            mOut.push_back(MISSING);
            break;
    }
}

void EightBitText::putKanji(const char* charset, uint8_t first, uint8_t second) {
    const bool isCode = first > 0x20 && second > 0x20 && second < 0x7F;
    if (isCode && first - 0x20 >= FIRST_SYMBOL_ROW) {
        const std::u32string_view symbol = broadcastSymbol(first - 0x20, second - 0x20);
        mOut.insert(mOut.end(), symbol.begin(), symbol.end());
        if (!symbol.empty()) {
            return;
        }
    }
    const uint32_t converted = isCode ? convert(charset, first, second) : 0;
    mOut.push_back(converted != 0 ? converted : MISSING);
}

}  // namespace orvplay
