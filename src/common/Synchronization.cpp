#include "common/Synchronization.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <string>

#include "common/PresentationLog.h"
#include "common/Trace.h"

namespace OrvPlayer {

namespace {

// The last name belongs to no source.
const char* const moduleNames[] = {"None", "Video", "Audio", "Real PCR", ""};

constexpr int64_t TICKS_PER_MS = 90;
constexpr uint64_t MIN_REBASE_INTERVAL_MS = 11;
constexpr int64_t BAD_PCR_TICKS = 1'800'000;  // 20 s

}  // namespace

uint64_t getTimestamp() {
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        ORV_LOGE("%s: Error on attempt of obtaining system time\n", __func__);
        return 0;
    }
    return static_cast<uint64_t>(now.tv_sec) * 1000 +
           static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
}

Synchronization::Synchronization() {
    for (Uint33& base : mBasePCR) {
        base = UINT33_MASK;
    }
}

Uint33 Synchronization::streamTime(module_t source, uint64_t nowMs) const {
    return (mBasePCR[source] + (nowMs - mBaseTime[source]) * TICKS_PER_MS) & UINT33_MASK;
}

void Synchronization::setBasePCR(Uint33 pcr, module_t source) {
    std::lock_guard<std::mutex> guard(mLock);
    if (source == NONE) {
        ORV_LOGE("%s: cannot set PCR for None\n", __func__);
        return;
    }
    const Uint33 value = uint33Sum(pcr, -TICKS_PER_MS * mOffset[source]);
    const uint64_t now = getTimestamp();
    Uint33 expected = 0;
    int64_t difference = 0;
    const bool isRebase = mValid[source];
    if (isRebase && !rebases(value, source, now, &expected, &difference)) {
        return;
    }
    ORV_LOGI("%s: Received PCR: %llu BasePCR: %llu (diff: %llu)\n", __func__,
             static_cast<unsigned long long>(value), static_cast<unsigned long long>(expected),
             static_cast<unsigned long long>(std::llabs(difference)));
    mBasePCR[source] = value;
    mBaseTime[source] = getTimestamp();
    ORV_LOGI("%s: Setting PCR: %llu - mBaseTime: %llu (%s)\n", __func__,
             static_cast<unsigned long long>(value),
             static_cast<unsigned long long>(mBaseTime[source]), moduleNames[source]);
    mValid[source] = true;
    const module_t before = mCurrent;
    checkForBadRealPCR(now);
    chooseCurrent(now);
    if (isRebase && (before == source || mCurrent == source)) {
        note(value, difference, false);
    }
    ORV_LOGI("%s Using %s as PCR\n", __func__, moduleNames[mCurrent]);
    if (mCurrent == source) {
        const Uint33 base = streamTime(source, now);
        for (PCRListener* listener : mListeners) {
            listener->onPCRChanged(base);
        }
    }
}

bool Synchronization::rebases(Uint33 value, module_t source, uint64_t nowMs, Uint33* expected,
                              int64_t* difference) const {
    if (!mAllowRebase) {
        return false;
    }
    *expected = streamTime(source, nowMs);
    *difference = uint33Difference(value, *expected);
    return std::llabs(*difference) > mRebaseThreshold &&
           nowMs - mBaseTime[source] >= MIN_REBASE_INTERVAL_MS;
}

void Synchronization::checkForBadRealPCR(unsigned long nowMs) {
    if (!mValid[REAL_PCR]) {
        return;
    }
    const Uint33 real = streamTime(REAL_PCR, nowMs);
    const auto differenceTo = [this, real, nowMs](module_t source) -> int64_t {
        return mValid[source] ? uint33Difference(real, streamTime(source, nowMs)) : 0;
    };
    const int64_t audio = differenceTo(AUDIO);
    const int64_t video = differenceTo(VIDEO);
    const bool acceptable = std::llabs(audio) < BAD_PCR_TICKS && std::llabs(video) < BAD_PCR_TICKS;
    if (!mBadRealPCR && !acceptable) {
        ORV_LOGW("%s: Ignoring real PCR due to high difference. (%lld) (%lld)\n", __func__,
                 static_cast<long long>(audio), static_cast<long long>(video));
        mBadRealPCR = true;
    } else if (mBadRealPCR && acceptable) {
        ORV_LOGW("%s: Real PCR normalized. (%d) (%d)\n", __func__, static_cast<int>(audio),
                 static_cast<int>(video));
        mBadRealPCR = false;
    }
}

