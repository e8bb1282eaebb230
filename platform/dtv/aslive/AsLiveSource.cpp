#include "dtv/aslive/AsLiveSource.h"

#include <dtv/TunerTypes.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

namespace orvhost {

namespace {

constexpr int64_t MS = 1'000'000;
constexpr size_t READ_BYTES = 64 << 10;
constexpr int64_t AHEAD_NS = 200 * MS;
constexpr size_t MOST_WAITING = size_t{16 << 20};  // bytes, where there is no clock to go by
constexpr int64_t STEP_NS = 2 * MS;                // packets come so far apart at least
constexpr size_t MOST_FAULTS = 1000;               // that nobody asked for yet

}  // namespace

std::unique_ptr<AsLiveSource> AsLiveSource::open(std::unique_ptr<ByteSource> file,
                                                 const std::string& name, const std::string& script,
                                                 HostClock& clock, TuneResult& result) {
    std::string error;
    const std::optional<FaultScript> faults = FaultScript::parse(script, &error);
    if (!faults) {
        result = {TuneStatus::BadUri, "script of faults: " + error};
        return nullptr;
    }
    if (!file->rewind()) {
        result = {TuneStatus::CannotOpen,
                  name + ": only a file plays as live for ever; a pipe cannot be read again"};
        return nullptr;
    }
    return std::unique_ptr<AsLiveSource>(new AsLiveSource(std::move(file), *faults, clock));
}

void AsLiveSource::interrupt() {
    {
        std::lock_guard lock(mMutex);
        mInterrupted = true;
    }
    mFile->interrupt();
    mWake.notify_all();
}

std::vector<SourceFault> AsLiveSource::takeFaults() {
    std::lock_guard lock(mMutex);
    return std::exchange(mFaults, {});
}

void AsLiveSource::tell(SourceFault fault) {
    std::lock_guard lock(mMutex);
    if (mFaults.size() < MOST_FAULTS) {
        mFaults.push_back(std::move(fault));
    }
}

// 0, or a negative errno. A file without a packet is at its end like any other.
int AsLiveSource::readAhead() {
    while (mPacer.bufferedNs() < AHEAD_NS && mWaiting.size() - mWaitingBegin < MOST_WAITING) {
        const ssize_t got = mWindow.fill(*mFile, READ_BYTES, 0);
        if (got < 0) {
            return static_cast<int>(got);
        }
        mReadThisLap += mWindow.freshCount();
        const size_t before = mWaiting.size();
        for (size_t i = 0; i < mWindow.freshCount(); ++i) {
            const uint8_t* const packet = mWindow.fresh() + i * TS_PACKET_BYTES;
            mWaiting.insert(mWaiting.end(), packet, packet + TS_PACKET_BYTES);
            if (!mJoint.pass(&mWaiting[mWaiting.size() - TS_PACKET_BYTES])) {
                mWaiting.erase(mWaiting.end() - ptrdiff_t{TS_PACKET_BYTES}, mWaiting.end());
            }
        }
        mPacer.add(mWaiting.data() + before, (mWaiting.size() - before) / TS_PACKET_BYTES);
        mWindow.release(mWindow.count());
        if (got > 0) {
            continue;
        }
        if (std::exchange(mReadThisLap, 0) == 0 || !mFile->rewind()) {
            return -ENODATA;
        }
        mWindow.clear();
        mJoint.beginLap();
        mJoints.push_back(mWaiting.size());
    }
    return 0;
}

// What is due now goes through the faults.
void AsLiveSource::releaseDue(int64_t nowNs) {
    size_t due = mPacer.takeDue(nowNs) * TS_PACKET_BYTES;
    if (due == 0) {
        return;
    }
    mBeginNs = mBeginNs < 0 ? nowNs : mBeginNs;
    std::vector<FaultInjector::Happening> happened;
    mInjector.advance(nowNs - mBeginNs, &happened);
    for (FaultInjector::Happening& one : happened) {
        tell({mBeginNs + one.atNs, one.lengthNs / MS, std::move(one.text)});
    }
    for (; due > 0; due -= TS_PACKET_BYTES, mWaitingBegin += TS_PACKET_BYTES) {
        if (!mJoints.empty() && mJoints.front() == mWaitingBegin) {
            mJoints.erase(mJoints.begin());
            tell({nowNs, 0, "the file begins again"});
        }
        mInjector.pass(&mWaiting[mWaitingBegin], &mReady);
    }
    if (mWaitingBegin > mWaiting.size() / 2) {
        mWaiting.erase(mWaiting.begin(), mWaiting.begin() + static_cast<ptrdiff_t>(mWaitingBegin));
        for (size_t& joint : mJoints) {
            joint -= mWaitingBegin;
        }
        mWaitingBegin = 0;
    }
}

// Until the next packet is due, at most to the deadline. False when that came, or an interrupt.
bool AsLiveSource::waitForDue(int64_t deadlineNs) {
    const int64_t nowNs = mClock.nowNs();
    const int64_t dueNs = std::max(mPacer.nextDueNs(nowNs), nowNs + STEP_NS);
    std::unique_lock lock(mMutex);
    while (!mInterrupted && mClock.nowNs() < std::min(dueNs, deadlineNs)) {
        mClock.waitUntil(lock, mWake, std::min(dueNs, deadlineNs));
    }
    return !mInterrupted && dueNs < deadlineNs;
}

ssize_t AsLiveSource::read(uint8_t* data, size_t size, int timeoutMs) {
    const int64_t deadlineNs = mClock.nowNs() + timeoutMs * MS;
    do {
        {
            std::lock_guard lock(mMutex);
            if (mInterrupted) {
                return -EINTR;
            }
        }
        if (mReadyBegin == mReady.size()) {
            mReady.clear();
            mReadyBegin = 0;
            if (const int error = readAhead(); error != 0) {
                return error == -ENODATA ? 0 : error;
            }
            releaseDue(mClock.nowNs());
        }
        const size_t part =
            std::min(mReady.size() - mReadyBegin, size / TS_PACKET_BYTES * TS_PACKET_BYTES);
        if (part > 0) {
            std::memcpy(data, mReady.data() + mReadyBegin, part);
            mReadyBegin += part;
            return static_cast<ssize_t>(part);
        }
    } while (timeoutMs > 0 && waitForDue(deadlineNs));
    std::lock_guard lock(mMutex);
    return mInterrupted ? -EINTR : -EAGAIN;
}

}  // namespace orvhost
