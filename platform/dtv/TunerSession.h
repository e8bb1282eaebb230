#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "dtv/ByteSource.h"
#include "dtv/EventTables.h"
#include "dtv/LivePacer.h"
#include "dtv/PacketCounter.h"
#include "dtv/PacketWindow.h"
#include "dtv/PcrPacer.h"
#include "dtv/ServiceTables.h"
#include "dtv/Tuner.h"

namespace orvhost {

// One source on the tuner, from tune() to untune(), with the thread that feeds it.
//
//   look at the head  ->  idle  <->  feeding  ->  ended
//                          ^------- rewind --------'
//
// A live source, paced, is read and fed from its first packet to the end of the session, whether
// filters run or not: what nobody wants passes by, and a filter gets what comes from then on.
//
// The head is read until the tables are known, a bound is reached or filters wait; it stays in the
// window and is fed like the rest. Feeding begins when a filter runs and its reader has asked for
// data (filters that belong together then all get the first packet), paced also 100 ms after the
// filter.
//
// Who feeds: paced, and free-running, the session's thread. Otherwise the readers, by pump(), so
// that what was read is still in the processor's cache when it is parsed; the thread then only
// looks at the head and rewinds.
class TunerSession {
public:
    TunerSession(HostClock& clock, Demultiplexer& demultiplexer, std::unique_ptr<ByteSource> source,
                 std::string name, const TuneOptions& options, std::function<void()> endCallback,
                 std::function<void(int)> playbackCallback, uint64_t number);
    ~TunerSession();
    TunerSession(const TunerSession&) = delete;  // the thread knows us by address
    TunerSession& operator=(const TunerSession&) = delete;

    void start();

    // Ends every wait here and joins the thread. Any thread but the feeding one, more than once.
    void close();

    // Filters changed.
    void wake();

    // For a reader that wants more: feeds once, waiting at most timeoutMs for the source. False
    // when nothing came of it, and always where the session's thread feeds. Any thread.
    bool pump(int timeoutMs);

    TuneResult waitForPackets();

    // Whether tuning to that source with these options would change nothing: it is live, and one
    // that is tuned goes on.
    bool isLiveFor(const std::string& name, const TuneOptions& options) const;
    // Waits until packets come, at most that long; not at all when some just came.
    TuneResult waitForMore(int timeoutMs);
    ServiceList services(int timeoutMs);
    BroadcastInformation information(int timeoutMs);
    std::optional<TunedProgramme> findProgramme(int videoPid, int audioPid) const;
    TunerStatistics statistics() const;
    bool atEnd() const;
    bool rewind();

    // Of a recording, see Tuner. Pausing counts from the call on.
    bool isRecorded() const { return mOptions.recorded; }
    uint64_t number() const { return mNumber; }
    const std::string& name() const { return mName; }
    const TuneOptions& options() const { return mOptions; }
    int duplicateSource() const { return mSource->duplicate(); }
    std::vector<SourceFault> takeFaults() { return mSource->takeFaults(); }
    bool setPaused(bool paused);
    bool reposition(uint64_t offset);
    bool wasFed() const;

private:
    void run();
    void lookAtHead();
    void settleOpening(ssize_t lastRead);
    bool waitForWork();
    void beginFeeding();
    void feedPaced();
    void readAhead();
    void hand(size_t count);
    void handBegin(size_t due, size_t most);
    void judgeRead(ssize_t got);
    bool isBurstDue() const;
    bool waitsForEnd(int64_t nowNs);
    void finishFeeding();
    void takePause();
    bool isPreview() const;
    void noteBegun(int64_t nowNs);
    void runLive();
    void receiveLive();
    void choosePace();
    bool isWantedLive();
    TuneResult silence() const;
    void feedLossless();
    bool feedOnce(int timeoutMs);
    bool isLive() const { return mOptions.paced && mSource->isLive(); }
    bool isPumped() const { return !mOptions.paced && !mOptions.freeRunning; }
    bool isHeld() const { return mPausedAtNs >= 0 && !mBurst; }
    bool mayGrow() const { return mOptions.recorded && !mFinishing; }
    bool goTo(std::optional<uint64_t> offset);
    bool reachEnd();
    void doRewind();
    bool startOver(std::optional<uint64_t> offset = {});
    ssize_t fill(int timeoutMs);
    void readFresh();
    bool isInformed() const;
    void sleepUntil(int64_t deadlineNs);
    uint16_t choosePid(int filterKind, uint16_t (*pidIn)(const Service&)) const;
    bool isCancelled() const { return mCancelled.load(std::memory_order_relaxed); }
    bool mayFeed() const;
    bool isWantedElsewhere() const;

