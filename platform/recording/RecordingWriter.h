#pragma once

#include <dtv/RecPlayerBinder.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "dtv/Demultiplexer.h"
#include "recording/Catalogue.h"
#include "recording/PacketQueue.h"
#include "recording/RecordingFile.h"
#include "recording/RecordingIndex.h"
#include "recording/RecordingTap.h"

namespace orvhost {

// One recording, from its first packet to its last.
//
//   feed --> RecordingTap --> PacketQueue --> thread: RecordingFile, RecordingIndexWriter,
//   Catalogue
//
// The thread writes blocks of 256 KiB, and what there is twice a second; nobody else waits for the
// storage but begin() and stop(). A recording that cannot go on is finished as if it had been
// stopped, and then the reason is told.
class RecordingWriter : public std::enable_shared_from_this<RecordingWriter> {
public:
    struct Options {
        RecordingSpace space;
        // 32 MiB: what a storage may be late by, 15 s at 17 Mbit/s.
        size_t queuePackets = (32 << 20) / TS_PACKET_BYTES;
        int stopWaitMs = 15'000;
    };

    // Of RecPlayerBinder_RecorderEvent, on the writer's thread, without a lock that stop() takes.
    using EventCallback = std::function<void(int event)>;

    // Begins a recording of this programme. Null with the reason, and nothing is left of it then.
    static std::shared_ptr<RecordingWriter> begin(Demultiplexer& demultiplexer,
                                                  Catalogue& catalogue,
                                                  const NewRecording& recording,
                                                  TunedProgramme programme, const Options& options,
                                                  EventCallback callback, RecordingResult* result);
    ~RecordingWriter();
    RecordingWriter(const RecordingWriter&) = delete;  // the thread knows it by address
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    // Ends the recording and keeps it, or throws it away; afterwards no event comes. Waits until
    // that is done, at most stopWaitMs, after which the thread goes on alone. True when the
    // recording is there, finished, or is not there, as asked. May be called by the callback, and
    // again: what ended by itself can be thrown away.
    bool stop(bool keep);

    // As far as it is known; the length up to the block written last.
    RecordingDetails details() const;
    RecordingResult setLabels(const std::string& stationName, const std::string& programmeName);

private:
    enum class Order { None, Keep, Discard };
    enum class Outcome { Running, Kept, Discarded, Failed };

    RecordingWriter(Demultiplexer& demultiplexer, Catalogue& catalogue, BegunRecording begun,
                    TunedProgramme programme, const Options& options, EventCallback callback);

    using Status = RecordingFile::Status;

    void run();
    bool step();
    void writeSome(size_t enough, int timeoutMs);
    void tellLoss();
    void tell(int event);
    int endEvent() const;
    void keepUp();
    void finish(bool keep);
    Outcome keepFile();
    Outcome discardFile();
    bool waitUntilFinished();
    Outcome outcome() const;
    bool settle(bool keep);
    int64_t durationMs() const;

    Demultiplexer& mDemultiplexer;
    Catalogue& mCatalogue;
    const Options mOptions;
    const int mNumber;
    PacketQueue mQueue;
    RecordingTap mTap;

    // The thread's own.
    int mFd;
    RecordingFile mFile;
    Status mStatus = Status::Ok;
    std::unique_ptr<RecordingIndexWriter> mIndex;  // null where it cannot be written
    std::chrono::steady_clock::time_point mBegan;
    std::chrono::steady_clock::time_point mSynced;
    std::chrono::steady_clock::time_point mUpdated;
    std::chrono::steady_clock::time_point mLossTold;
    uint64_t mLossKnown = 0;

    std::atomic<Order> mOrder{Order::None};
    std::atomic<int64_t> mSizeBytes{0};
    std::atomic<int64_t> mDurationMs{0};

    std::mutex mCallbackMutex;  // held while the callback runs
    const EventCallback mCallback;
    std::atomic<bool> mSilent{false};  // set with the lock, or by the callback
    mutable std::mutex mMutex;         // the three below
    std::condition_variable mFinished;
    Outcome mOutcome = Outcome::Running;
    RecordingDetails mDetails;

    std::mutex mThreadMutex;  // joining
    std::thread mThread;
    std::atomic<std::thread::id> mThreadId;
};

}  // namespace orvhost
