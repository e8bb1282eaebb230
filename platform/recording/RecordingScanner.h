#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "dtv/StreamClock.h"
#include "recording/PictureStart.h"
#include "recording/RecordingClock.h"
#include "recording/RecordingIndex.h"

namespace orvhost {

// Finds the random access points of a recording in its packets: the PES packets of the video with
// which a decoder can begin. Where five seconds bring none, any picture has to do; without video,
// packets that tell the time. Not thread-safe.
class RecordingScanner {
public:
    explicit RecordingScanner(const IndexedProgramme& programme);

    // Goes on as if everything before this point had been scanned; its packet comes next.
    void resumeAt(const RandomAccessPoint& point);

    // Looks once at the first packets there are: whether the clock is the PCR or time stamps.
    void chooseClock(const uint8_t* packets, size_t count) { mSamples.choose(packets, count); }

    // What is found is added behind `points`, all of which this scanner or the one before it found.
    void add(const uint8_t* packet, uint64_t offset, std::vector<RandomAccessPoint>* points);

    // From the first to the last sample of the clock.
    int64_t duration27M() const { return mClock.now27M(); }

private:
    using Points = std::vector<RandomAccessPoint>;

    void takeSample(int64_t ticks, const uint8_t* packet, uint64_t offset, Points* points);
    void takeVideo(const uint8_t* packet, uint64_t offset, Points* points);
    void settle(PictureStart::Verdict verdict, Points* points);
    void push(RandomAccessPoint found, Points* points);

    const IndexedProgramme mProgramme;
    StreamClock mSamples;
    RecordingClock mClock;
    PictureStart mPictureStart;
    std::optional<RandomAccessPoint> mUnit;    // the PES that is not judged yet
    std::optional<RandomAccessPoint> mOldest;  // the first PES of all
    std::optional<RandomAccessPoint> mEarly;   // the first point, before there is a clock
    int64_t mStamp = -1;                       // of mUnit
    int64_t mEarlyStamp = -1;
    int64_t mLastPoint27M = 0;  // the clock at the last point
};

}  // namespace orvhost
