#include "channels/SearchText.h"

#include <utf8proc.h>

#include <vector>

#include "channels/Utf8.h"

namespace orvplay {

namespace {

// Marks of Latin, Greek and Cyrillic letters; a kana's mark makes it another one.
bool isAccent(utf8proc_int32_t character) {
    return character >= 0x0300 && character <= 0x036F;
}

bool isSearched(utf8proc_int32_t character) {
    switch (utf8proc_category(character)) {
        case UTF8PROC_CATEGORY_LU:
        case UTF8PROC_CATEGORY_LL:
        case UTF8PROC_CATEGORY_LT:
        case UTF8PROC_CATEGORY_LM:
        case UTF8PROC_CATEGORY_LO:
        case UTF8PROC_CATEGORY_MN:
        case UTF8PROC_CATEGORY_MC:
        case UTF8PROC_CATEGORY_ND:
        case UTF8PROC_CATEGORY_NL:
        case UTF8PROC_CATEGORY_NO:
            return !isAccent(character);
        default:
            return false;
    }
}

}  // namespace

std::string searchText(const std::string& utf8) {
    constexpr auto HOW =
        static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE | UTF8PROC_COMPAT | UTF8PROC_CASEFOLD);
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(utf8.data());
    const auto size = static_cast<utf8proc_ssize_t>(utf8.size());
    // A character comes to at most 18; the library tells when it does not fit.
    std::vector<utf8proc_int32_t> characters(utf8.size() * 4 + 32);
    utf8proc_ssize_t count = 0;
    for (int tries = 0; tries < 2; ++tries) {
        count = utf8proc_decompose(bytes, size, characters.data(),
                                   static_cast<utf8proc_ssize_t>(characters.size()), HOW);
        if (count <= static_cast<utf8proc_ssize_t>(characters.size())) {
            break;
        }
        characters.resize(static_cast<size_t>(count));
    }
    std::string text;
    bool gap = false;
    for (utf8proc_ssize_t i = 0; i < count; ++i) {
        const utf8proc_int32_t character = characters[static_cast<size_t>(i)];
        if (isSearched(character)) {
            text += gap && !text.empty() ? " " : "";
            gap = false;
            appendUtf8(static_cast<uint32_t>(character), &text);
        } else if (!isAccent(character)) {
            gap = true;
        }
    }
    return text;
}

}  // namespace orvplay
