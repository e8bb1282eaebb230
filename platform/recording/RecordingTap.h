#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "dtv/HostClock.h"
#include "dtv/PacketTap.h"
#include "dtv/TsPacket.h"
#include "recording/PacketQueue.h"
#include "recording/PictureStart.h"
#include "recording/ProgrammeTables.h"

namespace orvhost {

// Makes the stream of one programme out of what the tuner feeds, on the feeding thread:
//
//   source:     v1 a1 x v2 PAT x PMT V3 v4 a2 x ...     V: a decoder can begin here
//   recording:            PAT PMT   V3 v4 a2 ... PAT PMT ...
//
// Every packet of the programme's streams and of its clock, as the source carried it and in its
// order, from the first picture with which a decoder can begin; where none comes within two
// seconds, from there on. A stream of PES packets begins with the start of one: "a2" above is one.
// The source's tables give way to those of this programme alone, which are
// written about five times a second and whenever they change.
class RecordingTap : public PacketTap {
public:
    static constexpr int64_t START_WAIT_NS = 2'000'000'000;

    RecordingTap(TunedProgramme programme, uint16_t videoPid, PacketQueue& queue, HostClock& clock);

    const std::vector<uint16_t>& pids() const override { return mTables.pids(); }
    bool onPacket(const uint8_t* packet) override;
    void onBatchEnd() override;
    bool hasRoom() override { return mQueue.hasRoom(); }
    void onSourceLeft() override;

    // Any thread.
    uint64_t lostPackets() const { return mLost.load(std::memory_order_relaxed); }
    bool isSourceLeft() const { return mSourceLeft.load(std::memory_order_acquire); }

    // A PES packet that has begun, at this place in the recording, and was not seen whole.
    struct OpenUnit {
        uint16_t pid = 0;
        uint64_t offset = 0;
    };
    // Once the tap is stopped.
    std::vector<OpenUnit> openUnits() const;
    std::vector<uint16_t> soundPids() const;

private:
    enum class Phase {
        Waiting,   // for a picture
        Doubtful,  // what is pushed begins with a picture that may do; nothing is published
        Begun,
    };

    // One stream of PES packets.
    struct Stream {
        uint16_t pid = 0;
        bool begun = false;  // with the start of a unit
        bool open = false;
        uint32_t bytesLeft = 0;  // of the open unit; 0: it has no length
        uint64_t start = 0;
    };

    void followStreams();
    void lookForStart(uint16_t pid, const uint8_t* packet);
    void settle(PictureStart::Verdict verdict);
    void goOnWaiting();
    void begin();
    void take(uint16_t pid, const uint8_t* packet);
    bool isOfUnit(uint16_t pid, const uint8_t* packet);
    bool put(const uint8_t* packet);
    void putTables();
    void trackUnit(Stream& stream, const uint8_t* packet, uint64_t offset);

    PacketQueue& mQueue;
    HostClock& mClock;
    ProgrammeTables mTables;
    const uint16_t mWantedVideoPid;
    const int64_t mDeadlineNs;
    uint16_t mVideoPid = PID_NONE;
    std::optional<PictureStart> mPictureStart;  // of the video
    Phase mPhase = Phase::Waiting;
    int64_t mTablesPcr = -1;  // at which the tables were written last
    int64_t mTablesNs = 0;
    bool mTablesDue = false;
    std::vector<Stream> mStreams;
    std::array<uint8_t, PID_COUNT> mStreamOf{};  // into mStreams, plus one
    std::atomic<uint64_t> mLost{0};
    std::atomic<bool> mSourceLeft{false};
};

}  // namespace orvhost
