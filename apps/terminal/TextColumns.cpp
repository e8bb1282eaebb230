#include "TextColumns.h"

#include <utf8proc.h>

#include <algorithm>

#include "channels/Utf8.h"

namespace orvplay {

namespace {

constexpr uint32_t REPLACEMENT = 0xFFFD;
constexpr int MARKS_MAX = 2;  // on one character: more is a heap that hides the rows around it

struct Character {
    utf8proc_int32_t code = 0;
    size_t size = 0;  // bytes
};

// The character at `at`; of a byte that begins none, that byte with U+FFFD.
Character characterAt(const std::string& utf8, size_t at) {
    Character character;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(utf8.data()) + at;
    const utf8proc_ssize_t got =
        utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(utf8.size() - at), &character.code);
    if (got <= 0) {
        return {static_cast<utf8proc_int32_t>(REPLACEMENT), 1};
    }
    character.size = static_cast<size_t>(got);
    return character;
}

bool isMark(utf8proc_int32_t code) {
    const auto category = utf8proc_category(code);
    return category == UTF8PROC_CATEGORY_MN || category == UTF8PROC_CATEGORY_ME;
}

// What a terminal is given for it; 0: nothing.
uint32_t shown(utf8proc_int32_t code) {
    switch (utf8proc_category(code)) {
        case UTF8PROC_CATEGORY_CC:
        case UTF8PROC_CATEGORY_ZL:
        case UTF8PROC_CATEGORY_ZP:
        case UTF8PROC_CATEGORY_ZS:
            return code == 0x3000 ? 0x3000 : ' ';
        case UTF8PROC_CATEGORY_CF:
            return 0;
        case UTF8PROC_CATEGORY_CS:
        case UTF8PROC_CATEGORY_CO:
        case UTF8PROC_CATEGORY_CN:
            return '?';
        default:
            return static_cast<uint32_t>(code);
    }
}

int widthOf(utf8proc_int32_t code) {
    return isMark(code) ? 0 : std::max(utf8proc_charwidth(code), 1);
}

// Where the longest beginning of at most so many columns ends.
size_t endOf(const std::string& text, size_t from, int columns) {
    size_t at = from;
    int used = 0;
    while (at < text.size()) {
        const Character character = characterAt(text, at);
        used += widthOf(character.code);
        if (used > columns) {
            break;
        }
        at += character.size;
    }
    return at;
}

}  // namespace

std::string terminalText(const std::string& utf8) {
    std::string text;
    int marks = MARKS_MAX;  // none stands alone at the beginning
    for (size_t at = 0; at < utf8.size();) {
        const Character character = characterAt(utf8, at);
        at += character.size;
        const uint32_t code = shown(character.code);
        if (code == 0) {
            continue;
        }
        marks = isMark(character.code) ? marks + 1 : 0;
        if (marks <= MARKS_MAX) {
            appendUtf8(code, &text);
        }
    }
    return text;
}

int columnsOf(const std::string& text) {
    int columns = 0;
    for (size_t at = 0; at < text.size();) {
        const Character character = characterAt(text, at);
        columns += widthOf(character.code);
        at += character.size;
    }
    return columns;
}

std::string cutToColumns(const std::string& text, int columns) {
    if (columns <= 0) {
        return {};
    }
    return endOf(text, 0, columns) == text.size()
               ? text
               : text.substr(0, endOf(text, 0, columns - 1)) + "~";
}

std::vector<std::string> wrapToColumns(const std::string& text, int columns, size_t lines) {
    std::vector<std::string> wrapped;
    for (size_t at = 0; at < text.size() && wrapped.size() < lines && columns > 0;) {
        if (wrapped.size() + 1 == lines) {
            wrapped.push_back(cutToColumns(text.substr(at), columns));
            break;
        }
        size_t end = endOf(text, at, columns);
        if (end == at) {
            end += characterAt(text, at).size;  // wider than the line: cut away below
        } else if (end < text.size() && text[end] != ' ') {
            const size_t blank = text.rfind(' ', end);
            end = blank != std::string::npos && blank > at ? blank : end;
        }
        wrapped.push_back(cutToColumns(text.substr(at, end - at), columns));
        at = text.find_first_not_of(' ', end);
        at = at == std::string::npos ? text.size() : at;
    }
    return wrapped;
}

}  // namespace orvplay
