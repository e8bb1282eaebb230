#include "mksample/BroadcastCoding.h"

#include <iconv.h>

namespace mksample {
namespace {

constexpr uint8_t kKanjiLeft = 0x0F;    // LS0
constexpr uint8_t kLettersLeft = 0x0E;  // LS1
constexpr uint8_t kSingleShift3 = 0x1D;
// Rows of JIS X 0208, in EUC-JP.
constexpr uint8_t kHiraganaRow = 0xA4;
constexpr uint8_t kKatakanaRow = 0xA5;

std::string convert(std::string utf8, const char* coding) {
    const iconv_t converter = iconv_open(coding, "UTF-8");
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        throw Failure(std::string("this system's iconv does not know ") + coding);
    }
    std::string out(utf8.size() * 2 + 8, '\0');
    char* from = utf8.data();
    char* to = out.data();
    size_t fromLeft = utf8.size();
    size_t toLeft = out.size();
    const bool done = iconv(converter, &from, &fromLeft, &to, &toLeft) == 0;
    iconv_close(converter);
    if (!done) {
        throw Failure("\"" + utf8 + "\" has no " + coding + " code");
    }
    out.resize(out.size() - toLeft);
    return out;
}

std::vector<uint8_t> japaneseText(const std::string& utf8) {
    const std::string euc = convert(utf8, "EUC-JP");
    std::vector<uint8_t> out;
    bool letters = false;
    const auto shift = [&](bool toLetters) {
        if (letters != toLetters) {
            out.push_back(toLetters ? kLettersLeft : kKanjiLeft);
            letters = toLetters;
        }
    };
    for (size_t i = 0; i < euc.size(); ++i) {
        const auto first = static_cast<uint8_t>(euc[i]);
        if (first < 0x80) {
            shift(true);
            out.push_back(first);
            continue;
        }
        const auto second = static_cast<uint8_t>(i + 1 < euc.size() ? euc[i + 1] : 0);
        if (first < 0xA1 || second < 0xA1) {
            throw Failure("\"" + utf8 + "\" holds a character that is not in JIS X 0208");
        }
        ++i;
        if (first == kHiraganaRow) {
            out.push_back(second);
        } else if (first == kKatakanaRow) {
            out.insert(out.end(), {kSingleShift3, static_cast<uint8_t>(second & 0x7F)});
        } else {
            shift(false);
            out.insert(out.end(),
                       {static_cast<uint8_t>(first & 0x7F), static_cast<uint8_t>(second & 0x7F)});
        }
    }
    return out;
}

}  // namespace

std::vector<uint8_t> broadcastText(const std::string& utf8, Country country) {
    if (country == Country::Japan) {
        return japaneseText(utf8);
    }
    const std::string bytes = country == Country::Brazil ? convert(utf8, "ISO-8859-15") : utf8;
    return {bytes.begin(), bytes.end()};
}

}  // namespace mksample
