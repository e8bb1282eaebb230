#pragma once

#include <utils/Thread.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "common/Data.h"
#include "common/Module.h"
#include "common/Synchronization.h"
#include "tsparser/PESPacketParser.h"
#include "tsparser/TSPacketParser.h"
#include "tsreceiver/TSReceiverPIDType.h"

namespace OrvPlayer {

// Glues the TS packets of one PID together into PES packets.
//
//     input ring:    [start A] [A] [A] [start B] [B] ...        188 bytes each
//     output ring:   | PESData | PES A |  | PESData | PES B ... 40 bytes, then the packet
//                                      ^ committed when B starts
//
// A PES has no reliable end of its own (video often leaves its length 0): it is complete only when
// the next one starts, and the last one of a stream is never delivered. A lost or damaged TS packet
// costs the PES that it belonged to and nothing else, and so does a PES larger than the whole
// output. Payloads are copied once, straight into the block that the reader will use.
//
// Beside that, by role: the PCR parser feeds the clock with the last PCR of each pass; the video
// and audio parsers feed it with their PTS; the video parser stops with ERR_SCRAMBLED on the
// twelfth scrambled packet since the last damaged one; the audio parser can report its PTS to the
// recorder service.
//
// One worker. It holds the input's read lock during a pass and the first output's write lock from a
// block's reservation to its commit. Outputs and input are set while it is stopped.
class TSParser : public Module, public android::Thread {
public:
    static constexpr int ERR_WORKER = 0x21001;     // thread or first block not to be had
    static constexpr int ERR_NO_INPUT = 0x21002;   // at start
    static constexpr int ERR_SCRAMBLED = 0x21003;  // through onError

    // `role` is a TSReceiverPIDType.
    explicit TSParser(int role);
    TSParser(const TSParser&) = delete;  // it is a thread
    TSParser& operator=(const TSParser&) = delete;

    // The clock to feed. Returns 0.
    int configure(const android::sp<Synchronization>& sync);
    // Whether audio time stamps go to the recorder service. Any thread.
    void setNotifyAudioPTS(bool notify) { mNotifyAudioPTS.store(notify); }

    // Reserves the first block and starts the worker. 0 or one of the codes above; with a live
    // worker it does nothing.
    int start() override;
    // Asks the worker to exit, wakes it and returns at once. stop() does it too.
    void requestExit() override;
    // Ends the worker (within the 100 ms of a ring buffer wait) and releases the ring buffers.
    int stop() override;

    int dump(FILE* stream, int indent) override;

    // For a caller that brings its own thread: open() instead of start(), then parsePass() as long
    // as it returns true, then stop(). A pass works off what the input holds; it waits at most 100
    // ms for input, and for as long as it takes for room in the output. Who reads the output on the
    // same thread gives a `makeRoom`, which is called instead of that wait and reads all there is.
    int open(std::function<void()> makeRoom = nullptr);
    bool parsePass();
    // After ERR_SCRAMBLED: the bytes of the input up to the twelfth scrambled packet and with it.
    // All are still there to be read; who starts the parser again behind them consumes them first.
    unsigned int getScrambledBytes() const { return mScrambledBytes; }

protected:
    ~TSParser() override;

private:
    enum class Step { NEXT, LEAVE, SCRAMBLED };

    // Fresh for every start.
    struct Parsers {
        PESPacketParser pes;
        PESParsedData pesData;
        TSParsedData tsData;
        TSPacketParser ts;
    };

    bool threadLoop() override { return parsePass(); }
    bool isExiting() const { return mExiting.load(std::memory_order_relaxed); }
    Step handlePacket(unsigned char* packet);
    bool isTooScrambled(unsigned int result);
    Step append(const unsigned char* payload, uint32_t size);
    bool waitForRoom(uint32_t size);
    void finishPES();
    void fillRecord(PESData& record);
    void feedClock(Uint33 pts);
    bool copyPEStoOtherOutputs(unsigned char* block, unsigned int size);
    bool reserveBlock(const char* caller);
    void beginBlock(unsigned char* block);
    void discardBlock(const char* reason);
    void leaveScrambled();
    void release();

    const int32_t mStreamType;  // the role
    std::atomic<bool> mNotifyAudioPTS{false};
    std::atomic<bool> mExiting{false};
    std::function<void()> mMakeRoom;  // null with a worker of our own
    android::sp<Synchronization> mSync;
    std::unique_ptr<Parsers> mpParsers;  // null while stopped

    // The worker's; read by dump(), hence atomic.
    uint16_t mScrambledCount = 0;
    std::atomic<unsigned char*> mpPESWriter{nullptr};  // null while no block is reserved
    std::atomic<PESData*> mpPESData{nullptr};          // the record at the head of the block
    std::atomic<uint32_t> mPESSize{0};                 // bytes behind the record
    std::atomic<int32_t> mRBFreeSpace{0};              // bytes left for this block

    unsigned int mScrambledBytes = 0;

    // Of the current pass.
    bool mPCRSeen = false;
    Uint33 mLastPCR = 0;
};

}  // namespace OrvPlayer
