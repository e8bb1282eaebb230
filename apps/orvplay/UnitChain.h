#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "CaptionReader.h"
#include "common/ErrorListener.h"
#include "common/RingBuffer.h"
#include "decoder/MediaExtractor.h"
#include "tsparser/TSParser.h"

namespace orvplay {

// What came out of one stage: an access unit, or a PES packet.
struct Unit {
    // Of the unit; of a PES packet, its payload; of a caption, its text in UTF-8.
    const uint8_t* bytes = nullptr;
    size_t size = 0;
    int64_t pts90k = 0;
    int64_t dts90k = 0;    // of a PES packet
    uint8_t streamId = 0;  // of a PES packet
    uint8_t flags = 0;     // of a unit, as the extractor gives them
};

// One elementary stream on its way through the player's own parser and extractor, as in playback
// but on the caller's thread, which moves it on with every workOff():
//
//     receiver -> [packets] -> TSParser -> [PES] -> extractor -> Sink
//
// Without an extractor the PES packets themselves are what is given out.
class UnitChain : public OrvPlayer::ErrorListener {
public:
    // The bytes are readable until it returns. False: no more of it.
    using Sink = std::function<bool(const Unit&)>;

    enum class Extraction { NONE, H264, AAC_LATM, AAC_ADTS, MPEG_AUDIO, CAPTIONS };

    // What workOff() came to.
    enum class State { GOES_ON, SCRAMBLED, SINK_CLOSED };

    UnitChain(OrvPlayer::TSReceiverPIDType role, Extraction extraction, Sink sink);
    ~UnitChain() override;
    UnitChain(const UnitChain&) = delete;  // its parser knows it by address
    UnitChain& operator=(const UnitChain&) = delete;

    // Where the receiver writes the stream's packets.
    const android::sp<OrvPlayer::RingBuffer>& input() const { return mPackets; }

    // False when memory is lacking.
    bool open();

    // Gives out every unit that the packets received so far complete. SCRAMBLED when the parser
    // gave up on scrambled packets again and again without a unit between.
    State workOff();

    uint64_t units() const { return mUnits; }
    uint64_t bytes() const { return mBytes; }

private:
    void onError(unsigned int code, const OrvPlayer::Module* module) const override;
    bool openParser();
    bool passScrambling();
    void drain();
    bool giveUnit();
    bool givePES();
    bool giveCaption();
    void give(const Unit& unit);

    const Sink mSink;
    const OrvPlayer::TSReceiverPIDType mRole;
    android::sp<OrvPlayer::RingBuffer> mPackets;
    android::sp<OrvPlayer::RingBuffer> mPES;
    android::sp<OrvPlayer::TSParser> mParser;
    android::sp<OrvPlayer::MediaExtractor> mExtractor;  // null for the PES packets
    std::unique_ptr<CaptionReader> mCaptions;           // null for all but the captions
    std::unique_ptr<uint8_t[]> mUnit;
    mutable bool mScrambled = false;  // set by the listener, which is const
    bool mSinkClosed = false;
    uint64_t mUnits = 0;
    uint64_t mBytes = 0;
    uint64_t mUnitsAtScrambling = 0;
    int mFruitlessStarts = 0;
};

}  // namespace orvplay
