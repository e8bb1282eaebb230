#pragma once

#include <cstddef>
#include <cstdint>

namespace orvhost {

// Tells whether a decoder can begin with the picture of a video PES packet, from the first packets
// of it.
//
// It can when the packet says so (random_access_indicator, ISO/IEC 13818-1 2.4.3.5), or when the
// picture comes with parameter sets or needs no other: SPS or IDR in H.264, VPS, SPS or IRAP in
// H.265, a sequence or group header in MPEG-1 and 2.
class PictureStart {
public:
    enum class Verdict { Undecided, Yes, No };

    explicit PictureStart(uint8_t streamType) : mStreamType(streamType) {}

    // The packet that starts the PES.
    Verdict begin(const uint8_t* packet);
    // The next packets of the PID, while it is undecided.
    Verdict next(const uint8_t* packet);

private:
    Verdict look(const uint8_t* data, size_t size);
    Verdict judge(uint8_t startCode) const;

    const uint8_t mStreamType;
    int mPacketsLeft = 0;
    size_t mHeaderLeft = 0;       // bytes of the PES header in packets to come
    uint32_t mCode = UINT32_MAX;  // the last four bytes
};

}  // namespace orvhost
