#pragma once

#include <string>
#include <vector>

namespace orvdoctor {

// What became of one check.
struct Finding {
    enum class State {
        OK,
        NOTE,     // worth knowing; nothing has to be done
        WARNING,  // works, and not as well as it could
        MISSING,  // something that watching television needs
    };

    std::string check;  // one word, the same whatever is found: "tuner"
    State state = State::OK;
    std::string text;  // what was found and what it means, one line
    std::string fix;   // the command that mends it; empty where there is nothing to mend
};

using Findings = std::vector<Finding>;

}  // namespace orvdoctor
