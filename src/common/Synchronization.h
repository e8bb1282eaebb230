#pragma once

#include <utils/RefBase.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <list>
#include <mutex>

#include "common/PCRListener.h"
#include "common/Uint33.h"

namespace OrvPlayer {

// The presentation clock: what is the stream time now?
//
// Three sources offer values: the PTS of every video PES, the PTS of every audio PES, and the PCR.
// Each keeps a base, a stream time and the local time at which it was taken; its stream time at
// any moment is the base plus the local time that has passed since. One source is current and
// defines the presentation time:
//
//     PCR                            when it is there and agrees with the PTS to within 20 s
//     video or audio                 when both are there: the one that is behind
//     none                           otherwise: there is no presentation time
//
// A base moves only when a value is more than a second away from it, so jitter of the arrival is
// ignored and a jump of the time base is followed. A per-source delay is subtracted from every
// value; the clock runs that much behind what arrives, and decoders have that much time.
//
// Thread-safe. It runs no thread of its own.
class Synchronization : public virtual android::RefBase {
public:
    enum module_t { NONE = 0, VIDEO = 1, AUDIO = 2, REAL_PCR = 3 };

    Synchronization();
    Synchronization(const Synchronization&) = delete;  // listeners and modules know it by address
    Synchronization& operator=(const Synchronization&) = delete;

    // Offers a new value (33 bits, 90 kHz) of a source. Parser threads. Listeners are called with
    // the clock's lock held.
    void setBasePCR(Uint33 pcr, module_t source);

    // Stores the presentation time now; false, and nothing stored, without a current source.
    bool getActualDefinedPCR(Uint33* pcr);
    // The presentation time now, 0 without a current source.
    Uint33 getPCRValue();

    // Forgets every base. The current source deliberately stays: the old presentation time goes on
    // until a new source is chosen. See SynchronizationTest.ResetKeepsTheCurrentSource.
    void resetPCR();

    // Marks the time at which playback pauses. Stream times keep advancing until resume() takes
    // the pause out again.
    void pause();
    // Shifts every base by the length of the pause and tells the listeners. Nothing happens when
    // not paused, or when less than a millisecond has passed (the clock then stays paused).
    void resume();

    // The delay of a source in milliseconds.
    void setOffsetTime(int timeInMs, module_t module);

    // Listeners are not owned and are added before the pipeline starts.
    void addListener(PCRListener* listener);

    // Returns 0; writes nothing for a null stream. However slow the stream is, the clock goes on.
    int dump(FILE* stream, int indent);

protected:
    ~Synchronization() override = default;

private:
    static constexpr int SOURCES = 4;

    Uint33 streamTime(module_t source, uint64_t nowMs) const;
    bool rebases(Uint33 value, module_t source, uint64_t nowMs, Uint33* expected,
                 int64_t* difference) const;
    void checkForBadRealPCR(unsigned long nowMs);
    void chooseCurrent(uint64_t nowMs);
    static void note(Uint33 time, int64_t jumpTicks, bool isReset);

    Uint33 mBasePCR[SOURCES];
    uint64_t mBaseTime[SOURCES] = {};  // monotonic milliseconds
    uint64_t mPauseTime = 0;           // monotonic milliseconds, 0 when not paused
    bool mValid[SOURCES] = {};
    module_t mCurrent = NONE;
    std::list<PCRListener*> mListeners;
    int32_t mOffset[SOURCES] = {};  // milliseconds
    std::mutex mLock;               // guards all of the above but the listeners
    bool mBadRealPCR = false;       // the PCR is ignored: it disagrees with the PTS sources
    static constexpr bool mAllowRebase = true;
    static constexpr int64_t mRebaseThreshold = 90000;  // 90 kHz ticks
};

// The monotonic clock in whole milliseconds; 0, logged, when it cannot be read. Every time of the
// pipeline that is compared with a stream time comes from here.
uint64_t getTimestamp();

}  // namespace OrvPlayer
