#pragma once

#include <array>

#include "decoder/MediaExtractor.h"

namespace OrvPlayer {

// Cuts whole MPEG audio frames, Layers I to III of ISO/IEC 11172-3 and 13818-3 and those of the
// quarter rates (MPEG-2.5), out of the audio PES records and gives each its presentation time.
//
//   PES records:   [frame][frame][fra]   [me][frame] ...
//   given out:      frame, frame,         frame, frame, ...
//
// The first part of a frame that runs over the end of its record is kept until the next record
// brings the rest; the frame has the time reached in the record before, the one behind it that of
// its own record. A record that holds fewer than six bytes of a header at its end loses that frame,
// and the next record is searched for a header.
//
// Deliberate, each pinned by a test of MP3MediaExtractorTest: lengths differ from the standards
// where a header asks for padding, and for Layer III of the lower rates (LengthsByHeader); a frame
// that runs over two ends has the time of the second record (AFrameOverThreeRecords); a frame that
// does not fit the output takes no time with it (SkipsFramesLargerThanTheOutput).
class MP3MediaExtractor : public MediaExtractor {
public:
    // kbit/s by bit rate index. Columns: Layers I, II, III of MPEG-1; Layer I, Layers II and III of
    // MPEG-2 and 2.5.
    static constexpr uint32_t bitRateTable[15][5] = {
        {0, 0, 0, 0, 0},           {32, 32, 32, 32, 8},       {64, 48, 40, 48, 16},
        {96, 56, 48, 56, 24},      {128, 64, 56, 64, 32},     {160, 80, 64, 80, 40},
        {192, 96, 80, 96, 48},     {224, 112, 96, 112, 56},   {256, 128, 112, 128, 64},
        {288, 160, 128, 144, 80},  {320, 192, 160, 160, 96},  {352, 224, 192, 176, 112},
        {384, 256, 224, 192, 128}, {416, 320, 256, 224, 144}, {448, 384, 320, 256, 160},
    };
    // Hz by sampling rate index. Columns: MPEG-1, MPEG-2, MPEG-2.5.
    static constexpr uint32_t samplingRateTable[3][3] = {
        {44100, 22050, 11025}, {48000, 24000, 12000}, {32000, 16000, 8000}};
    // Rows: Layers I, II, III. Columns as those of the rates. For users of the frames: times here
    // are reckoned from length and bit rate.
    static constexpr uint32_t samplesPerFrameTable[3][3] = {
        {384, 384, 384}, {1152, 1152, 1152}, {1152, 576, 576}};

    explicit MP3MediaExtractor(const android::sp<RingBuffer>& ringBuffer);

    // One frame a call; no flag is ever set. The read lock of the ring buffer stays held until the
    // record is used up.
    int getDecodableUnit(void* out, unsigned long capacity, unsigned long* size, long long* pts,
                         unsigned char* flags) override;

    // Forgets also the frame that waits for its rest: nothing of the stream before is joined to the
    // one that comes.
    void reset() override;

protected:
    ~MP3MediaExtractor() override;

private:
    enum ParseStatus : int {
        PARSE_OK = 0,         // of a fragment: a frame
        PARSE_SPLIT = 1,      // the frame goes on in the next record
        PARSE_ENDED = 2,      // the payload ended while a header was searched
        PARSE_TOO_SHORT = 3,  // fewer bytes than a header takes
        PARSE_NO_SYNC = 4,    // resync() came to the end
        PARSE_INVALID = 5     // no header, or a frame larger than the output
    };

    static constexpr uint32_t LONGEST_FRAME = 3024;  // Layer II, 160 kbit/s at 8 kHz, padded

    int getNextFragment(void* out, unsigned long capacity, unsigned long* size, long long* pts);
    int parseHeader();
    int resync();
    void deliverFrame(unsigned char* out, unsigned long* size, long long* pts);
    void keepFirstPart();
    void clearSplit();
    uint32_t bitRateColumn() const;
    uint32_t samplingRateColumn() const;

    int64_t currentPts = 0;      // of the next frame, in 90 kHz ticks
    uint64_t frameDuration = 0;  // in 90 kHz ticks
    uint64_t position = 0;       // of the next frame in the payload; never behind its end
    bool synced = false;         // a header is expected at `position`
    bool splitPending = false;   // carryBuffer holds the first part of a frame
    uint32_t carryBytes = 0;     // in it
    int64_t carryPts = 0;        // its time

    // The header parsed last, as far as it was valid.
    uint32_t versionId = 0;   // 0: MPEG-2.5, 2: MPEG-2, 3: MPEG-1
    uint32_t layerIndex = 0;  // 1: Layer III, 2: Layer II, 3: Layer I
    uint32_t crcPresent = 0;
    uint32_t bitRateIndex = 0;
    uint32_t samplingRateIndex = 0;
    uint32_t padding = 0;
    uint32_t mode = 0;
    uint32_t modeExtension = 0;
    uint32_t ownershipFlag = 0;
    uint32_t original = 0;
    uint32_t emphasis = 0;

    uint32_t frameLength = 0;  // in bytes, of the frame whose header was the last valid one
    std::array<unsigned char, LONGEST_FRAME + 4> carryBuffer{};
};

}  // namespace OrvPlayer
