#include "HumanText.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace orvplay {

namespace {

bool beginsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

}  // namespace

std::string sizeText(int64_t bytes) {
    constexpr std::array UNITS = {"kB", "MB", "GB", "TB", "PB"};
    if (bytes < 1000) {
        return std::to_string(bytes) + " B";
    }
    double value = static_cast<double>(bytes) / 1000;
    size_t unit = 0;
    // What would be rounded to 1000 is one of the next unit.
    for (; value >= 999.5 && unit + 1 < UNITS.size(); ++unit) {
        value /= 1000;
    }
    char text[32];
    snprintf(text, sizeof text, value < 99.95 ? "%.1f %s" : "%.0f %s", value, UNITS[unit]);
    return text;
}

std::string timeText(int64_t ms) {
    const int64_t seconds = ms / 1000;
    char text[48];
    if (seconds < 3600) {
        snprintf(text, sizeof text, "%d:%02d", static_cast<int>(seconds / 60),
                 static_cast<int>(seconds % 60));
    } else {
        snprintf(text, sizeof text, "%lld:%02d:%02d", static_cast<long long>(seconds / 3600),
                 static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
    }
    return text;
}

std::string dateText(int64_t secondsSince1970) {
    const auto time = static_cast<time_t>(secondsSince1970);
    tm local = {};
    char text[32];
    if (time <= 0 || localtime_r(&time, &local) == nullptr ||
        strftime(text, sizeof text, "%Y-%m-%d %H:%M", &local) == 0) {
        return "-";
    }
    return text;
}

std::string printable(const std::string& utf8) {
    std::string text = utf8;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        if (byte < 0x20 || byte == 0x7F) {
            text[i] = ' ';
        } else if (byte == 0xC2 && next >= 0x80 && next < 0xA0) {
            text.replace(i, 2, " ");  // U+0080 to U+009F command too
        }
    }
    return text;
}

std::string column(const std::string& utf8, size_t characters) {
    size_t count = 0;
    size_t cut = 0;  // where the last character that may stay ends
    for (size_t i = 0; i < utf8.size(); ++i) {
        if (beginsCharacter(utf8[i])) {
            cut = count + 1 == characters ? i : cut;
            ++count;
        }
    }
    if (count > characters) {
        return utf8.substr(0, cut) + "~";
    }
    return utf8 + std::string(characters - count, ' ');
}

}  // namespace orvplay
