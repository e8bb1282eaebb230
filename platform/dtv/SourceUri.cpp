#include "dtv/SourceUri.h"

#include <algorithm>
#include <string_view>

namespace orvhost {

namespace {

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isOfScheme(char c) {
    return isLetter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}

bool isPlain(char c) {
    return c > ' ' && c <= '~';
}

// The length of the scheme, 0 when the text has none.
size_t schemeLength(const std::string& text) {
    const auto end = std::find_if_not(text.begin(), text.end(), isOfScheme);
    const auto length = static_cast<size_t>(end - text.begin());
    return length > 0 && isLetter(text[0]) && text.compare(length, 3, "://") == 0 ? length : 0;
}

int hexDigit(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

// With every "%41" replaced by its character (RFC 3986 2.1). False for anything else behind "%",
// and for characters that no name here has.
bool unescape(std::string_view text, std::string* out) {
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            const int high = i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
            const int low = high >= 0 ? hexDigit(text[i + 2]) : -1;
            if (low < 0) {
                return false;
            }
            c = static_cast<char>(high * 16 + low);
            i += 2;
        }
        if (!isPlain(c)) {
            return false;
        }
        out->push_back(c);
    }
    return true;
}

bool parseParameters(std::string_view text, SourceUri* uri) {
    while (!text.empty()) {
        const std::string_view one = text.substr(0, text.find('&'));
        text.remove_prefix(std::min(one.size() + 1, text.size()));
        const size_t equals = one.find('=');
        auto& [name, value] = uri->parameters.emplace_back();
        if (equals == std::string_view::npos || equals == 0 ||
            !unescape(one.substr(0, equals), &name) || !unescape(one.substr(equals + 1), &value)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool SourceUri::isUri(const std::string& text) {
    return schemeLength(text) > 0;
}

std::string SourceUri::shown(const std::string& text) {
    std::string out = text.substr(0, MAX_LENGTH);
    std::replace_if(
        out.begin(), out.end(), [](char c) { return !isPlain(c) && c != ' '; }, '?');
    return out;
}

std::optional<SourceUri> SourceUri::parse(const std::string& text, std::string* error) {
    const size_t length = schemeLength(text);
    if (length == 0) {
        *error = shown(text) + ": no source; write udp://ADDRESS:PORT or rtp://ADDRESS:PORT";
        return std::nullopt;
    }
    if (text.size() > MAX_LENGTH || !std::all_of(text.begin(), text.end(), isPlain)) {
        *error = shown(text) + ": too long, or with characters that no source has; check it";
        return std::nullopt;
    }
    SourceUri uri;
    uri.scheme = text.substr(0, length);
    for (char& c : uri.scheme) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    const size_t begin = length + 3;
    const size_t query = std::min(text.find('?', begin), text.size());
    uri.target = text.substr(begin, query - begin);
    const std::string_view rest = std::string_view(text).substr(std::min(query + 1, text.size()));
    if (!parseParameters(rest, &uri)) {
        *error = text + ": what follows \"?\" is not understood; write NAME=VALUE&NAME=VALUE";
        return std::nullopt;
    }
    return uri;
}

}  // namespace orvhost
