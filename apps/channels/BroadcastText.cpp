#include "channels/BroadcastText.h"

#include <utf8proc.h>

#include <cstdlib>

#include "channels/Channel.h"
#include "channels/EightBitText.h"
#include "channels/Utf8.h"

namespace orvplay {

namespace {

constexpr uint32_t WIDE_SPACE = 0x3000;

// The block of half-width and full-width forms.
bool isWidthForm(uint32_t character) {
    return character >= 0xFF01 && character <= 0xFFEE;
}

// Both halves of a kana with its sound mark become one, so they are taken together.
std::string withoutWidth(const std::string& run) {
    utf8proc_uint8_t* mapped =
        utf8proc_NFKC(reinterpret_cast<const utf8proc_uint8_t*>(run.c_str()));
    const std::string text = mapped != nullptr ? reinterpret_cast<char*>(mapped) : run;
    free(mapped);
    return text;
}

}  // namespace

TextCoding textCodingOf(int originalNetworkId, const std::string& language) {
    const bool isJapanese =
        originalNetworkId >= 0 ? isJapaneseNetwork(originalNetworkId) : language == "jpn";
    return isJapanese ? TextCoding::JAPANESE : TextCoding::LATIN;
}

std::string broadcastText(const std::vector<uint8_t>& raw, TextCoding coding) {
    std::string text;
    std::string run;  // of width forms
    const auto endRun = [&] {
        if (!run.empty()) {
            text += withoutWidth(run);
            run.clear();
        }
    };
    for (const uint32_t character : EightBitText(coding).decode(raw)) {
        if (isWidthForm(character)) {
            appendUtf8(character, &run);
            continue;
        }
        endRun();
        appendUtf8(character == WIDE_SPACE ? ' ' : character, &text);
    }
    endRun();
    return text;
}

}  // namespace orvplay
