#include "decoder/UTF32.h"

#include <array>

namespace OrvPlayer {

namespace {

using Table = std::array<uint32_t, 256>;

constexpr Table identity() {
    Table table{};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        table[byte] = byte;
    }
    return table;
}

// ISO/IEC 8859-1 but for the eight positions that ISO/IEC 8859-15 gives to other characters.
constexpr Table latin9() {
    Table table = identity();
    table[0xA4] = 0x20AC;
    table[0xA6] = 0x0160;
    table[0xA8] = 0x0161;
    table[0xB4] = 0x017D;
    table[0xB8] = 0x017E;
    table[0xBC] = 0x0152;
    table[0xBD] = 0x0153;
    table[0xBE] = 0x0178;
    return table;
}

constexpr Table specialCharacters() {
    Table table = identity();
    table[0x21] = 0x266A;
    // The characters of ISO/IEC 8859-1 whose places are taken above.
    constexpr uint32_t REPLACED[] = {0xA4, 0xA6, 0xA8, 0xB4, 0xB8, 0xBC, 0xBD, 0xBE};
    for (uint32_t i = 0; i < 8; ++i) {
        table[0x30 + i] = REPLACED[i];
    }
    constexpr uint32_t SIGNS[] = {0x2026, 0x2588, 0x2018, 0x2019, 0x201C, 0x201D,
                                  0x2022, 0x2122, 0x215B, 0x215C, 0x215D, 0x215E};
    for (uint32_t i = 0; i < 12; ++i) {
        table[0x40 + i] = SIGNS[i];
    }
    return table;
}

constexpr Table DEFAULT = latin9();
constexpr Table SPECIAL = specialCharacters();

}  // namespace

uint32_t UTF32::getUTF32Char(charset_t charset, char character) {
    const auto byte = static_cast<unsigned char>(character);
    switch (charset) {
        case CHARSET_DEFAULT:
            return DEFAULT[byte];
        case CHARSET_SPECIAL:
            return SPECIAL[byte];
    }
    return byte;
}

}  // namespace OrvPlayer
