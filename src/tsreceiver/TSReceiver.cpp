#include "tsreceiver/TSReceiver.h"

#include <utils/Thread.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr unsigned int PACKET_BYTES = 188;
constexpr int SELECT_TIMEOUT_MS = 30;
constexpr int NO_HANDLE = -1;
constexpr char START[] = "start";  // the function that the lines of log name

int filterKind(TSReceiverPIDType role) {
    switch (role) {
        case PID_TYPE_PCR:
            return DEMUX_FILTER_PCR;
        case PID_TYPE_VIDEO:
            return DEMUX_FILTER_VIDEO;
        default:
            return DEMUX_FILTER_PES;
    }
}

// The handle, or a negative value, logged.
int startFilter(const char* caller, TSReceiverPIDType role, unsigned short pid) {
    const int handle = DemuxBinder_StartFiltering(pid, filterKind(role));
    if (handle < 0) {
        ORV_LOGE("%s Could not start filtering PID %d!\n", caller, pid);
    }
    return handle;
}

// Every output needs a PID. Deliberate: the spelling of the message. See
// TSReceiverTest.NumberOfPIDsMustBeThatOfOutputs.
bool pairUp(const char* caller, size_t pids, size_t outputs) {
    if (pids != outputs) {
        ORV_LOGE("%s - number of PIDs (%d) and number of outputs (%d) are diferent!\n", caller,
                 static_cast<int>(pids), static_cast<int>(outputs));
    }
    return pids == outputs;
}

// A pass that neither moved data nor waited for room would come back at once, and again: the
// service is in trouble, or a handle has no output.
void napAfterFruitlessPass() {
    std::this_thread::sleep_for(std::chrono::milliseconds(SELECT_TIMEOUT_MS));
}

}  // namespace

// The worker. The receiver joins it before it goes away.
class TSReceiverThread : public android::Thread {
public:
    explicit TSReceiverThread(TSReceiver* receiver) : android::Thread(true), mReceiver(receiver) {}

private:
    bool threadLoop() override { return mReceiver->receivePass(); }

    TSReceiver* const mReceiver;
};

TSReceiver::TSReceiver() : Module("TS Receiver") {
    DemuxBinder_HandleZERO(&mHandleSet);
}

TSReceiver::~TSReceiver() {
    TSReceiver::stop();
}

unsigned int TSReceiver::configure(std::map<TSReceiverPIDType, unsigned short> pids) {
    std::lock_guard<std::mutex> guard(mFilterLock);
    if (!pairUp(__func__, pids.size(), mOutputs.size())) {
        return ERR_PID_COUNT;
    }
    mPIDMap = std::move(pids);
    return 0;
}

int TSReceiver::start() {
    std::lock_guard<std::mutex> starting(mStartStopLock);
    if (mThread != nullptr) {
        return 0;  // two workers would write into the same outputs
    }
    if (const int result = open(); result != 0) {
        return result;
    }
    mThread = new TSReceiverThread(this);
    if (mThread->run("TSReceiver", android::PRIORITY_DEFAULT) != android::NO_ERROR) {
        ORV_LOGE("%s - could not start thread!\n", __func__);
        mThread.clear();
        return ERR_WORKER;
    }
    return 0;
}

int TSReceiver::open() {
    {
        std::lock_guard<std::mutex> guard(mFilterLock);
        if (mPIDMap.empty()) {
            ORV_LOGE("%s - cannot start TSReceiver: no PID set!\n", START);
            return ERR_NO_PID;
        }
        if (!pairUp(START, mPIDMap.size(), mOutputs.size())) {
            return ERR_PID_COUNT;
        }
    }
    if (!startFiltering()) {
        ORV_LOGE("%s - could not start filtering!\n", START);
        return ERR_FILTERING;
    }
    mExiting.store(false);
    return 0;
}

bool TSReceiver::startFiltering() {
    stopFiltering();  // those that a failed start left running
    std::map<TSReceiverPIDType, unsigned short> pids;
    {
        std::lock_guard<std::mutex> guard(mFilterLock);
        pids = mPIDMap;
    }
    std::vector<int> handles;
    DemuxBinder_HandleSet set;
    DemuxBinder_HandleZERO(&set);
    bool complete = true;
    for (const auto& [role, pid] : pids) {
        int handle = startFilter(__func__, role, pid);
        if (handle < 0) {
            handle = NO_HANDLE;
            complete = false;
        }
        handles.push_back(handle);
        DemuxBinder_HandleSET(handle, &set);
    }
    std::lock_guard<std::mutex> guard(mFilterLock);
    mDmxHandles = std::move(handles);
    mHandleSet = set;
    return complete;
}

bool TSReceiver::stopFiltering() {
    std::vector<int> handles;
    {
        std::lock_guard<std::mutex> guard(mFilterLock);
        handles = mDmxHandles;
        std::fill(mDmxHandles.begin(), mDmxHandles.end(), NO_HANDLE);
    }
    for (const int handle : handles) {
        if (handle >= 0) {
            DemuxBinder_StopFiltering(handle);
        }
    }
    return true;
}

void TSReceiver::requestExit() {
    std::lock_guard<std::mutex> stopping(mStartStopLock);
    askWorkerToExit();
}

void TSReceiver::askWorkerToExit() {
    mExiting.store(true);
    if (mThread != nullptr) {
        mThread->requestExit();
    }
    std::lock_guard<std::mutex> guard(mFilterLock);
    for (const android::sp<RingBuffer>& output : mOutputs) {
        output->wakeReaders();
        output->wakeWriters();
    }
}

