#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvplay {

// Which profile of the 8-bit character coding (ARIB STD-B24 volume 1 part 2) a text is in.
enum class TextCoding {
    LATIN,     // of SBTVD (ABNT NBR 15606-1): ISO/IEC 8859-15 and a set of special characters
    JAPANESE,  // kanji, kana, letters and symbols
};

// By the network, whose ids Japan has from 0x7C00 on; where no table tells it (-1) by the language
// of the text, which may be empty.
TextCoding textCodingOf(int originalNetworkId, const std::string& language = {});

// A name or text of the tables as UTF-8, without control characters but line feeds. Full-width
// letters, digits and signs come as their ASCII, half-width katakana as the wide ones, and marks
// like that of captioned programmes in brackets: "[字]". A character that the sets do not have
// comes as U+3013. What the text says of colours and sizes is read past.
std::string broadcastText(const std::vector<uint8_t>& raw, TextCoding coding);

}  // namespace orvplay
