#include "recording/RecordingScanner.h"

#include <algorithm>
#include <utility>

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

constexpr int64_t SOUND_INTERVAL_27M = PCR_HZ / 2;
constexpr int64_t ANY_PICTURE_27M = 5 * PCR_HZ;
constexpr int64_t ANY_SAMPLE_27M = 6 * PCR_HZ;  // pictures go first

}  // namespace

RecordingScanner::RecordingScanner(const IndexedProgramme& programme)
    : mProgramme(programme), mPictureStart(programme.videoType) {
    mSamples.setPcrPid(programme.pcrPid);
    mSamples.setStampPid(programme.videoPid);
}

void RecordingScanner::resumeAt(const RandomAccessPoint& point) {
    mClock.resumeAt(point);
    mLastPoint27M = point.clock27M;
}

void RecordingScanner::add(const uint8_t* packet, uint64_t offset, Points* points) {
    const int64_t ticks = mSamples.sampleOf(packet);
    if (ticks >= 0) {
        takeSample(ticks, packet, offset, points);
    }
    if (pidOf(packet) == mProgramme.videoPid && mProgramme.videoPid != PID_NONE &&
        !hasTransportError(packet)) {
        takeVideo(packet, offset, points);
    }
}

void RecordingScanner::takeSample(int64_t ticks, const uint8_t* packet, uint64_t offset,
                                  Points* points) {
    mClock.add(ticks, offset, hasDiscontinuityIndicator(packet));
    if (mEarly) {
        RandomAccessPoint early = *std::exchange(mEarly, std::nullopt);
        early.time27M = mClock.timeOf(mEarlyStamp);
        push(early, points);
    }
    const bool hasVideo = mProgramme.videoPid != PID_NONE;
    const int64_t since27M = mClock.now27M() - mLastPoint27M;
    if (since27M >= (hasVideo ? ANY_SAMPLE_27M : SOUND_INTERVAL_27M) ||
        (!hasVideo && points->empty())) {
        push({offset, mClock.now27M(), mClock.now27M(), ticks}, points);
    }
}

void RecordingScanner::takeVideo(const uint8_t* packet, uint64_t offset, Points* points) {
    if (startsUnit(packet)) {
        if (mUnit) {
            settle(PictureStart::Verdict::No, points);
        }
        mStamp = presentationTimeOf(packet);
        mUnit = {offset, mClock.timeOf(mStamp), mClock.now27M(), mClock.ticks()};
        settle(mPictureStart.begin(packet), points);
    } else if (mUnit) {
        settle(mPictureStart.next(packet), points);
    }
}

void RecordingScanner::settle(PictureStart::Verdict verdict, Points* points) {
    if (verdict == PictureStart::Verdict::Undecided) {
        return;
    }
    const RandomAccessPoint unit = *std::exchange(mUnit, std::nullopt);
    mOldest = mOldest.value_or(unit);
    if (verdict == PictureStart::Verdict::Yes && !mClock.isSet()) {
        mEarlyStamp = mEarly ? mEarlyStamp : mStamp;
        mEarly = mEarly.value_or(unit);
    } else if (verdict == PictureStart::Verdict::Yes) {
        push(unit, points);
    } else if (unit.clock27M - mLastPoint27M >= ANY_PICTURE_27M) {
        if (points->empty()) {
            push(*mOldest, points);
        }
        push(unit, points);
    }
}

void RecordingScanner::push(RandomAccessPoint found, Points* points) {
    if (!points->empty()) {
        if (found.offset <= points->back().offset) {
            return;
        }
        found.time27M = std::max(found.time27M, points->back().time27M + 1);
    }
    points->push_back(found);
    mLastPoint27M = found.clock27M;
}

}  // namespace orvhost
