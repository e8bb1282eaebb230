#pragma once

#include "aac/AacFraming.h"

namespace orvhost {

// adts_frame of ISO/IEC 13818-7, 6.2 and ISO/IEC 14496-3, 1.A.2.2.
//
// With several raw data blocks in a frame and protection on, the block positions cut them apart and
// the CRC of the headers is verified. Without protection only a decoder can tell where a block
// ends: the blocks are then given out as one unit. The CRC over the audio itself covers the first
// bits of each syntactic element and cannot be verified without decoding them: those 16 bits are
// left out and the decoder deals with damage.
class AdtsFraming : public AacFraming {
public:
    uint8_t syncByte() const override { return 0xFF; }
    size_t headerSize() const override { return 7; }
    bool startsFrame(const uint8_t* data, size_t size) const override;
    bool follows(const uint8_t* frame, const uint8_t* next, size_t size) const override;
    size_t frameSize(const uint8_t* header) const override;
    AacParse parse(const uint8_t* frame, size_t size) override;

private:
    AacParse cutBlocks(const uint8_t* frame, size_t size, unsigned extraBlocks);
    void readConfig(const uint8_t* frame);
};

}  // namespace orvhost