    // What a recording begins with at once. The player shows a picture 1.5 s after the clock
    // reference that came with it: its clock begins with the last one of these.
    static constexpr int64_t LEAD_NS = 1'600'000'000;
    // What of it comes while the feed is paused, for a picture that stands; the clock comes whole.
    static constexpr int64_t PREVIEW_NS = 500'000'000;
    static constexpr int64_t LONGEST_SLEEP_NS = 100'000'000;

    HostClock& mClock;
    Demultiplexer& mDemultiplexer;
    const std::unique_ptr<ByteSource> mSource;
    const std::string mName;
    const TuneOptions mOptions;
    const std::function<void()> mEndCallback;
    const std::function<void(int)> mPlaybackCallback;
    const uint64_t mNumber;

    std::mutex mFeedMutex;  // whoever feeds; taken before all others. Down to mNextTickNs
    PacketWindow mWindow;
    size_t mLent = 0;  // packets at the front of the window that the filters refer to
    PcrPacer mPacer;
    bool mPacerKnowsWindow = false;  // the head is handed to the pacer when feeding begins
    bool mSourceEnded = false;
    // Of a recording:
    bool mAtPresentEnd = false;  // all of the file as it is was read
    bool mFinishing = false;     // ... and that is taken for the end
    int mEndEvent = 0;           // what the end is told as
    size_t mHeldBack = 0;        // packets that were due while it was paused
    size_t mJunkBytes = 0;       // in a row, without a packet
    // Live:
    LivePacer mLivePacer;
    bool mPaceChosen = false;
    uint64_t mFedThisLap = 0;
    int64_t mNextTickNs = 0;
    int64_t mLongTicksNs = 0;  // from when on

    mutable std::mutex mMutex;  // all below
    std::condition_variable mFeederWake;
    std::condition_variable mCallerWake;
    std::atomic<bool> mCancelled{false};
    bool mOpened = false;  // mOpening is final
    TuneResult mOpening;
    bool mHeadDone = false;
    bool mHeadCut = false;  // ... because filters wanted data
    bool mAllRead = false;  // the source's end was seen
    bool mFeeding = false;
    bool mSettled = false;  // filters run long enough to feed them unasked
    bool mEnded = false;
    bool mRewindWanted = false;
    std::optional<uint64_t> mRewindTo;  // a place in the file; its beginning without one
    int64_t mPausedAtNs = -1;           // -1: not paused
    int64_t mPausedNs = 0;              // that the pacer has not been told of
    bool mBurst = false;                // the begin of a recording's feed is to be handed over
    bool mWasFed = false;               // since then
    bool mRewindResult = false;
    int64_t mLastDataNs = 0;
    bool mMoreWanted = false;  // waitForMore() waits
    uint64_t mBytes = 0;
    uint64_t mPassed = 0;  // packets that nobody looked at
    uint64_t mSyncLosses = 0;
    uint64_t mSkippedBytes = 0;
    uint64_t mDroppedBefore = 0;
    uint64_t mRepeatedBefore = 0;
    ServiceTables mTables;
    EventTables mEvents;
    int64_t mClockReadNs = 0;  // when the stream last told its clock
    PacketCounter mCounter;

    std::mutex mThreadMutex;  // start() and close()
    std::thread mThread;
};

}  // namespace orvhost
