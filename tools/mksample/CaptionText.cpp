#include "mksample/CaptionText.h"

#include <iconv.h>

#include "mksample/Options.h"

namespace mksample {
namespace {

constexpr uint8_t kReturn = 0x0D;  // APR
constexpr uint8_t kClear = 0x0C;   // CS
constexpr uint8_t kSet = 0x1C;     // APS
constexpr uint8_t kSingleShift3 = 0x1D;
constexpr uint8_t kSequence = 0x9B;  // CSI
constexpr uint8_t kFirstParameter = 0x40;

// The byte for one character; 0 when ISO/IEC 8859-15 has none for it.
uint8_t latinByte(std::string utf8) {
    const iconv_t converter = iconv_open("ISO-8859-15", "UTF-8");
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        throw Failure("this system's iconv does not know ISO-8859-15");
    }
    char* in = utf8.data();
    size_t inLeft = utf8.size();
    char byte = 0;
    char* out = &byte;
    size_t outLeft = 1;
    const bool done = iconv(converter, &in, &inLeft, &out, &outLeft) == 0 && outLeft == 0;
    iconv_close(converter);
    return done ? static_cast<uint8_t>(byte) : 0;
}

bool startsCharacter(char byte) {
    return (static_cast<uint8_t>(byte) & 0xC0) != 0x80;
}

}  // namespace

CaptionText& CaptionText::text(const std::string& utf8) {
    if (mInSequence) {
        throw Failure("a caption has text behind a control sequence");
    }
    for (size_t at = 0; at < utf8.size();) {
        size_t end = at + 1;
        while (end < utf8.size() && !startsCharacter(utf8[end])) {
            ++end;
        }
        const std::string character = utf8.substr(at, end - at);
        const uint8_t byte = latinByte(character);
        if (byte < 0x20) {
            throw Failure("a caption holds \"" + character + "\", which has no Latin code");
        }
        mBytes.push_back(byte);
        place(character);
        at = end;
    }
    return *this;
}

CaptionText& CaptionText::special(uint8_t code, const std::string& utf8) {
    control({kSingleShift3});
    mBytes.push_back(code);
    place(utf8);
    return *this;
}

CaptionText& CaptionText::control(std::initializer_list<uint8_t> codes) {
    mBytes.insert(mBytes.end(), codes);
    mInSequence = false;
    return *this;
}

CaptionText& CaptionText::sequence(const std::string& rest) {
    control({kSequence});
    mBytes.insert(mBytes.end(), rest.begin(), rest.end());
    mInSequence = true;
    return *this;
}

CaptionText& CaptionText::newRow() {
    mRowPending = true;
    return control({kReturn});
}

CaptionText& CaptionText::position(int row, int column) {
    mRowPending = true;
    return control({kSet, static_cast<uint8_t>(kFirstParameter + row),
                    static_cast<uint8_t>(kFirstParameter + column)});
}

CaptionText& CaptionText::clear() {
    mRowsShown.clear();
    mRowPending = true;
    return control({kClear});
}

void CaptionText::place(const std::string& utf8Character) {
    if (mRowPending || mRowsShown.back().columns == kColumns) {
        mRowsShown.emplace_back();
        mRowPending = false;
    }
    mRowsShown.back().text += utf8Character;
    ++mRowsShown.back().columns;
}

std::string CaptionText::shown() const {
    std::string all;
    const size_t hidden = mRowsShown.size() > kRows ? mRowsShown.size() - kRows : 0;
    for (size_t i = hidden; i < mRowsShown.size(); ++i) {
        all += mRowsShown[i].text + (mRowsShown[i].columns < kColumns ? "\n" : "");
    }
    return all;
}

}  // namespace mksample
