#include "recording/RecordingWriter.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "trace/HostLog.h"

namespace orvhost {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr size_t BLOCK_PACKETS = (256 << 10) / TS_PACKET_BYTES;
constexpr size_t MOST_PACKETS = 4 * BLOCK_PACKETS;
constexpr int WRITE_EVERY_MS = 500;
constexpr auto SYNC_EVERY = seconds(5);
constexpr auto UPDATE_EVERY = seconds(10);
constexpr auto LOSS_EVERY = seconds(1);

IndexedProgramme indexedProgramme(const TunedProgramme& programme, int videoPid) {
    const Service& service = programme.service;
    IndexedProgramme indexed;
    indexed.serviceId = service.serviceId;
    indexed.pcrPid = service.pcrPid;
    for (const ElementaryStream& stream : service.streams) {
        if (stream.kind == StreamKind::Video &&
            (indexed.videoPid == PID_NONE || stream.pid == videoPid)) {
            indexed.videoPid = stream.pid;
            indexed.videoType = stream.streamType;
        }
    }
    return indexed;
}

// A file that may not grow further is an error of write(), not the end of the process.
void ignoreFileLimit() {
    sigset_t limit;
    sigemptyset(&limit);
    sigaddset(&limit, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &limit, nullptr);
}

}  // namespace

// ---- beginning -------------------------------------------------------------------------------

std::shared_ptr<RecordingWriter> RecordingWriter::begin(
    Demultiplexer& demultiplexer, Catalogue& catalogue, const NewRecording& recording,
    TunedProgramme programme, const Options& options, EventCallback callback,
    RecordingResult* result) {
    BegunRecording begun;
    *result = catalogue.begin(recording, &begun);
    if (!result->ok()) {
        return nullptr;
    }
    const IndexedProgramme indexed = indexedProgramme(programme, recording.videoPid);
    const int number = begun.details.number;
    auto index = RecordingIndexWriter::create(begun.details.indexPath(), indexed);
    if (index == nullptr) {
        HOST_LOGW("%s: %s: cannot be written: %s; it can be made later\n", __func__,
                  begun.details.indexPath().c_str(), std::strerror(errno));
    }
    const std::shared_ptr<RecordingWriter> writer(
        new RecordingWriter(demultiplexer, catalogue, std::move(begun), std::move(programme),
                            options, std::move(callback)));
    writer->mIndex = std::move(index);
    const char* reason = nullptr;
    if (!writer->mQueue.isUsable()) {
        reason = "no memory for a recording";
    } else if (!demultiplexer.startTap(writer->mTap)) {
        reason = "another recording is being made";
    }
    if (reason == nullptr) {
        try {
            writer->mThread = std::thread([writer] { writer->run(); });
            return writer;
        } catch (const std::system_error&) {
            reason = "no thread for a recording";
        }
    }
    demultiplexer.stopTap(writer->mTap);
    catalogue.discard(number);
    *result = {RecordingStatus::StorageError, reason};
    return nullptr;
}

RecordingWriter::RecordingWriter(Demultiplexer& demultiplexer, Catalogue& catalogue,
                                 BegunRecording begun, TunedProgramme programme,
                                 const Options& options, EventCallback callback)
    : mDemultiplexer(demultiplexer),
      mCatalogue(catalogue),
      mOptions(options),
      mNumber(begun.details.number),
      mQueue(options.queuePackets),
      mTap(std::move(programme), static_cast<uint16_t>(begun.details.videoPid), mQueue,
           HostClock::monotonic()),
      mFd(begun.fd),
      mFile(mFd, options.space),
      mCallback(std::move(callback)),
      mDetails(std::move(begun.details)) {}

RecordingWriter::~RecordingWriter() {
    if (mThread.joinable()) {
        // Not stopped in time, so that the thread held the last reference; or stopped by the
        // callback, and it still does.
        mThread.detach();
    }
    if (mFd >= 0) {
        close(mFd);
    }
}

// ---- the thread ------------------------------------------------------------------------------

