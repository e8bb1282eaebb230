#include "CaptionText.h"

#include <cstring>

namespace orvclient {

namespace {

constexpr uint32_t REPLACEMENT = 0xFFFD;
constexpr uint32_t LAST = 0x10FFFF;

bool isSurrogate(uint32_t codePoint) {
    return codePoint >= 0xD800 && codePoint <= 0xDFFF;
}

void append(uint32_t codePoint, std::string* text) {
    const auto put = [text](uint32_t byte) { text->push_back(static_cast<char>(byte)); };
    const auto putRest = [&put, codePoint](int shift) { put(0x80 | (codePoint >> shift & 0x3F)); };
    if (codePoint < 0x80) {
        put(codePoint);
    } else if (codePoint < 0x800) {
        put(0xC0 | codePoint >> 6);
        putRest(0);
    } else if (codePoint < 0x10000) {
        put(0xE0 | codePoint >> 12);
        putRest(6);
        putRest(0);
    } else {
        put(0xF0 | codePoint >> 18);
        putRest(12);
        putRest(6);
        putRest(0);
    }
}

}  // namespace

std::string captionUtf8(const uint8_t* codePoints, size_t bytes) {
    std::string text;
    for (size_t at = 0; at + sizeof(uint32_t) <= bytes; at += sizeof(uint32_t)) {
        uint32_t codePoint = 0;
        memcpy(&codePoint, codePoints + at, sizeof codePoint);
        append(codePoint > LAST || isSurrogate(codePoint) ? REPLACEMENT : codePoint, &text);
    }
    return text;
}

}  // namespace orvclient
