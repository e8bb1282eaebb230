#pragma once

namespace orvplay {

// What the program ends with; scripts rely on the numbers.
enum ExitCode : int {
    EXIT_OK = 0,
    EXIT_FAILED = 1,  // anything that is none of the others
    EXIT_USAGE = 2,
    EXIT_SERVICE = 3,  // service not reachable or lost
    EXIT_SOURCE = 4,   // the source cannot be opened
    EXIT_NO_DATA = 5,  // no signal or no data in time
    EXIT_PLAYBACK = 6,
    EXIT_RECORDING = 7,
    EXIT_NOT_FOUND = 8,  // a name or a number that is not there
    EXIT_INTERRUPTED = 130,
};

}  // namespace orvplay
