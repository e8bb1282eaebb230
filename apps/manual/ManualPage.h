#pragma once

#include <string>
#include <utility>
#include <vector>

#include "CommandText.h"

namespace orvmanual {

// What a manual page says beside the command line.
struct ManualSection {
    std::string title;  // "FILES"
    std::vector<std::pair<std::string, std::string>> entries;
};

struct ManualPage {
    int section = 1;
    std::string version;  // of the system, "0.1.0"
    std::vector<ManualSection> sections;
    std::vector<std::string> seeAlso;  // "orvplayerd(8)"
};

// The page in the man macros of roff (man(7)).
std::string manualPage(const CommandText& program, const ManualPage& page);

}  // namespace orvmanual
