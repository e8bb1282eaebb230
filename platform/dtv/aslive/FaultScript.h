#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvhost {

// One fault of a broadcast, and when it happens.
struct Fault {
    enum class Kind {
        DROP,              // packets are lost
        GAP,               // nothing comes
        BIT_ERRORS,        // bits behind the packets' headers are wrong
        TRANSPORT_ERRORS,  // packets are marked as damaged
        SCRAMBLE,          // packets with pictures, sound and captions are marked as scrambled
        DUPLICATE,         // packets come twice
        REORDER,           // packets come behind the next one
        NO_PCR,            // the clock references are missing
        PCR_JUMP,          // from then on the clock references are that much later, they alone
        TIME_JUMP,         // from then on all times are
        WRAP,              // all times jump, so that those of 33 bits wrap a moment later
    };
    static constexpr uint16_t ANY_PID = 0xFFFF;

    Kind kind = Kind::DROP;
    int64_t atNs = 0;     // from the first packet on
    int64_t everyNs = 0;  // and again every so often; 0: once
    int64_t lengthNs = 0;
    double rate = 0.0;         // 0 to 1: of packets, of BIT_ERRORS of bits
    int64_t ticks27M = 0;      // of jumps: how much later; of WRAP: how long before it
    bool isAnnounced = false;  // jumps: with discontinuity_indicator
    uint16_t pid = ANY_PID;    // whose packets are hit
    std::string text;          // as written, but for when
};

// When which faults happen to a broadcast, as an integrator writes it, one a line:
//
//   # an evening on the edge of the coverage
//   at 10s drop 1% for 5s
//   at 30s gap 8s
//   every 60s bit-errors 1e-5 for 3s pid 0x111
//   at 100s time-jump +2h announced
//   seed 7
//
// docs/faults.md lists them.
struct FaultScript {
    static constexpr size_t MAX_BYTES = 64 << 10;
    static constexpr size_t MAX_FAULTS = 1000;

    std::vector<Fault> faults;  // in the order of the lines
    uint64_t seed = 1;          // of the random numbers

    // Nothing, and "line 3: " with what is wrong there and what would be right, for a text that is
    // no script. The empty text is one without faults.
    static std::optional<FaultScript> parse(const std::string& text, std::string* error);
};

}  // namespace orvhost
