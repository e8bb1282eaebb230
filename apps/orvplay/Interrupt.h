#pragma once

namespace orvplay {

// Ctrl-C and friends, as a request that the program looks at. The second one ends it at once.
class Interrupt {
public:
    // For SIGINT, SIGTERM and SIGHUP; a closed pipe on standard output becomes an error of the
    // write instead of a signal.
    static void install();
    static bool requested();
};

}  // namespace orvplay
