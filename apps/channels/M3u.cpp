#include "channels/M3u.h"

#include <utf8proc.h>

#include <algorithm>
#include <charconv>
#include <string_view>

#include "channels/Utf8.h"

namespace orvplay {

namespace {

constexpr size_t MAX_LINE = 4096;
constexpr size_t MAX_CHANNELS = 10'000;
constexpr std::string_view EXTINF = "#EXTINF:";
constexpr std::string_view PROGRAM = "#EXTVLCOPT:program=";
constexpr std::string_view ONE_SEGMENT = "1seg";

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

std::string_view trimmed(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || isControl(c); };
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        utf8proc_int32_t character = 0;
        const auto size = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                           static_cast<utf8proc_ssize_t>(text.size()), &character);
        if (size <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<size_t>(size));
    }
    return true;
}

std::string nameOf(std::string_view raw) {
    std::string name;
    const bool utf8 = isUtf8(raw);
    for (const char c : trimmed(raw)) {
        if (isControl(c)) {
            name.push_back(' ');
        } else if (utf8) {
            name.push_back(c);
        } else {
            appendUtf8(static_cast<unsigned char>(c), &name);
        }
    }
    return name;
}

// Of attributes like tvg-chno="6.1".
std::string_view attribute(std::string_view line, std::string_view name) {
    const std::string key = std::string(name) + "=\"";
    const size_t at = line.find(key);
    if (at == std::string_view::npos) {
        return {};
    }
    line.remove_prefix(at + key.size());
    return line.substr(0, std::min(line.find('"'), line.size()));
}

// Behind the comma that ends the attributes, which may hold some themselves.
std::string_view titleOf(std::string_view line) {
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        quoted = quoted != (line[i] == '"');
        if (line[i] == ',' && !quoted) {
            return line.substr(i + 1);
        }
    }
    return {};
}

void readLine(std::string_view line, Channel* next, std::vector<Channel>* channels) {
    if (line.substr(0, EXTINF.size()) == EXTINF) {
        next->name = nameOf(titleOf(line));
        next->number = nameOf(attribute(line, "tvg-chno"));
        next->oneSegment = attribute(line, "group-title") == ONE_SEGMENT;
    } else if (line.substr(0, PROGRAM.size()) == PROGRAM) {
        const std::string_view number = line.substr(PROGRAM.size());
        uint16_t id = 0;
        const auto parsed = std::from_chars(number.data(), number.data() + number.size(), id);
        next->serviceId = parsed.ec == std::errc() ? id : 0;
    } else if (!line.empty() && line.front() != '#') {
        if (std::none_of(line.begin(), line.end(), isControl) && isUtf8(line)) {
            next->source = line;
            next->name = next->name.empty() ? next->source : next->name;
            channels->push_back(*next);
        }
        *next = {};
    }
}

// Inside of quotes, and on one line.
std::string quotable(std::string text) {
    for (char& c : text) {
        c = isControl(c) ? ' ' : c == '"' ? '\'' : c;
    }
    return text;
}

}  // namespace

std::vector<Channel> parseM3u(const std::string& text) {
    constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
    std::vector<Channel> channels;
    if (text.find('\0') != std::string::npos) {
        return channels;  // no text: lines would be found in anything
    }
    Channel next;
    std::string_view rest = text;
    if (rest.substr(0, BYTE_ORDER_MARK.size()) == BYTE_ORDER_MARK) {
        rest.remove_prefix(BYTE_ORDER_MARK.size());
    }
    while (!rest.empty() && channels.size() < MAX_CHANNELS) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = rest.substr(0, end);
        if (line.size() <= MAX_LINE) {
            readLine(trimmed(line), &next, &channels);
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return channels;
}

std::string toM3u(const std::vector<Channel>& channels) {
    std::string text = "#EXTM3U\n";
    for (const Channel& channel : channels) {
        text += std::string(EXTINF) + "-1";
        if (!channel.number.empty()) {
            text += " tvg-chno=\"" + quotable(channel.number) + "\"";
        }
        if (channel.oneSegment) {
            text += " group-title=\"" + std::string(ONE_SEGMENT) + "\"";
        }
        text += "," + quotable(channel.name) + "\n";
        if (channel.serviceId != 0) {
            text += std::string(PROGRAM) + std::to_string(channel.serviceId) + "\n";
        }
        text += channel.source + "\n";
    }
    return text;
}

}  // namespace orvplay
