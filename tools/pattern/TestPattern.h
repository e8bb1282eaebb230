// What the sample broadcast shows and sounds, written down once for those who make it (mksample)
// and those who measure with it (the player's outputs, the tests).
//
// Three marks are in every sample:
//
//   frame number   a bar code of 32 blocks across the whole width of a band of the picture:
//                  start (white black), 20 bits of number, 8 bits of CRC, stop (black white),
//                  most significant bit first, white = 1. Read by block averages, so it survives
//                  compression, interlacing, deinterlacing and scaling.
//   flash          a block that is white for the first kFlashFrames frames of every second
//                  (frame numbers that are a multiple of the nominal rate) and black otherwise.
//   beep           a burst of kBeepHz that starts with the first flash frame's time stamp.
//
// All geometry is in proportion to the picture, so a scaled picture reads the same. The functions
// work on the luma plane alone, keep no state and may be called from any thread.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace orvtest {

inline constexpr uint32_t kMaxFrameNumber = (1U << 20) - 1;
inline constexpr uint32_t kFlashFrames = 3;
inline constexpr int kBeepHz = 1000;
inline constexpr int kBeepMs = 40;
inline constexpr int kBeepAmplitude = 16384;  // peak, of 32767

// Pictures smaller than this carry no readable marks.
inline constexpr int kMinWidth = 128;
inline constexpr int kMinHeight = 96;

struct Rect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

// Where the marks are in a picture of the given size.
Rect barCodeArea(int width, int height);
Rect flashArea(int width, int height);

// Draws the bar code of frameNumber (its low 20 bits) into the band. Both fields of an interlaced
// picture carry it alike.
void drawFrameNumber(uint8_t* luma, int stride, int width, int height, uint32_t frameNumber);

// The frame number, or nothing when the band holds no bar code with a right check sum.
// Reads about 2,000 samples whatever the size of the picture.
std::optional<uint32_t> readFrameNumber(const uint8_t* luma, int stride, int width, int height);

void drawFlash(uint8_t* luma, int stride, int width, int height, bool on);

// Whether the flash block is lit. Says nothing sensible about a picture without a bar code.
bool isFlash(const uint8_t* luma, int stride, int width, int height);

// Whether the frame is one of those that flash, at a nominal whole rate (30 for 30000/1001).
bool isFlashFrame(uint32_t frameNumber, uint32_t nominalRate);

// The beep's sample at a distance from its onset, 0 before it and after its end.
int beepSample(int64_t samplesAfterOnset, int sampleRate);

// Finds the onsets of beeps in interleaved 16-bit sound, over whatever block sizes it comes in.
//
// An onset is the first sample above a quarter of the beep's amplitude after at least 100 ms
// below it; it counts once the 20 ms that follow are mostly the beep's frequency, so speech and
// music of a real broadcast do not pass for beeps. Its time is right to about a millisecond after
// AAC (the encoder blurs the edge). Only the first channel is looked at. Not thread safe.
class BeepDetector {
public:
    explicit BeepDetector(int sampleRate, int channels);

    // Takes the next sample frames; playTimeUs is when the first of them is heard. A gap or a jump
    // of that time between blocks is fine. Returns the times of the onsets confirmed by this block
    // (they may lie up to 20 ms before it), in the unit of playTimeUs; usually none.
    std::vector<int64_t> feed(const int16_t* interleaved, size_t frames, int64_t playTimeUs);

    // Forgets a beep half heard and asks for silence anew: after a flush or a stop.
    void reset();

private:
    bool confirmed() const;
    void collect(int sample);

    const int mSampleRate;
    const int mChannels;
    const int mSilenceNeeded;  // samples below the threshold before an onset may come
    const int mProbeLength;    // samples looked at after an onset
    const double mStepCos;     // rotation of the probe's phase per sample
    const double mStepSin;

    int mSilent = 0;
    int mProbed = -1;  // samples collected since the onset, -1 while there is none
    int64_t mOnsetUs = 0;
    double mPhaseCos = 1.0;
    double mPhaseSin = 0.0;
    double mSumCos = 0.0;
    double mSumSin = 0.0;
    double mEnergy = 0.0;
};

}  // namespace orvtest
