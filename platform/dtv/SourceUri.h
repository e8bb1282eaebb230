#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvhost {

// A source that is no file, as a user writes it, split where every kind is split:
//
//   udp://eth1@239.255.1.1:5000?source=192.0.2.7
//   scheme   target              parameters
//
// What target and parameters mean is the kind's own business (NetworkUri for "udp" and "rtp").
struct SourceUri {
    std::string scheme;  // in lower case
    std::string target;  // what follows "scheme:" or "scheme://", up to "?"
    std::vector<std::pair<std::string, std::string>> parameters;  // in their order, unescaped

    // Whether a text names a source of some kind rather than a file: "scheme://..." with any
    // scheme, well-formed or not. A file of such a name is reached by "./".
    static bool isUri(const std::string& text);

    // Nothing, and one line that says what to do, for what cannot be understood.
    static std::optional<SourceUri> parse(const std::string& text, std::string* error);

    // The text as a message may show it, without what a terminal would obey.
    static std::string shown(const std::string& text);

    static constexpr size_t MAX_LENGTH = 1024;
};

}  // namespace orvhost
