#pragma once

#include "aac/AacFraming.h"

namespace orvhost {

// AudioSyncStream around AudioMuxElement (ISO/IEC 14496-3, 1.7), for one program with one layer:
//
//   | 0x2B7 (11) | audioMuxLengthBytes (13) | useSameStreamMux, [StreamMuxConfig] |
//   | { PayloadLengthInfo, PayloadMux } x subframes | otherData | alignment |
//
// audioMuxVersion 0 and 1 with audioMuxVersionA 0; access units of variable or fixed length;
// streams with a time framing of their own, whose units come in chunks that may span frames.
// The CRC of a StreamMuxConfig is read past: what it would catch shows in the lengths of the frame
// that carries it. latmBufferFullness is for rate control and is ignored.
class LoasFraming : public AacFraming {
public:
    uint8_t syncByte() const override { return 0x56; }
    size_t headerSize() const override { return 3; }
    bool startsFrame(const uint8_t* data, size_t size) const override;
    bool follows(const uint8_t* frame, const uint8_t* next, size_t size) const override;
    size_t frameSize(const uint8_t* header) const override;
    bool isReadable(const uint8_t* frame) const override;
    AacParse parse(const uint8_t* frame, size_t size) override;
    bool fillsFrame() const override { return mFillsFrame; }
    const uint8_t* unitBytes(const uint8_t* frame) const override;
    void retire() override;
    void forget() override;

private:
    // What a StreamMuxConfig says.
    struct StreamMux {
        bool isKnown = false;
        bool allStreamsSameTimeFraming = true;
        unsigned subFrames = 1;
        unsigned frameLengthType = 0;
        unsigned fixedLengthBytes = 0;  // for frameLengthType 1
        uint64_t otherDataBits = 0;
        CSAudioSpecificConfig config;
    };

    static AacParse parseStreamMux(AacBitReader& reader, StreamMux* mux);
    static AacParse parseLayerConfig(AacBitReader& reader, unsigned audioMuxVersion,
                                     StreamMux* mux);
    bool readSlots(AacBitReader& reader, const StreamMux& mux);
    bool readChunks(AacBitReader& reader, const StreamMux& mux);

    StreamMux mMux;  // of the last frame that carried one
    bool mFillsFrame = true;

    // Units in chunks are put together here. The bytes up to mCarried wait for the rest of their
    // unit; a frame's chunks are appended behind them.
    std::array<uint8_t, 2 * kMaxFrameSize> mGathered;
    size_t mCarried = 0;
    size_t mGatheredSize = 0;
    size_t mGatheredUnitEnd = 0;  // end of the last whole unit
    bool mIsGathered = false;     // the units of this frame are here, not in the frame
};

}  // namespace orvhost
