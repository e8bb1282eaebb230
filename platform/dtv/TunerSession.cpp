#include "dtv/TunerSession.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "trace/HostLog.h"

namespace orvhost {

namespace {

constexpr int64_t MS = 1'000'000;

constexpr size_t READ_BYTES = 128 << 10;
constexpr size_t HEAD_BYTES = 8 << 20;    // the look at the head ends here
constexpr uint64_t SYNC_BYTES = 1 << 20;  // so much without a packet is no transport stream
constexpr int POLL_MS = 20;               // how soon a waiting read sees that filters came

// One batch, which wakes every thread of the pipeline. Short ones for a quick start; later, what is
// handed over is shown in more than a second, and long ones do. A source that is not ahead of its
// pace, like a live pipe, is looked at often: a pipe holds 30 ms.
constexpr int64_t TICK_NS = 20 * MS;
constexpr int64_t LONG_TICK_NS = 90 * MS;
constexpr int64_t SHORT_TICKS_NS = 1000 * MS;  // of a feed that begins

constexpr int64_t LOOK_AHEAD_NS = 200 * MS;
constexpr int64_t SETTLE_NS = 100 * MS;  // for filters whose reader asks for nothing

// A recording is read from the start of its file. What is no file cannot be one.
TuneOptions settled(TuneOptions options, ByteSource& source) {
    options.recorded = options.recorded && source.seek(0);
    options.paced = options.paced || options.recorded;
    return options;
}

uint16_t pcrPidIn(const Service& service) {
    return service.pcrPid;
}

uint16_t videoPidIn(const Service& service) {
    const auto& streams = service.streams;
    const auto video = std::find_if(streams.begin(), streams.end(), [](const auto& stream) {
        return stream.kind == StreamKind::Video;
    });
    return video == streams.end() ? PID_NONE : video->pid;
}

}  // namespace

TunerSession::TunerSession(HostClock& clock, Demultiplexer& demultiplexer,
                           std::unique_ptr<ByteSource> source, std::string name,
                           const TuneOptions& options, std::function<void()> endCallback,
                           std::function<void(int)> playbackCallback, uint64_t number)
    : mClock(clock),
      mDemultiplexer(demultiplexer),
      mSource(std::move(source)),
      mName(std::move(name)),
      mOptions(settled(options, *mSource)),
      mEndCallback(std::move(endCallback)),
      mPlaybackCallback(std::move(playbackCallback)),
      mNumber(number) {}

TunerSession::~TunerSession() {
    close();
}

void TunerSession::start() {
    std::lock_guard lock(mThreadMutex);
    if (!isCancelled()) {
        mDemultiplexer.flush();
        {
            std::lock_guard counting(mMutex);
            mDroppedBefore = mDemultiplexer.droppedPackets();
            mRepeatedBefore = mDemultiplexer.repeatedPackets();
        }
        mThread = std::thread(&TunerSession::run, this);
    }
}

void TunerSession::close() {
    {
        std::lock_guard lock(mMutex);
        mCancelled.store(true, std::memory_order_relaxed);
    }
    mSource->interrupt();
    mDemultiplexer.wakeFeeder();
    mFeederWake.notify_all();
    mCallerWake.notify_all();
    std::lock_guard lock(mThreadMutex);
    if (mThread.joinable()) {
        mThread.join();
    }
    std::lock_guard feeding(mFeedMutex);  // nor does a reader feed any more
    if (std::exchange(mLent, 0) > 0) {
        mDemultiplexer.flush();
    }
}

void TunerSession::wake() {
    {
        std::lock_guard lock(mMutex);  // a feeder about to wait has looked already or will
    }
    mFeederWake.notify_all();
}

void TunerSession::run() {
    if (isLive()) {
        runLive();
        return;
    }
    {
        std::lock_guard feeding(mFeedMutex);
        lookAtHead();
    }
    mDemultiplexer.wakeReaders();
    while (waitForWork()) {
        std::lock_guard feeding(mFeedMutex);
        if (mOptions.paced) {
            feedPaced();
        } else {
            feedLossless();
        }
    }
}

// ---- the head --------------------------------------------------------------------------------

void TunerSession::lookAtHead() {
    bool wanted = true;
    while (wanted && !isCancelled()) {
        const ssize_t got = fill(POLL_MS);
        settleOpening(got);
        std::lock_guard lock(mMutex);
        mHeadCut = mayFeed() && mWindow.count() > 0;
        wanted = !mHeadCut && !mAllRead && !(mOpened && !mOpening.ok()) && !mTables.isComplete() &&
                 mWindow.count() * TS_PACKET_BYTES < HEAD_BYTES && !mRewindWanted;
    }
    {
        std::lock_guard lock(mMutex);
        mHeadDone = true;
    }
    mCallerWake.notify_all();
}

// Decides whether this is a transport stream at all.
void TunerSession::settleOpening(ssize_t lastRead) {
    std::lock_guard lock(mMutex);
    if (mOpened) {
        return;
    }
    const bool failed = lastRead < 0 && lastRead != -EAGAIN && lastRead != -EINTR;
    if (mWindow.count() > 0) {
        mOpening = {};
    } else if (failed) {
        mOpening = {TuneStatus::ReadError,
                    mName + ": read error: " + std::strerror(static_cast<int>(-lastRead))};
    } else if (mAllRead && mBytes == 0) {
        mOpening = {TuneStatus::EmptySource, mName + ": is empty; nothing to play in it"};
    } else if (mAllRead || mSkippedBytes >= SYNC_BYTES) {
        mOpening = {TuneStatus::NoSync,
                    mName + ": not an MPEG transport stream (no sync bytes found)"};
    } else {
        return;
    }
    mOpened = true;
    mCallerWake.notify_all();
}

TuneResult TunerSession::waitForPackets() {
    std::unique_lock lock(mMutex);
    mCallerWake.wait_for(lock, std::chrono::milliseconds(std::max(mOptions.timeoutMs, 0)),
                         [this] { return mOpened || isCancelled(); });
    if (isCancelled()) {
        return {TuneStatus::Cancelled, mName + ": given up"};
    }
    if (mOpened) {
        return mOpening;
    }
    return silence();
}

// What a wait without packets has come to.
TuneResult TunerSession::silence() const {
    if (mBytes == 0 && mSource->network().badDatagrams == 0) {
        return {TuneStatus::NoData, mName + ": " + mSource->silence()};
    }
    return {TuneStatus::NoSync, mName + ": not an MPEG transport stream (no sync bytes found)"};
}

ServiceList TunerSession::services(int timeoutMs) {
    std::unique_lock lock(mMutex);
    mCallerWake.wait_for(lock, std::chrono::milliseconds(std::max(timeoutMs, 0)), [this] {
        const bool idle = mHeadDone && !mHeadCut && !mFeeding;
        return mTables.isComplete() || mAllRead || idle || isCancelled();
    });
    ServiceList list;
    list.services = mTables.services();
    list.networkName = mTables.networkName();
    if (isCancelled()) {
        list.result = {TuneStatus::Cancelled, mName + ": given up"};
    } else if (list.services.empty()) {
        list.result = {TuneStatus::NoTables,
                       mName + ": no programme tables found; name the PIDs to play it"};
    }
    return list;
}

// Whether all is known that services() and information() tell. With mMutex held.
bool TunerSession::isInformed() const {
    const auto told = [this](uint16_t serviceId) { return mEvents.isTold(serviceId); };
    const std::vector<uint16_t> wanted = mTables.servicesWithEvents();
    return mTables.isComplete() && mEvents.clockRevision() > 0 &&
           std::all_of(wanted.begin(), wanted.end(), told);
}

BroadcastInformation TunerSession::information(int timeoutMs) {
    std::unique_lock lock(mMutex);
    mCallerWake.wait_for(lock, std::chrono::milliseconds(std::max(timeoutMs, 0)), [this] {
        const bool idle = mHeadDone && !mHeadCut && !mFeeding && !mOptions.freeRunning && !isLive();
        return isInformed() || mAllRead || idle || isCancelled();
    });
    BroadcastInformation information;
    mTables.addTo(&information);
    mEvents.addTo(&information);
    if (information.clock.utcS >= 0) {
        const int64_t ageMs = (mClock.nowNs() - mClockReadNs) / MS;
        information.clock.ageMs = static_cast<int32_t>(std::clamp<int64_t>(ageMs, 0, INT32_MAX));
    }
    if (isCancelled()) {
        information.result = {TuneStatus::Cancelled, mName + ": given up"};
    }
    return information;
}

std::optional<TunedProgramme> TunerSession::findProgramme(int videoPid, int audioPid) const {
    std::lock_guard lock(mMutex);
    return mTables.findProgramme(videoPid, audioPid, mOptions.serviceId);
}

// ---- reading ---------------------------------------------------------------------------------

// Reads once; what is new is counted and its tables are read.
ssize_t TunerSession::fill(int timeoutMs) {
    const ssize_t got = mWindow.fill(*mSource, READ_BYTES, timeoutMs, mayGrow());
    if (got == -EAGAIN || got == -EINTR) {
        return got;
    }
    if (got < 0) {
        HOST_LOGE("%s: %s: read error: %s", __func__, mName.c_str(),
                  std::strerror(static_cast<int>(-got)));
    }
    if (mOptions.recorded) {
        judgeRead(got);
    } else {
        mSourceEnded = got <= 0;
    }
    bool answered = false;
    {
        std::lock_guard lock(mMutex);
        const bool wereDone = mTables.isComplete();
        const uint64_t revision = mEvents.revision();
        if (mOptions.follow || !mHeadDone) {
            readFresh();
        } else {
            mPassed += mWindow.freshCount();
        }
        if (got > 0) {
            mBytes += static_cast<uint64_t>(got);
            mLastDataNs = mClock.nowNs();
            answered = std::exchange(mMoreWanted, false);
        }
        mSyncLosses = mWindow.synchronizer().syncLosses();
        mSkippedBytes = mWindow.synchronizer().skippedBytes();
        mAllRead = mAllRead || got <= 0;
        answered = answered || got <= 0 || (!wereDone && mTables.isComplete()) ||
                   revision != mEvents.revision();
    }
    if (answered) {
        mCallerWake.notify_all();
    }
    return got;
}

// With mMutex held.
void TunerSession::readFresh() {
    const uint8_t* packet = mWindow.fresh();
    for (size_t i = 0; i < mWindow.freshCount(); ++i, packet += TS_PACKET_BYTES) {
        mCounter.count(packet);
        if (mTables.wants(pidOf(packet))) {
            mTables.push(packet);
        } else if (EventTables::wants(pidOf(packet))) {
            const uint64_t clocks = mEvents.clockRevision();
            mEvents.push(packet);
            mClockReadNs = clocks != mEvents.clockRevision() ? mClock.nowNs() : mClockReadNs;
        }
    }
}

// ---- feeding ---------------------------------------------------------------------------------

// Whether filters or a tap want data now. With mMutex held.
bool TunerSession::mayFeed() const {
    return mOptions.freeRunning || mDemultiplexer.isTapped() ||
           (mDemultiplexer.filterCount() > 0 && (mDemultiplexer.readerArrived() || mSettled));
}

// Waits until there is something to feed. False when the session is over.
bool TunerSession::waitForWork() {
    std::unique_lock lock(mMutex);
    int64_t settledNs = mSettled ? 0 : -1;  // from when on filters alone are reason enough
    for (;;) {
        if (isCancelled() || (mOpened && !mOpening.ok())) {
            return false;
        }
        if (mRewindWanted) {
            lock.unlock();
            doRewind();
            lock.lock();
            continue;
        }
        mSettled = settledNs >= 0 && mClock.nowNs() >= settledNs;
        if (!mEnded && mayFeed() && !isPumped()) {
            if (!mFeeding) {
                mFeeding = true;
                mBurst = mOptions.recorded;
                lock.unlock();
                beginFeeding();
                lock.lock();
            }
            if (isHeld()) {
                mFeederWake.wait(lock);
                continue;
            }
            return true;
        }
        mFeeding = false;
        if (mEnded || !mOptions.paced || mDemultiplexer.filterCount() == 0) {
            settledNs = -1;
            mFeederWake.wait(lock);
        } else {
            settledNs = settledNs < 0 ? mClock.nowNs() + SETTLE_NS : settledNs;
            mClock.waitUntil(lock, mFeederWake, settledNs);
        }
    }
}

// Of the service that was asked for, else of the filter of that kind that runs, else of the first
// service that has one.
uint16_t TunerSession::choosePid(int filterKind, uint16_t (*pidIn)(const Service&)) const {
    std::vector<Service> services;
    {
        std::lock_guard lock(mMutex);
        services = mTables.services();
    }
    for (const Service& service : services) {
        const uint16_t named = pidIn(service);
        if (mOptions.serviceId != 0 && service.serviceId == mOptions.serviceId &&
            named != PID_NONE) {
            return named;
        }
    }
    const uint16_t filtered = mDemultiplexer.filterPid(filterKind);
    if (filtered != PID_NONE) {
        return filtered;
    }
    const auto found = std::find_if(services.begin(), services.end(),
                                    [pidIn](const Service& s) { return pidIn(s) != PID_NONE; });
    return found == services.end() ? PID_NONE : pidIn(*found);
}

void TunerSession::beginFeeding() {
    if (mOptions.paced) {
        mPacer.setPcrPid(mOptions.pcrPid != PID_NONE ? mOptions.pcrPid
                                                     : choosePid(DEMUX_FILTER_PCR, pcrPidIn));
        mPacer.setStampPid(choosePid(DEMUX_FILTER_VIDEO, videoPidIn));
        mPacer.setKeepGaps(mOptions.keepGaps);
        mPacer.restart(mOptions.recorded ? LEAD_NS : 0);
        mNextTickNs = mClock.nowNs();
        mLongTicksNs = mNextTickNs + SHORT_TICKS_NS;
    }
}

void TunerSession::readAhead() {
    if (!mPacerKnowsWindow) {
        mPacer.add(mWindow.packets(), mWindow.count());
        mPacerKnowsWindow = true;
    }
    const int64_t wantedNs = LOOK_AHEAD_NS + (isBurstDue() ? LEAD_NS : 0);
    while (!mSourceEnded && mPacer.bufferedNs() < wantedNs &&
           mWindow.count() * TS_PACKET_BYTES < HEAD_BYTES) {
        const ssize_t got = fill(0);
        if (got <= 0 && !mSourceEnded) {
            break;
        }
        mPacer.add(mWindow.fresh(), mWindow.freshCount());
    }
    if (mSourceEnded) {
        mPacer.finish();
    }
}

void TunerSession::hand(size_t count) {
    mDemultiplexer.feedLive(mWindow.packets(), count);
    mWindow.release(count);
    mFedThisLap += count;
}

void TunerSession::feedPaced() {
    takePause();
    readAhead();
    const int64_t nowNs = mClock.nowNs();
    const size_t preview = isPreview() ? mPacer.packetsWithin(PREVIEW_NS) : SIZE_MAX;
    const size_t due = mPacer.takeDue(nowNs);
    if (mHeldBack > 0 || (due > 0 && isBurstDue())) {
        handBegin(mHeldBack + due, preview);
        noteBegun(nowNs);
    } else if (due > 0) {
        hand(due);
    }
    if (mWindow.count() == 0 && (mSourceEnded || mAtPresentEnd)) {
        if (!mOptions.recorded || !waitsForEnd(nowNs)) {
            finishFeeding();
        }
        return;
    }
    const bool isLong = nowNs >= mLongTicksNs && mPacer.bufferedNs() >= LONG_TICK_NS;
    mNextTickNs = std::max(mNextTickNs + (isLong ? LONG_TICK_NS : TICK_NS), nowNs);
    const int64_t wakeNs = std::max(mNextTickNs, mPacer.nextDueNs(mNextTickNs));
    sleepUntil(std::min(wakeNs, nowNs + LONGEST_SLEEP_NS));
}

// Also ends when the session is closed, rewound or paused, or the last filter stops.
void TunerSession::sleepUntil(int64_t deadlineNs) {
    std::unique_lock lock(mMutex);
    while (!isCancelled() && !mRewindWanted && !isHeld() && mayFeed() &&
           mClock.nowNs() < deadlineNs) {
        mClock.waitUntil(lock, mFeederWake, deadlineNs);
    }
}

// Asked after a queue refused: who sets either flag wakes the feeder only afterwards, so that the
// wait that follows cannot miss it.
bool TunerSession::isWantedElsewhere() const {
    std::lock_guard lock(mMutex);
    return isCancelled() || mRewindWanted;
}

void TunerSession::feedLossless() {
    if (!feedOnce(POLL_MS) && mLent > 0 && !isWantedElsewhere()) {
        mDemultiplexer.waitForRoom();
    }
}

bool TunerSession::pump(int timeoutMs) {
    if (!isPumped()) {
        return false;
    }
    std::lock_guard feeding(mFeedMutex);
    {
        std::lock_guard lock(mMutex);
        if (isCancelled() || !mHeadDone || !mOpening.ok() || mRewindWanted || mEnded) {
            return false;
        }
    }
    return feedOnce(timeoutMs);
}

// Reads once and lends the filters what came. False when nothing did, or when a queue is too full
// for what is lent to it still.
bool TunerSession::feedOnce(int timeoutMs) {
    if (!mDemultiplexer.takeBack()) {
        return false;
    }
    mWindow.release(std::exchange(mLent, 0));
    if (mWindow.count() == 0) {
        if (mSourceEnded) {
            return reachEnd();
        }
        fill(timeoutMs);
    }
    mLent = mWindow.count();
    mDemultiplexer.lend(mWindow.packets(), mLent);
    mFedThisLap += mLent;
    return mLent > 0;
}

// True when the source goes on from its beginning.
bool TunerSession::reachEnd() {
    const bool again = mOptions.loop && mFedThisLap > 0;
    if (again && startOver()) {
        return true;
    }
    {
        std::lock_guard lock(mMutex);
        mEnded = true;
    }
    mCallerWake.notify_all();
    mDemultiplexer.releaseReaders();
    if (mEndCallback) {
        mEndCallback();
    }
    if (mOptions.recorded && mPlaybackCallback) {
        mPlaybackCallback(mEndEvent);
    }
    return false;
}

// ---- going back ------------------------------------------------------------------------------

bool TunerSession::startOver(std::optional<uint64_t> offset) {
    if (mOptions.recorded ? !mSource->seek(offset.value_or(0)) : !mSource->rewind()) {
        return false;
    }
    if (std::exchange(mLent, 0) > 0) {
        mDemultiplexer.flush();
    }
    mWindow.clear();
    mPacer.clear();
    mPacerKnowsWindow = true;
    mSourceEnded = false;
    mAtPresentEnd = false;
    mJunkBytes = 0;
    mHeldBack = 0;
    mFedThisLap = 0;
    std::lock_guard lock(mMutex);
    mCounter.forgetContinuity();
    return true;
}

void TunerSession::doRewind() {
    std::lock_guard feeding(mFeedMutex);
    std::optional<uint64_t> offset;
    {
        std::lock_guard lock(mMutex);
        offset = mRewindTo;
    }
    const bool done = startOver(offset);
    if (done) {
        mDemultiplexer.flush();
    }
    {
        std::lock_guard lock(mMutex);
        mRewindWanted = false;
        mRewindResult = done;
        if (done) {
            mEnded = false;
            mFeeding = mFeeding && !mOptions.recorded;  // it begins again
            mWasFed = false;
            mPausedNs = 0;
        }
    }
    mCallerWake.notify_all();
}

bool TunerSession::rewind() {
    return goTo(std::nullopt);
}

bool TunerSession::reposition(uint64_t offset) {
    return mOptions.recorded && goTo(offset);
}

bool TunerSession::goTo(std::optional<uint64_t> offset) {
    std::unique_lock lock(mMutex);
    mRewindTo = offset;
    mRewindWanted = true;
    mDemultiplexer.wakeFeeder();
    mFeederWake.notify_all();
    mCallerWake.wait(lock, [this] { return !mRewindWanted || isCancelled(); });
    return !isCancelled() && mRewindResult;
}

bool TunerSession::atEnd() const {
    std::lock_guard lock(mMutex);
    return mEnded;
}

TunerStatistics TunerSession::statistics() const {
    std::lock_guard lock(mMutex);
    TunerStatistics all;
    all.packets = mCounter.packets() + mPassed;
    all.bytes = mBytes;
    all.syncLosses = mSyncLosses;
    all.skippedBytes = mSkippedBytes;
    all.droppedPackets = mDemultiplexer.droppedPackets() - mDroppedBefore;
    all.repeatedPackets = mDemultiplexer.repeatedPackets() - mRepeatedBefore;
    all.pids = mCounter.pids();
    all.network = mSource->network();
    all.frontend = mSource->frontend();
    return all;
}

}  // namespace orvhost
