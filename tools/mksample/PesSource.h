// Cuts the output of the encoders into what PES packets carry, with their times.
//
// Times here are 90 kHz units from the first picture, negative before it and never wrapped; the
// multiplexer turns them into time stamps.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mksample/AudioEncoder.h"
#include "mksample/AudioFraming.h"
#include "mksample/VideoEncoder.h"

namespace mksample {

struct PesUnit {
    std::vector<uint8_t> payload;
    int64_t pts = 0;  // of the first unit that starts in the payload
    int64_t dts = 0;
    // When the last byte must have arrived at the latest: the first decoding time in the payload.
    int64_t due = 0;
    bool randomAccess = false;
    std::string caption;  // what it shows, in UTF-8; empty for all that is no caption
};

class PesSource {
public:
    virtual ~PesSource() = default;

    // The next PES packet in sending order; false after the last one. Encodes as needed, so a call
    // may take the time of some pictures. Throws Failure.
    virtual bool next(PesUnit* unit) = 0;
};

// One access unit a PES packet.
class VideoSource : public PesSource {
public:
    explicit VideoSource(const VideoSettings& settings);
    bool next(PesUnit* unit) override;

private:
    VideoEncoder mEncoder;
    const FrameRate mFps;
};

struct AudioPacking {
    AudioFormat format = AudioFormat::Latm;
    int latmConfigEvery = 1;
    // PES packets end on unit boundaries up to this time; after it a unit runs over every end.
    int64_t alignedUntil90k = 0;
};

// Several audio units a PES packet.
class AudioSource : public PesSource {
public:
    AudioSource(const AudioSettings& settings, const AudioPacking& packing);
    bool next(PesUnit* unit) override;

private:
    struct Framed {
        std::vector<uint8_t> bytes;
        int64_t pts = 0;
    };
    std::optional<Framed> encodeOne();
    std::vector<uint8_t> frame(std::vector<uint8_t> unit);

    AudioEncoder mEncoder;
    const AudioPacking mPacking;
    LoasWriter mLoas;
    AdtsWriter mAdts;
    std::optional<Framed> mAhead;  // encoded, not yet packed
    Framed mCarry;                 // the rest of a unit that began in the packet before
    unsigned mPackets = 0;
};

}  // namespace mksample
