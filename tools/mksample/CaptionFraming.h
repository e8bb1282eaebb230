// Data groups of captions and the payload of the PES packets that carry them (ARIB STD-B24 volume 1
// part 3, chapters 5 and 9).

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace mksample {

// How a statement says when it is due; the PTS counts in all of them.
enum class CaptionTiming : uint8_t { Free = 0, RealTime = 1, Offset = 2 };

struct CaptionStatement {
    CaptionTiming timing = CaptionTiming::Free;
    int64_t timeMs = 0;         // presentation start time, where the timing has one
    std::vector<uint8_t> body;  // of its one data unit
};

// Caption data of one Portuguese caption stream in 8-bit codes; both return the PES payload of one
// data group. privateBytes, 0 to 15, stand in the header of the PES data field.
std::vector<uint8_t> captionManagementPes();
std::vector<uint8_t> captionStatementPes(const CaptionStatement& statement, size_t privateBytes);

}  // namespace mksample