void RecordingWriter::run() {
    mThreadId = std::this_thread::get_id();
    ignoreFileLimit();
    mBegan = mSynced = mUpdated = steady_clock::now();
    while (step()) {
    }
    if (outcome() != Outcome::Running) {
        return;  // the callback has stopped it
    }
    const Order order = mOrder;
    finish(order != Order::Discard);
    if (order == Order::None) {
        tell(endEvent());
    }
}

// False when the recording is over.
bool RecordingWriter::step() {
    const bool isFirst = mFile.sizeBytes() == 0;
    writeSome(isFirst ? 1 : BLOCK_PACKETS, WRITE_EVERY_MS);
    tellLoss();
    keepUp();
    return mStatus == Status::Ok && mOrder == Order::None && !mTap.isSourceLeft();
}

// Writes a block, or what there is.
void RecordingWriter::writeSome(size_t enough, int timeoutMs) {
    const PacketQueue::Stretch stretch = mQueue.wait(enough, MOST_PACKETS, timeoutMs);
    if (stretch.packets == 0) {
        return;
    }
    const int64_t before = mFile.sizeBytes();
    mStatus = mFile.write(stretch.data, stretch.packets);
    const auto written = static_cast<size_t>(mFile.sizeBytes() - before) / TS_PACKET_BYTES;
    if (mIndex != nullptr && !mIndex->add(stretch.data, written)) {
        HOST_LOGW("%s: recording %d: its index cannot be written\n", __func__, mNumber);
        mIndex.reset();
    }
    if (mQueue.release(stretch.packets)) {
        mDemultiplexer.tapHasRoom();
    }
    mSizeBytes = mFile.sizeBytes();
    mDurationMs = durationMs();
    if (mStatus != Status::Ok) {
        HOST_LOGE("%s: recording %d ends: %s\n", __func__, mNumber, std::strerror(mFile.error()));
    }
}

int64_t RecordingWriter::durationMs() const {
    const auto elapsed = std::chrono::duration_cast<milliseconds>(steady_clock::now() - mBegan);
    return mIndex != nullptr ? mIndex->durationMs() : elapsed.count();
}

// Why it ended by itself.
int RecordingWriter::endEvent() const {
    switch (mStatus) {
        case Status::Full:
            return RECORDER_EVENT_STORAGE_FULL;
        case Status::Failed:
            return mFile.sizeBytes() == 0 ? RECORDER_EVENT_START_FAILED
                                          : RECORDER_EVENT_WRITE_FAILED;
        default:
            return RECORDER_EVENT_INPUT_LOST;
    }
}

// Every hole is told, but not more often than once a second.
void RecordingWriter::tellLoss() {
    const uint64_t lost = mTap.lostPackets();
    const auto now = steady_clock::now();
    if (lost != mLossKnown && (mLossKnown == 0 || now - mLossTold >= LOSS_EVERY)) {
        HOST_LOGE("%s: recording %d: the storage was too slow for %llu packets\n", __func__,
                  mNumber, static_cast<unsigned long long>(lost - mLossKnown));
        mLossKnown = lost;
        mLossTold = now;
        tell(RECORDER_EVENT_INPUT_LOST);
    }
}

void RecordingWriter::tell(int event) {
    std::lock_guard lock(mCallbackMutex);
    if (!mSilent) {
        mCallback(event);
    }
}

// Now and then what was written goes to the storage for good, and to the catalogue.
void RecordingWriter::keepUp() {
    const auto now = steady_clock::now();
    if (now - mSynced >= SYNC_EVERY) {
        mSynced = now;
        mStatus = mFile.sync();
    }
    if (now - mUpdated >= UPDATE_EVERY) {
        mUpdated = now;
        mCatalogue.update(mNumber, mDurationMs, mSizeBytes);
    }
}

// ---- the end ---------------------------------------------------------------------------------

