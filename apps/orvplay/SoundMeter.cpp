#include "SoundMeter.h"

namespace orvplay {

namespace {

constexpr double EARLY_MS = 201.0;  // so much ahead of its time sound is written at once
constexpr double MAX_EARLY_MS = 1000.0;

}  // namespace

void SoundMeter::onFigures(const orvclient::PlaybackFigures& figures) {
    for (const int64_t timeNs : figures.beepsNs) {
        mSync.onBeep(timeNs);
    }
    if (figures.audioEarlyCount == mEarlyCount) {
        return;
    }
    mEarlyCount = figures.audioEarlyCount;
    const double earlyMs = figures.audioEarlyMs;
    if (figures.outputLatencyMs > 0.0 && earlyMs < EARLY_MS && earlyMs > -MAX_EARLY_MS) {
        mSync.onTimeStamps(figures.outputLatencyMs - earlyMs);
    }
}

}  // namespace orvplay
