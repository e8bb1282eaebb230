#include <fontconfig/fontconfig.h>

#include <cstdio>
#include <memory>

#include "Checks.h"
#include "decoder/UTF32.h"

namespace orvdoctor {

namespace {

using State = Finding::State;

constexpr char INSTALL[] = "sudo apt-get install fonts-dejavu-core";

struct PatternEnd {
    void operator()(FcPattern* pattern) const { FcPatternDestroy(pattern); }
};
struct CharsEnd {
    void operator()(FcCharSet* chars) const { FcCharSetDestroy(chars); }
};
struct FontsEnd {
    void operator()(FcFontSet* fonts) const { FcFontSetDestroy(fonts); }
};
using Pattern = std::unique_ptr<FcPattern, PatternEnd>;
using Chars = std::unique_ptr<FcCharSet, CharsEnd>;

// What a caption may show: both character sets of it, without controls, blanks and what no font
// has, the marks for private use.
Chars captionCharacters() {
    using OrvPlayer::UTF32;
    Chars chars(FcCharSetCreate());
    for (const auto charset : {UTF32::CHARSET_DEFAULT, UTF32::CHARSET_SPECIAL}) {
        for (int byte = 0; byte < 256; ++byte) {
            const uint32_t one = UTF32::getUTF32Char(charset, static_cast<char>(byte));
            const bool isControl = one <= 0x20 || (one >= 0x7F && one <= 0xA0) || one == 0xAD;
            const bool isPrivate = one >= 0xE000 && one <= 0xF8FF;
            if (!isControl && !isPrivate) {
                FcCharSetAddChar(chars.get(), one);
            }
        }
    }
    return chars;
}

// Takes away what some font has, in whatever order texts are shaped from them. How many are left,
// and the first of these.
unsigned charactersLeft(Chars chars, uint32_t* first) {
    const Pattern any(FcPatternCreate());
    const std::unique_ptr<FcObjectSet, decltype(&FcObjectSetDestroy)> fields(
        FcObjectSetBuild(FC_CHARSET, nullptr), FcObjectSetDestroy);
    const std::unique_ptr<FcFontSet, FontsEnd> fonts(FcFontList(nullptr, any.get(), fields.get()));
    for (int i = 0; fonts != nullptr && i < fonts->nfont; ++i) {
        FcCharSet* has = nullptr;
        if (FcPatternGetCharSet(fonts->fonts[i], FC_CHARSET, 0, &has) == FcResultMatch) {
            chars.reset(FcCharSetSubtract(chars.get(), has));
        }
    }
    FcChar32 map[FC_CHARSET_MAP_SIZE];
    FcChar32 next = 0;
    const FcChar32 page = FcCharSetFirstPage(chars.get(), map, &next);
    *first = 0;
    for (unsigned bit = 0; page != FC_CHARSET_DONE && bit < FC_CHARSET_MAP_SIZE * 32; ++bit) {
        if ((map[bit / 32] >> (bit % 32) & 1) != 0) {
            *first = page + bit;
            break;
        }
    }
    return FcCharSetCount(chars.get());
}

// The family that texts are drawn with, empty when there is none.
std::string sansSerif() {
    const Pattern wanted(FcNameParse(reinterpret_cast<const FcChar8*>("sans-serif")));
    FcConfigSubstitute(nullptr, wanted.get(), FcMatchPattern);
    FcDefaultSubstitute(wanted.get());
    FcResult result = FcResultNoMatch;
    const Pattern found(FcFontMatch(nullptr, wanted.get(), &result));
    FcChar8* family = nullptr;
    return found != nullptr &&
                   FcPatternGetString(found.get(), FC_FAMILY, 0, &family) == FcResultMatch
               ? reinterpret_cast<const char*>(family)
               : "";
}

}  // namespace

Finding checkFonts() {
    const std::string family = FcInit() == FcTrue ? sansSerif() : "";
    if (family.empty()) {
        return {"fonts", State::MISSING,
                "no font is found: neither captions nor the screen's texts can be shown", INSTALL};
    }
    uint32_t first = 0;
    if (const unsigned left = charactersLeft(captionCharacters(), &first); left > 0) {
        char text[96];
        snprintf(text, sizeof text, "no font has %u of the characters of captions, as U+%04X", left,
                 first);
        return {"fonts", State::WARNING, text, INSTALL};
    }
    return {"fonts", State::OK, family + " and what stands in for it have all that captions show",
            ""};
}

}  // namespace orvdoctor
