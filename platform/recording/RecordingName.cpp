#include "recording/RecordingName.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace orvhost {

namespace {

constexpr size_t MAX_CHANNEL_BYTES = 64;
constexpr int MAX_TRIES = 1000;

// The bytes of the well-formed UTF-8 character (RFC 3629) at the start of the text; 0 for none.
size_t characterBytes(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t lead = byte(0);
    if (lead < 0x80) {
        return 1;
    }
    const size_t size = lead >= 0xC2 && lead <= 0xDF   ? 2
                        : lead >= 0xE0 && lead <= 0xEF ? 3
                        : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                       : 0;
    if (size == 0 || text.size() < size) {
        return 0;
    }
    for (size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    // Overlong forms, surrogates, and what lies above U+10FFFF.
    const bool wrong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xED && byte(1) > 0x9F) ||
                       (lead == 0xF0 && byte(1) < 0x90) || (lead == 0xF4 && byte(1) > 0x8F);
    return wrong ? 0 : size;
}

// At most `most` bytes of a valid text.
std::string_view cutText(std::string_view text, size_t most) {
    if (text.size() <= most) {
        return text;
    }
    while (most > 0 && (static_cast<uint8_t>(text[most]) & 0xC0) == 0x80) {
        --most;
    }
    return text.substr(0, most);
}

// Of a valid text.
std::string withoutBadCharacters(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<uint8_t>(text[i]);
        // The control characters U+0080 to U+009F are C2 80 to C2 9F.
        if (c == 0xC2 && static_cast<uint8_t>(text[i + 1]) < 0xA0) {
            ++i;
            out += '_';
        } else if (c < 0x20 || c == 0x7F || strchr("/\\:*?\"<>|", c) != nullptr) {
            out += '_';
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string valueOf(std::string_view field, const NameParts& parts) {
    const auto time = static_cast<time_t>(parts.timeS);
    std::tm local = {};
    localtime_r(&time, &local);
    std::array<char, 48> text{};
    if (field == "date") {
        snprintf(text.data(), text.size(), "%04d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1,
                 local.tm_mday);
        return text.data();
    }
    if (field == "time") {
        snprintf(text.data(), text.size(), "%02d%02d", local.tm_hour, local.tm_min);
        return text.data();
    }
    return field == "channel" ? cleanText(parts.stationName, MAX_CHANNEL_BYTES)
                              : cleanText(parts.programmeName, MAX_NAME_BYTES);
}

// Where the next {field} that is known begins; its name in `field`.
size_t findField(std::string_view text, size_t from, std::string_view* field) {
    size_t first = std::string_view::npos;
    for (const std::string_view name : {"date", "time", "channel", "programme"}) {
        const size_t at = text.find("{" + std::string(name) + "}", from);
        if (at < first) {
            first = at;
            *field = name;
        }
    }
    return first;
}

std::string fill(std::string_view text, const NameParts& parts) {
    std::string out;
    size_t at = 0;
    std::string_view field;
    for (size_t next = findField(text, 0, &field); next != std::string_view::npos;
         next = findField(text, at, &field)) {
        const std::string value = valueOf(field, parts);
        if (!value.empty()) {
            out += at == 0 || !out.empty() ? text.substr(at, next - at) : "";
            out += value;
        }
        at = next + field.size() + 2;
    }
    return out + std::string(text.substr(at));
}

}  // namespace

std::string cleanText(std::string_view text, size_t most) {
    text = text.substr(0, text.find('\0'));
    std::string out;
    while (!text.empty() && out.size() < most) {
        const size_t size = characterBytes(text);
        out += size > 0 ? text.substr(0, size) : "\xEF\xBF\xBD";
        text.remove_prefix(size > 0 ? size : 1);
    }
    return std::string(cutText(out, most));
}

std::string recordingName(const std::string& nameTemplate, const NameParts& parts) {
    const std::string text = nameTemplate.empty() ? DEFAULT_NAME_TEMPLATE : cleanText(nameTemplate);
    std::string name = withoutBadCharacters(fill(text, parts));
    name.erase(0, name.find_first_not_of(' '));
    name = cutText(name, MAX_NAME_BYTES);
    name.erase(name.find_last_not_of(" .") + 1);
    if (!name.empty() && name[0] == '.') {
        name[0] = '_';
    }
    return name.empty() ? "recording" : name;
}

std::string firstFreeName(const std::string& name,
                          const std::function<bool(const std::string&)>& take) {
    for (int i = 1; i <= MAX_TRIES; ++i) {
        std::string candidate = i == 1 ? name : name + " (" + std::to_string(i) + ")";
        if (take(candidate)) {
            return candidate;
        }
    }
    return "";
}

}  // namespace orvhost