void Synchronization::chooseCurrent(uint64_t nowMs) {
    if (mValid[REAL_PCR] && !mBadRealPCR) {
        mCurrent = REAL_PCR;
        return;
    }
    if (!mValid[VIDEO] || !mValid[AUDIO]) {
        mCurrent = NONE;
        return;
    }
    const Uint33 video = streamTime(VIDEO, nowMs);
    const Uint33 audio = streamTime(AUDIO, nowMs);
    ORV_LOGI("%s: videoPCR: %lld\n", "setBasePCR", static_cast<long long>(video));
    ORV_LOGI("%s: audioPCR: %lld\n", "setBasePCR", static_cast<long long>(audio));
    mCurrent = uint33Difference(video, audio) < 1 ? VIDEO : AUDIO;
}

bool Synchronization::getActualDefinedPCR(Uint33* pcr) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mCurrent == NONE) {
        return false;
    }
    *pcr = streamTime(mCurrent, getTimestamp());
    return true;
}

Uint33 Synchronization::getPCRValue() {
    Uint33 now = 0;
    getActualDefinedPCR(&now);
    return now;
}

void Synchronization::resetPCR() {
    ORV_LOGV("%s\n", __func__);
    std::lock_guard<std::mutex> guard(mLock);
    if (std::find(std::begin(mValid), std::end(mValid), true) != std::end(mValid)) {
        note(0, 0, true);
    }
    mPauseTime = 0;
    for (bool& valid : mValid) {
        valid = false;
    }
}

void Synchronization::note(Uint33 time, int64_t jumpTicks, bool isReset) {
    PresentationLog& log = PresentationLog::instance();
    if (!log.isOn()) {
        return;
    }
    PresentationRecord record;
    record.kind = PresentationRecord::CLOCK;
    record.outcome = isReset ? PresentationRecord::RESET : PresentationRecord::REBASED;
    record.pts = time;
    record.waitMs = static_cast<int32_t>(jumpTicks / TICKS_PER_MS);
    log.add(record);
}

void Synchronization::pause() {
    std::lock_guard<std::mutex> guard(mLock);
    mPauseTime = getTimestamp();
}

void Synchronization::resume() {
    Uint33 now = 0;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mPauseTime == 0) {
            return;
        }
        const uint64_t paused = getTimestamp() - mPauseTime;
        if (paused == 0) {
            return;
        }
        for (uint64_t& time : mBaseTime) {
            time += paused;
        }
        mPauseTime = 0;
        now = streamTime(mCurrent, getTimestamp());
    }
    for (PCRListener* listener : mListeners) {
        listener->onPCRChanged(now);
    }
}

void Synchronization::setOffsetTime(int timeInMs, module_t module) {
    ORV_LOGV("%s timeInMs = %d currentModule = %d\n", __func__, timeInMs, module);
    std::lock_guard<std::mutex> guard(mLock);
    mOffset[module] = timeInMs;
}

void Synchronization::addListener(PCRListener* listener) {
    mListeners.push_back(listener);
}

int Synchronization::dump(FILE* stream, int indent) {
    if (stream == nullptr) {
        return 0;
    }
    const std::string start(static_cast<size_t>(indent), '\t');
    const char* prefix = start.c_str();
    module_t current = NONE;
    unsigned long long times[SOURCES] = {};
    const char* validity[SOURCES] = {};
    {
        std::lock_guard<std::mutex> guard(mLock);
        current = mCurrent;
        const uint64_t now = getTimestamp();
        for (const module_t source : {VIDEO, AUDIO, REAL_PCR}) {
            times[source] = mValid[source] ? streamTime(source, now) : 0;
            validity[source] = mValid[source] ? "Valid" : "Invalid";
        }
    }
    // Written without the lock: whoever reads the report may be slow.
    fprintf(stream, "%s - Current PCR generated by: %s\n", prefix, moduleNames[current]);
    fprintf(stream, "%s - Video PCR: %llu (%s)\n", prefix, times[VIDEO], validity[VIDEO]);
    fprintf(stream, "%s - Audio PCR: %llu (%s)\n", prefix, times[AUDIO], validity[AUDIO]);
    fprintf(stream, "%s - Real PCR: %llu (%s)\n", prefix, times[REAL_PCR], validity[REAL_PCR]);
    return 0;
}

}  // namespace OrvPlayer
