// Compresses the sound of one service: raw AAC access units or whole MPEG audio frames, in order.

#pragma once

#include <cstdint>
#include <vector>

#include "mksample/Libav.h"
#include "mksample/Options.h"
#include "mksample/TestSound.h"

namespace mksample {

inline constexpr int kSampleRate = 48000;
inline constexpr int kChannels = 2;

enum class AudioCoding {
    AacLc,
    AacForMobile,  // HE-AAC where an encoder for it is installed, else AAC-LC
    MpegLayer2,
};

struct AudioSettings {
    FrameRate fps;  // the beeps follow the picture
    AudioCoding coding = AudioCoding::AacLc;
    int64_t bitRate = 0;
    int64_t sampleCount = 0;
    bool silent = false;
    int pitch = 1;  // of the background sound
};

struct AudioUnit {
    std::vector<uint8_t> bytes;
    // When the first sample that decoding it gives is heard, counted from the first picture. The
    // encoder's delay makes the first units negative.
    int64_t positionSamples = 0;
};

class AudioEncoder {
public:
    // Throws Failure when the encoder is missing or refuses the settings.
    explicit AudioEncoder(const AudioSettings& settings);

    bool next(AudioUnit* unit);

    // Samples at kSampleRate that one unit stands for.
    int samplesPerUnit() const { return mContext->frame_size; }
    // The rate that AAC framing declares: half of kSampleRate for HE-AAC with implicit signalling.
    int coreSampleRate() const { return mHighEfficiency ? kSampleRate / 2 : kSampleRate; }

private:
    void open(const AVCodec* codec);
    void sendNextSamples();

    const AudioSettings mSettings;
    const TestSound mSound;
    CodecContextPtr mContext;
    PacketPtr mPacket;
    bool mHighEfficiency = false;
    int64_t mSent = 0;
    bool mFlushed = false;
};

}  // namespace mksample
