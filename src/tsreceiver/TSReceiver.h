#pragma once

#include <dtv/DemuxBinder.h>

#include <atomic>
#include <map>
#include <mutex>
#include <vector>

#include "common/Module.h"
#include "tsreceiver/TSReceiverPIDType.h"

namespace OrvPlayer {

class TSReceiverThread;

// The source of the live pipeline: asks the demultiplexer service for one PID per role and copies
// the packets of each into the output that belongs to it. It parses nothing; an output holds the
// whole 188-byte packets of one PID.
//
//     mPIDMap (by role)    PCR 0x100   video 0x111   audio 0x112
//     mDmxHandles             7           8             9
//     mOutputs              ring        ring          ring
//
// Output i, the i-th role in ascending order and handle i belong together and are walked in step;
// so outputs are added in the order of the roles, as many as there are PIDs.
//
// The controller configures, starts and stops it and may change PIDs while it runs, all from one
// thread at a time; stop() may also come from any other, at any time. The worker works on a copy of
// the pairing, taken for every pass.
class TSReceiver : public Module {
public:
    static constexpr unsigned int ERR_WORKER = 0x11001;  // no worker, or a filter not changed
    static constexpr unsigned int ERR_NO_PID = 0x11002;
    static constexpr unsigned int ERR_PID_COUNT = 0x11003;  // differs from the number of outputs
    static constexpr unsigned int ERR_FILTERING = 0x11004;

    TSReceiver();

    // Takes the PIDs, one for each output. Returns 0 or ERR_PID_COUNT.
    unsigned int configure(std::map<TSReceiverPIDType, unsigned short> pids);

    // Starts the filters and the worker. 0 or one of the codes above; with a live worker nothing is
    // started again. After a failure the filters that did start run until stop().
    int start() override;

    // Asks the worker to exit, wakes it and returns at once (after a stop() that is under way).
    // stop() does it too.
    void requestExit() override;

    // For a caller that brings its own thread: open() instead of start(), then receivePass() as
    // long as it returns true, then stop(). A pass moves what the service has for each output, at
    // most what fits; it waits at most 30 ms for data, and 100 ms for room in an output that is
    // full.
    int open();
    bool receivePass();

    // Ends the worker (within the 100 ms of a ring buffer wait) and the filters, and releases the
    // outputs. Harmless at any time. Returns 0.
    int stop() override;

    // One filter per PID, in the order of the roles. A filter that does not start keeps its place
    // with the handle -1; true when all did.
    bool startFiltering();
    bool stopFiltering();

    bool isPIDSet(unsigned short pid) const;

    // Adds a filter while running; its output was added before. Returns 0 or ERR_WORKER.
    unsigned int startFilteringNewPID(TSReceiverPIDType role, unsigned short pid);

    // Replaces the first PID, in the order of the roles, that equals oldPid, whatever its role; the
    // new filter is of the kind of `role`. Returns 0, ERR_NO_PID or ERR_WORKER.
    unsigned int changePID(TSReceiverPIDType role, unsigned short oldPid, unsigned short newPid);

    // As Module, and also while running.
    int addOutput(const android::sp<RingBuffer>& buffer, OutputPosition* position) override;
    void removeOutput(OutputPosition* position) override;

protected:
    ~TSReceiver() override;

private:
    friend class TSReceiverThread;

    // What belongs together for one position, as the worker uses it in a pass.
    struct Slot {
        android::sp<RingBuffer> output;
        unsigned short pid;
        int handle;
    };

    void askWorkerToExit();
    DemuxBinder_HandleSet copyHandleSet() const;
    void takeSlots();
    bool receive(const Slot& slot);

    std::mutex mStartStopLock;  // start() against stop(), held across the join; before the next

    // A leaf lock: never held across a wait or a call to the service. Guards mOutputs too.
    mutable std::mutex mFilterLock;
    std::map<TSReceiverPIDType, unsigned short> mPIDMap;
    std::vector<int> mDmxHandles;      // in the order of their start; -1: failed or stopped
    DemuxBinder_HandleSet mHandleSet;  // every handle since the last startFiltering()

    std::atomic<bool> mExiting{false};
    std::vector<Slot> mSlots;               // worker only
    android::sp<TSReceiverThread> mThread;  // with mStartStopLock; null while stopped
};

}  // namespace OrvPlayer
