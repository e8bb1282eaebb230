#pragma once

#include <cstdint>
#include <unordered_map>

namespace orvhost {

// Makes one endless stream of a file that is read over and over.
//
//   file     A B C ... Y Z | A B C ... Y Z |          times begin again, counters jump
//   stream   A B C ... Y Z   A'B'C'... Y'Z'           times and counters go on
//
// In the first lap packets pass as they are, and how long the file lasts is learned: from its first
// to its last PCR, with what lies before and behind them at the file's rate; longer where the
// pictures or the sound last up to a second longer, so that their time stamps never go back. Every
// later lap is that much later than the one before: PCR, PTS and DTS are written anew, and so are
// continuity counters. The rest of a unit whose beginning is at the end of the file is left out at
// its beginning; its PCRs stay.
//
// What the file itself has of jumps and lost packets stays as it is. A unit that the file's end
// cuts off stays cut off. Clocks inside of tables go back with every lap.
//
// One thread.
class LoopJoint {
public:
    // Changes the next packet of the file for its place in the stream. False: it has none.
    bool pass(uint8_t* packet);

    // The file begins again.
    void beginLap();

    // How much later times are than in the file, in ticks of 27 MHz, always whole ones of 90 kHz.
    int64_t offset27M() const { return mOffset; }
    uint64_t laps() const { return mLap; }

private:
    struct Pid {
        uint64_t lap = 0;           // to which the next two belong
        bool hasUnit = false;       // one began
        uint8_t counterOffset = 0;  //
        uint8_t lastCounter = 0;    // as it was passed
        // Of the first lap: time stamps, against the first one.
        int64_t firstStamp = -1;
        int64_t least = 0;
        int64_t most = 0;
        int64_t stamps = 0;
    };

    void learn(const uint8_t* packet, Pid& pid);
    void learnPcr(const uint8_t* packet);
    void continueCounter(uint8_t* packet, Pid& pid, bool isFirstOfLap);
    int64_t length27M() const;

    std::unordered_map<uint16_t, Pid> mPids;
    uint64_t mLap = 0;
    int64_t mOffset = 0;
    int64_t mLength = 0;  // of a lap, once it is known

    // Of the first lap.
    int64_t mPackets = 0;
    uint16_t mPcrPid = 0xFFFF;
    int64_t mFirstPcr = -1;
    int64_t mLastPcr = -1;
    int64_t mFirstPcrAt = 0;  // packet
    int64_t mLastPcrAt = 0;
    int64_t mRatedTicks = 0;  // between PCRs that are no jump apart
    int64_t mRatedPackets = 0;
};

}  // namespace orvhost
