#pragma once

#include <cstdint>
#include <istream>
#include <map>
#include <string>
#include <vector>

#include "PlotScale.h"

namespace orvplot {

// What of the lines of `orvplay play --timing` is plotted.
struct TimingData {
    // Something that went wrong, for a moment or for a while.
    struct Fault {
        std::string what;
        double from = 0.0;
        double to = 0.0;
        bool isInjected = false;  // on purpose, by a script
    };

    std::string source;
    Range time;                  // from the start of playback to the last line
    std::vector<Point> skewMs;   // sound against picture, positive: sound is late
    std::vector<Point> videoMs;  // how early pictures were ready
    std::vector<Point> audioMs;  // the same of sound, against the sound's clock
    std::map<std::string, std::vector<Point>> fills;   // percent, by buffer
    std::map<std::string, std::vector<double>> drops;  // when pictures were not shown, by reason
    std::vector<Fault> faults;  // by their beginning; those of a kind that follow closely are one
    uint64_t shown = 0;         // pictures
    uint64_t missed = 0;        // lines that were lost when they were written
    uint64_t badLines = 0;
    uint64_t otherBases = 0;  // times that belong to another time base than the clock: not plotted

    bool isEmpty() const { return lines == 0; }
    uint64_t lines = 0;  // that were understood

    // Reads to the end. A line that is none of ours is counted and passed over.
    static TimingData read(std::istream& in);
};

}  // namespace orvplot