int TSReceiver::stop() {
    std::lock_guard<std::mutex> stopping(mStartStopLock);
    askWorkerToExit();
    if (mThread != nullptr) {
        mThread->requestExitAndWait();
        mThread.clear();
    }
    stopFiltering();
    std::lock_guard<std::mutex> guard(mFilterLock);
    for (const android::sp<RingBuffer>& output : mOutputs) {
        output->writeAdvance(0);
    }
    return 0;
}

bool TSReceiver::isPIDSet(unsigned short pid) const {
    std::lock_guard<std::mutex> guard(mFilterLock);
    return std::any_of(mPIDMap.begin(), mPIDMap.end(),
                       [pid](const auto& entry) { return entry.second == pid; });
}

unsigned int TSReceiver::startFilteringNewPID(TSReceiverPIDType role, unsigned short pid) {
    const int handle = startFilter(__func__, role, pid);
    if (handle < 0) {
        return ERR_WORKER;
    }
    std::lock_guard<std::mutex> guard(mFilterLock);
    mPIDMap[role] = pid;
    mDmxHandles.push_back(handle);
    DemuxBinder_HandleSET(handle, &mHandleSet);
    return 0;
}

unsigned int TSReceiver::changePID(TSReceiverPIDType role, unsigned short oldPid,
                                   unsigned short newPid) {
    size_t position = 0;
    int oldHandle = NO_HANDLE;
    {
        std::lock_guard<std::mutex> guard(mFilterLock);
        if (mPIDMap.empty()) {
            ORV_LOGE("%s - no PID set!\n", __func__);
            return ERR_NO_PID;
        }
        for (auto entry = mPIDMap.begin(); entry != mPIDMap.end() && entry->second != oldPid;
             ++entry) {
            ++position;
        }
        if (position >= std::min(mPIDMap.size(), mDmxHandles.size()) || mDmxHandles[position] < 0) {
            return ERR_WORKER;
        }
        oldHandle = std::exchange(mDmxHandles[position], NO_HANDLE);
    }
    DemuxBinder_StopFiltering(oldHandle);
    const int handle = startFilter(__func__, role, newPid);
    if (handle < 0) {
        return ERR_WORKER;
    }
    std::lock_guard<std::mutex> guard(mFilterLock);
    mDmxHandles[position] = handle;
    mPIDMap[role] = newPid;
    DemuxBinder_HandleSET(handle, &mHandleSet);  // the old one stays; it is never ready again
    return 0;
}

int TSReceiver::addOutput(const android::sp<RingBuffer>& buffer, OutputPosition* position) {
    std::lock_guard<std::mutex> guard(mFilterLock);
    return Module::addOutput(buffer, position);
}

void TSReceiver::removeOutput(OutputPosition* position) {
    std::lock_guard<std::mutex> guard(mFilterLock);
    Module::removeOutput(position);
}

bool TSReceiver::receivePass() {
    DemuxBinder_HandleSet ready = copyHandleSet();
    const int result = DemuxBinder_Select(&ready, SELECT_TIMEOUT_MS);
    if (result == 0) {
        return true;
    }
    if (result < 0) {
        ORV_LOGE("%s: DemuxBinder_Select error: %d\n", "threadLoop", result);
        napAfterFruitlessPass();
        return true;
    }
    takeSlots();
    bool fruitful = false;
    for (const Slot& slot : mSlots) {
        if (mExiting.load(std::memory_order_relaxed)) {
            break;
        }
        if (slot.handle != NO_HANDLE && DemuxBinder_HandleISSET(slot.handle, &ready) != 0) {
            fruitful |= receive(slot);
        }
    }
    mSlots.clear();
    if (!fruitful) {
        napAfterFruitlessPass();
    }
    return !mExiting.load(std::memory_order_relaxed);
}

DemuxBinder_HandleSet TSReceiver::copyHandleSet() const {
    std::lock_guard<std::mutex> guard(mFilterLock);
    return mHandleSet;
}

void TSReceiver::takeSlots() {
    std::lock_guard<std::mutex> guard(mFilterLock);
    auto output = mOutputs.begin();
    auto pid = mPIDMap.begin();
    auto handle = mDmxHandles.begin();
    while (output != mOutputs.end() && pid != mPIDMap.end() && handle != mDmxHandles.end()) {
        mSlots.push_back({*output++, pid++->second, *handle++});
    }
}

// Moves what the service has for one output, at most what fits. False when nothing came of it and
// no time was spent waiting for room.
bool TSReceiver::receive(const Slot& slot) {
    RingBuffer& output = *slot.output;
    const unsigned int request =
        std::max(output.getFreeSpace() / PACKET_BYTES * PACKET_BYTES, PACKET_BYTES);
    unsigned char* region = output.write(request, RingBuffer::BLOCKING);
    if (region == nullptr) {
        ORV_LOGE("%s: no room for TS data in RB; free space = %d; PID = %d", "threadLoop",
                 static_cast<int>(output.getFreeSpace()), slot.pid);
        output.wakeReaders();
        return true;  // the data stays in the service until the next pass
    }
    int received = 0;
    if (!mExiting.load(std::memory_order_relaxed)) {
        received = DemuxBinder_ReadData(slot.handle, region, static_cast<int>(request));
    }
    // The parser behind steps by whole packets and never looks for a sync byte again.
    const bool usable = received > 0 && static_cast<unsigned int>(received) <= request;
    const unsigned int whole =
        usable ? static_cast<unsigned int>(received) / PACKET_BYTES * PACKET_BYTES : 0;
    if (!usable || static_cast<unsigned int>(received) != whole) {
        ORV_LOGE("%s - DemuxBinder_ReadData returned %d; DmxHandle = %d\n", "threadLoop", received,
                 slot.handle);
    }
    output.writeAdvance(whole);
    return whole > 0;
}

}  // namespace OrvPlayer
