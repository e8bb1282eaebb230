#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include "common/ErrorListener.h"
#include "common/RingBuffer.h"
#include "decoder/MediaExtractor.h"
#include "tsparser/TSParser.h"

namespace orvplay {

// What came out of one stage: an access unit, or a PES packet.
struct Unit {
    const uint8_t* bytes = nullptr;  // of the unit; of a PES packet, its payload
    size_t size = 0;
    int64_t pts90k = 0;
    int64_t dts90k = 0;    // of a PES packet
    uint8_t streamId = 0;  // of a PES packet
    uint8_t flags = 0;     // of a unit, as the extractor gives them
};

// One elementary stream on its way through the player's own parser and extractor, as in playback
// but at the pace of whoever takes the units:
//
//     receiver -> [TS ring] -> TSParser -> [PES ring] -> extractor -> Sink
//                               thread                     thread
//
// Without an extractor the PES packets themselves are what is given out.
class UnitChain : public OrvPlayer::ErrorListener {
public:
    // Called on the chain's thread; the bytes are readable until it returns. False: no more of it.
    using Sink = std::function<bool(const Unit&)>;

    enum class Extraction { NONE, H264, AAC_LATM, AAC_ADTS };

    // `onEvent` runs, on any thread, when the parser gave up on scrambled packets or when the sink
    // wants no more.
    UnitChain(OrvPlayer::TSReceiverPIDType role, Extraction extraction, Sink sink,
              std::function<void()> onEvent);
    ~UnitChain() override;
    UnitChain(const UnitChain&) = delete;  // its threads know it by address
    UnitChain& operator=(const UnitChain&) = delete;

    // Where the receiver writes the stream's packets.
    const android::sp<OrvPlayer::RingBuffer>& input() const { return mPackets; }

    // False when memory or threads are lacking.
    bool start();

    // True once the parser ended at scrambled packets.
    bool isScrambled() const { return mScrambled; }
    // Starts the parser again behind them. False when that was of no use many times in a row: the
    // stream is scrambled for good.
    bool passScrambling();

    // Everything was received: true once the parser has worked it off.
    bool isParsed() const { return mPackets->getDataSize() < OrvPlayer::TS_PACKET_BYTES; }
    // Ends the parser, gives out what it delivered, and ends. For a chain that is to end early,
    // cancel() comes first.
    void finish();
    void cancel() { mCancelled = true; }

    bool sinkClosed() const { return mSinkClosed; }
    uint64_t units() const { return mUnits; }
    uint64_t bytes() const { return mBytes; }

private:
    void onError(unsigned int code, const OrvPlayer::Module* module) const override;
    void run();
    bool giveUnit();
    bool givePES();
    void give(const Unit& unit);

    const Sink mSink;
    const std::function<void()> mOnEvent;
    const bool mVideo;
    android::sp<OrvPlayer::RingBuffer> mPackets;
    android::sp<OrvPlayer::RingBuffer> mPES;
    android::sp<OrvPlayer::TSParser> mParser;
    android::sp<OrvPlayer::MediaExtractor> mExtractor;  // null for the PES packets
    std::unique_ptr<uint8_t[]> mUnit;
    std::thread mThread;
    mutable std::atomic<bool> mScrambled{false};  // set by the listener, which is const
    std::atomic<bool> mParserDone{false};
    std::atomic<bool> mCancelled{false};
    std::atomic<bool> mSinkClosed{false};
    std::atomic<uint64_t> mUnits{0};
    std::atomic<uint64_t> mBytes{0};
    uint64_t mUnitsAtScrambling = 0;
    int mFruitlessStarts = 0;
};

}  // namespace orvplay
