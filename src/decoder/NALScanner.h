#pragma once

#include <cstddef>
#include <cstdint>

namespace OrvPlayer {

// What the steps of the H.264 extractor return.
enum StepStatus : int {
    STEP_OK = 0,
    STEP_ERROR = 1,
    STEP_MORE = 2,  // a unit was cut, more of the payload is left
    STEP_END = 3    // nothing more in this payload
};

// nal_unit_type (ITU-T H.264, table 7-1), those that mean something here.
enum NALUnitType : uint8_t {
    NAL_SLICE = 1,
    NAL_IDR_SLICE = 5,
    NAL_SEI = 6,
    NAL_SPS = 7,
    NAL_ACCESS_UNIT_DELIMITER = 9,
};

// Walks the NAL units of a byte stream payload (ITU-T H.264, annex B) from start code to start
// code, 00 00 01 each:
//
//     .. 00 | 00 00 01 67 .. .. .. | 00 00 01 68 ..
//             ^ scanOffset           ^ already known: it gave the size
//             |<------ size ------>|
//
// A fourth zero byte in front of a start code belongs to the unit before. A unit is given out again
// until passOver() steps behind its header. No byte is searched twice: the start code that ends a
// unit is remembered as the next one's beginning.
class NALScanner {
public:
    static constexpr uint32_t START_CODE_BYTES = 3;
    static constexpr uint32_t HEADER_BYTES = START_CODE_BYTES + 1;

    // Starts over on a payload, which must stay readable until the next call of this kind.
    void setPayload(const unsigned char* payload, uint32_t size);

    // Finds the unit at scanOffset or behind and moves scanOffset to its start code. The size is
    // counted from there to the next start code or the payload's end. STEP_END when there is none,
    // or none with a header byte.
    int getNextNalUnit(NALUnitType* type, uint32_t* size);
    // The same for the next unit of one type, passing over the others.
    int getNextNALUWithType(NALUnitType type, uint32_t* size);

    // Leaves the unit at scanOffset behind.
    void passOver();

    uint32_t getScanOffset() const { return scanOffset; }

private:
    // The next start code whose three bytes all stand at `from` or behind; `mSize` for none.
    size_t findNextNalHeader(size_t from) const;

    const unsigned char* mPayload = nullptr;
    size_t mSize = 0;
    uint32_t scanOffset = 0;
    // Two start codes in a row, `mSize` for none; scanOffset is never in front of the first but
    // before the first step.
    size_t mCurrent = 0;
    size_t mNext = 0;
};

}  // namespace OrvPlayer
