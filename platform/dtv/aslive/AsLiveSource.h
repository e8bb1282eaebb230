#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "dtv/ByteSource.h"
#include "dtv/HostClock.h"
#include "dtv/PacketWindow.h"
#include "dtv/PcrPacer.h"
#include "dtv/aslive/FaultInjector.h"
#include "dtv/aslive/LoopJoint.h"

namespace orvhost {

// A transport stream file as if it were on air: it comes at the pace of its PCR, whoever reads, and
// begins again at its end as if it went on (LoopJoint); the faults of a script happen to it
// (FaultInjector).
//
//   file --read ahead--> LoopJoint --> [packets, paced] --when due--> FaultInjector --> reader
//
// A joint is told among the faults: the picture that the file's end cuts off may be seen.
class AsLiveSource : public ByteSource {
public:
    // Reads `file` from where it begins. Null, with the reason in `result`, for a script that is
    // none and for what cannot be read again.
    static std::unique_ptr<AsLiveSource> open(std::unique_ptr<ByteSource> file,
                                              const std::string& name, const std::string& script,
                                              HostClock& clock, TuneResult& result);

    // Whole packets of 188 bytes.
    ssize_t read(uint8_t* data, size_t size, int timeoutMs) override;
    bool rewind() override { return false; }
    bool seek(uint64_t) override { return false; }
    int duplicate() const override { return -1; }
    void interrupt() override;
    bool isLive() const override { return true; }
    bool givesPackets() const override { return true; }
    std::vector<SourceFault> takeFaults() override;

private:
    AsLiveSource(std::unique_ptr<ByteSource> file, const FaultScript& script, HostClock& clock)
        : mFile(std::move(file)), mClock(clock), mInjector(script) {
        mPacer.setCatchesUp(true);
    }

    int readAhead();
    void releaseDue(int64_t nowNs);
    bool waitForDue(int64_t deadlineNs);
    void tell(SourceFault fault);

    const std::unique_ptr<ByteSource> mFile;
    HostClock& mClock;

    // The reader's thread only.
    PacketWindow mWindow;
    LoopJoint mJoint;
    PcrPacer mPacer;
    FaultInjector mInjector;
    std::vector<uint8_t> mWaiting;  // packets that are not due
    size_t mWaitingBegin = 0;       // bytes of it that are done with
    std::vector<size_t> mJoints;    // where in it laps begin
    std::vector<uint8_t> mReady;
    size_t mReadyBegin = 0;
    uint64_t mReadThisLap = 0;
    int64_t mBeginNs = -1;  // when the first packet was due

    std::mutex mMutex;  // all below
    std::condition_variable mWake;
    bool mInterrupted = false;
    std::vector<SourceFault> mFaults;
};

}  // namespace orvhost
