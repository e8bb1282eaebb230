#pragma once

#include <string>
#include <vector>

namespace orvtest {

// Collects the lines of the trace library, formatted, instead of writing them out. The test program
// is linked with --wrap=OneSegPGL_TraceOut and TraceCapture.cpp. Lines traced while no capture is
// alive go to the library. One capture at a time; any thread may trace.
class TraceCapture {
public:
    TraceCapture();
    TraceCapture(const TraceCapture&) = delete;  // the library knows one target
    TraceCapture& operator=(const TraceCapture&) = delete;
    ~TraceCapture();

    // The lines since the last call, in order, without the line ends.
    std::vector<std::string> take();
    // The same, each after the letter of its level and a blank: V, I, W or E.
    std::vector<std::string> takeWithLevels();
};

}  // namespace orvtest
