#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace orvhost {

// What a recording's files are called, without the folder and the extension.
struct NameParts {
    int64_t timeS = 0;  // since 1970; names tell it in local time
    std::string stationName;
    std::string programmeName;
};

// {date} {time} {channel} {programme} stand for their values, anything else for itself. A text
// between two values goes when the second is empty, or nothing stands before it.
constexpr char DEFAULT_NAME_TEMPLATE[] = "{date} {time} {channel} - {programme}";

// Leaves room for " (999)", an extension and a temporary one in the 255 bytes of a file name.
constexpr size_t MAX_NAME_BYTES = 200;
constexpr size_t MAX_LABEL_BYTES = 1024;

// Valid UTF-8 of at most `most` bytes, cut at a character: what is not UTF-8 becomes U+FFFD, a zero
// ends the text.
std::string cleanText(std::string_view text, size_t most = MAX_LABEL_BYTES);

// "2026-11-21 2030 CHANNEL - PROGRAMME": characters that some file system cannot hold (those of
// FAT and SMB included), and control characters, become "_"; never empty, never hidden, never ends
// with a dot or blank. An empty template is the default one.
std::string recordingName(const std::string& nameTemplate, const NameParts& parts);

// The first of "name", "name (2)", "name (3)"... that `take` takes; empty when it takes none of the
// first thousand.
std::string firstFreeName(const std::string& name,
                          const std::function<bool(const std::string&)>& take);

}  // namespace orvhost
