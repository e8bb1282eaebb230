#pragma once

#include <cstdint>

#include "decoder/FrameRateListener.h"
#include "decoder/H264ParameterSets.h"
#include "decoder/MediaExtractor.h"
#include "decoder/NALScanner.h"

namespace OrvPlayer {

// Cuts H.264 access units (byte stream, start codes kept) out of video PES payloads.
//
// A unit runs from an access unit delimiter or SPS to the next one, or to the first slice of a
// picture behind a complete picture, or to the end of the PES payload:
//
//     PES 1: | AUD SPS PPS SEI slice slice | AUD SEI slice |
//     PES 2:  ..rest of a slice | AUD SEI slice ..
//              ^ not in any unit: a unit never goes on in the next PES
//
// Nothing is given out before the first SPS. Its VUI, and a picture timing SEI where it says that
// there are some, give the frame duration; slices do not count before that is known. The first
// unit of a PES has the PES's time, each further one a frame duration more.
//
// Payloads without a delimiter or SPS give no unit to begin with. After 31 in a row like that every
// first slice of a picture starts a unit, for good. A stream without delimiters whose SPS come more
// often never gets there: of it only the pictures behind an SPS are given out.
//
// The pipeline's input ring buffer stays locked for reading while a PES is being cut. Unit bytes
// are copied once, into the caller's buffer.
class H264MediaExtractor : public MediaExtractor {
public:
    explicit H264MediaExtractor(const android::sp<RingBuffer>& ringBuffer);

    // A unit that does not fit `capacity` is dropped.
    int getDecodableUnit(void* out, unsigned long capacity, unsigned long* size, long long* pts,
                         unsigned char* flags) override;

    // The next SPS and picture timing are waited for again. The SPS, the frame duration and the
    // cutting at every first slice stay as they are.
    void reset() override;

    bool getVideoResolution(uint32_t* width, uint32_t* height) const override;

    // Not owned; null for none.
    void setFrameRateListener(FrameRateListener* listener) { frameRateListener = listener; }

private:
    static constexpr uint64_t DEFAULT_FRAME_DURATION = 3003;  // 29.97 frames per second
    static constexpr uint8_t BLOCKS_BEFORE_WORKAROUND = 31;

    // An access unit while its end is looked for.
    struct Gathering {
        bool started = false;
        uint32_t start = 0;        // offset in the payload, once started
        bool pictureOpen = false;  // the first slice of a picture was seen
    };
    struct SliceHeader {
        uint32_t firstMb = 0;
        bool fieldPic = false;  // read only while the frame duration is unknown
    };

    // One unit of the payload at hand, as getDecodableUnit. STEP_MORE when it ended at a boundary,
    // STEP_END when the payload is used up.
    int getNextAccessUnit(void* out, unsigned long capacity, unsigned long* size, long long* pts,
                          unsigned char* flags);
    // Takes note of the NAL unit at the scan offset; true when an access unit ends or starts there.
    bool isBoundary(NALUnitType type, uint32_t size, Gathering* gathering, unsigned char* flags);
    bool isSliceBoundary(Gathering* gathering);
    void examineSEI(uint32_t size);
    void examineSPS(uint32_t size, unsigned char* flags);
    // False for a slice that does not count.
    bool readSliceHeader(SliceHeader* header) const;
    void learnFrameDuration(bool fieldPic);
    int calculateFrameRate(bool fieldPic);
    void noteBlockWithoutUnit();

    NALBytes bytesBehindHeader(uint32_t size) const;
    // The scan offset, or the one before when a start code of four bytes stands there.
    uint32_t boundaryOffset() const;

    NALScanner scanner;
    bool spsFound = false;  // an SPS was seen; a damaged one counts
    bool picTimingFound = false;
    bool frameRateKnown = false;
    SPS sps;
    int64_t nextPts = 0;  // 90 kHz
    uint64_t frameDuration = DEFAULT_FRAME_DURATION;
    FrameRateListener* frameRateListener = nullptr;
    bool workaround = false;  // cut at every first slice
    uint8_t noUnitCount = 0;  // payloads in a row in which no unit could start
};

}  // namespace OrvPlayer
