#pragma once

namespace orvplay {

// Signals as requests that the program looks at: Ctrl-C and friends to end, of which the second
// ends it at once, and SIGUSR1 to tell its state.
class Interrupt {
public:
    // For SIGINT, SIGTERM, SIGHUP and SIGUSR1; a closed pipe on standard output becomes an error of
    // the write instead of a signal.
    static void install();
    static bool requested();
    // What is done in the handler when the second one ends the program, which may be anywhere then:
    // to be safe for that.
    static void beforeSecond(void (*action)());
    // True once after SIGUSR1.
    static bool takeDumpRequest();
};

}  // namespace orvplay
