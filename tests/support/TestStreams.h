#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Streams made on the spot by the encoders of libavcodec, cut into the units that a codec is fed.
namespace orvtest {

struct Unit {
    std::vector<uint8_t> bytes;
    int64_t timeUs = 0;
};

struct Stream {
    std::vector<uint8_t> configuration;  // AudioSpecificConfig, empty for the others
    std::vector<Unit> units;             // in decoding order

    std::vector<int64_t> timesInOrder() const;
    // The same units, later.
    Stream delayed(int64_t byUs) const;
};

struct VideoOptions {
    int width = 320;
    int height = 240;
    int frames = 40;
    // libx264's own options, e.g. "bframes=3:slices=4".
    std::string x264 = "bframes=2:b-pyramid=none";
    bool interlaced = false;  // top field first
    bool noise = false;       // long slices that hold every byte value, instead of a grey
};

constexpr int64_t FRAME_US = 33366;
constexpr int GROUP_FRAMES = 20;  // from one IDR picture to the next

// Luma of the test picture: a grey that steps with every frame, so that a picture tells its number.
int lumaOfFrame(int frame);
Stream encodeVideo(const VideoOptions& options);

// Interlaced frames of 64 x 64 as two field pictures each, a field a unit and half a frame apart in
// time; all macroblocks are raw samples. The top field has lumaOfFrame(), the bottom field 20 more.
Stream makeFieldPairs(int frames);

struct AudioOptions {
    std::string encoder = "aac";
    int sampleRate = 48000;
    int channels = 2;
    int blocks = 40;
};

// A 440 Hz tone of half amplitude on every channel.
Stream encodeAudio(const AudioOptions& options);

// The units of an AAC stream, 48 kHz and stereo, as ADTS frames.
Stream framedAsAdts(const Stream& aac);

}  // namespace orvtest