// On the writer's thread, once.
void RecordingWriter::finish(bool keep) {
    mDemultiplexer.stopTap(mTap);
    const Outcome outcome = keep ? keepFile() : discardFile();
    mIndex.reset();
    close(std::exchange(mFd, -1));
    std::lock_guard lock(mMutex);
    mOutcome = outcome;
    mFinished.notify_all();
}

RecordingWriter::Outcome RecordingWriter::keepFile() {
    for (int64_t before = -1; mStatus == Status::Ok && before != mFile.sizeBytes();) {
        before = mFile.sizeBytes();
        writeSome(0, 0);
    }
    // A player warns of a PES packet that is not whole, and cannot show it.
    for (const RecordingTap::OpenUnit& unit : mTap.openUnits()) {
        mFile.blank(unit.pid, unit.offset);
    }
    for (const uint16_t pid : mTap.soundPids()) {
        mFile.trimSound(pid);
    }
    if (mIndex != nullptr) {
        mIndex->finish(mFd);
    }
    const Status status = mFile.finish();
    if (status != Status::Ok) {
        HOST_LOGE("%s: recording %d: %s\n", __func__, mNumber, std::strerror(mFile.error()));
    }
    if (mFile.sizeBytes() == 0 || mFile.isGone()) {
        discardFile();  // there is nothing to keep
        return Outcome::Failed;
    }
    const auto result = mCatalogue.finish(mNumber, {durationMs(), mFile.sizeBytes(), true});
    return result.ok() ? Outcome::Kept : Outcome::Failed;
}

RecordingWriter::Outcome RecordingWriter::discardFile() {
    return mCatalogue.discard(mNumber).ok() ? Outcome::Discarded : Outcome::Failed;
}

bool RecordingWriter::stop(bool keep) {
    Order none = Order::None;
    mOrder.compare_exchange_strong(none, keep ? Order::Keep : Order::Discard);
    if (std::this_thread::get_id() == mThreadId.load()) {
        mSilent = true;
        if (outcome() == Outcome::Running) {
            finish(mOrder == Order::Keep);
        }
    } else if (waitUntilFinished()) {
        std::lock_guard lock(mThreadMutex);
        if (mThread.joinable()) {
            mThread.join();
        }
    }
    return settle(keep);
}

// No event comes once this has returned.
bool RecordingWriter::waitUntilFinished() {
    mQueue.wake();
    bool isFinished = false;
    {
        std::unique_lock lock(mMutex);
        isFinished = mFinished.wait_for(lock, milliseconds(mOptions.stopWaitMs),
                                        [this] { return mOutcome != Outcome::Running; });
    }
    std::lock_guard lock(mCallbackMutex);
    mSilent = true;
    return isFinished;
}

RecordingWriter::Outcome RecordingWriter::outcome() const {
    std::lock_guard lock(mMutex);
    return mOutcome;
}

// Whether the end is the one that was asked for; a recording that ended by itself may be thrown
// away yet.
bool RecordingWriter::settle(bool keep) {
    const Outcome is = outcome();
    if (keep || is != Outcome::Kept) {
        return is == (keep ? Outcome::Kept : Outcome::Discarded);
    }
    const bool gone = mCatalogue.remove(mNumber).ok();
    std::lock_guard lock(mMutex);
    mOutcome = gone ? Outcome::Discarded : Outcome::Failed;
    return gone;
}

// ---- what is known ---------------------------------------------------------------------------

RecordingDetails RecordingWriter::details() const {
    std::lock_guard lock(mMutex);
    RecordingDetails known = mDetails;
    known.sizeBytes = mSizeBytes;
    known.durationMs = mDurationMs;
    return known;
}

RecordingResult RecordingWriter::setLabels(const std::string& stationName,
                                           const std::string& programmeName) {
    RecordingDetails renamed;
    const RecordingResult result =
        mCatalogue.setLabels(mNumber, stationName, programmeName, &renamed);
    if (result.ok()) {
        std::lock_guard lock(mMutex);
        mDetails = std::move(renamed);
    }
    return result;
}

}  // namespace orvhost
