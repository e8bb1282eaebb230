#pragma once

#include <sys/types.h>

#include <string>

namespace android {

// The text type of the media classes: bytes with a length, copied by value.
class AString {
public:
    AString() = default;
    AString(const char* text) : mText(text != nullptr ? text : "") {}  // NOLINT: as on the platform
    AString(const char* text, size_t size) : mText(text, size) {}

    const char* c_str() const { return mText.c_str(); }
    size_t size() const { return mText.size(); }
    bool empty() const { return mText.empty(); }
    void clear() { mText.clear(); }
    void setTo(const char* text) { mText = text != nullptr ? text : ""; }
    void append(const char* text) { mText += text; }

    bool operator==(const AString& other) const { return mText == other.mText; }
    bool operator==(const char* other) const { return mText == other; }

private:
    std::string mText;
};

}  // namespace android
