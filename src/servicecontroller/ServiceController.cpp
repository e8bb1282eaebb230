#include "servicecontroller/ServiceController.h"

#include <algorithm>
#include <ctime>

#include "common/Trace.h"
#include "servicecontroller/PollingThread.h"

using android::sp;

namespace OrvPlayer {

namespace {

constexpr uint64_t WEAK_AFTER_MS = 3000;
constexpr uint64_t LOST_AFTER_MS = 5000;  // after it became weak
constexpr uint32_t SILENT_SECONDS = 4;    // in which the frame rate reads 0
constexpr int64_t FULL_PROGRESS = 100;
constexpr int64_t PROGRESS_SCALE = 5000;  // a wait of this many milliseconds is progress 1

// The monotonic clock; false when it cannot be read.
bool readClockMs(uint64_t* nowMs) {
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        return false;
    }
    *nowMs = static_cast<uint64_t>(static_cast<double>(now.tv_sec) * 1000 +
                                   static_cast<double>(now.tv_nsec) * 0.000001);
    return true;
}

}  // namespace

ServiceController::ServiceController() = default;

ServiceController::~ServiceController() {
    mListener = nullptr;
    stopAll();
}

void ServiceController::startBuffering() {
    {
        std::lock_guard<std::mutex> guard(mBufferingLock);
        mWaitToRender = 0;
        mLastProgress = 0;
    }
    startThread(mBufferingThread, new BufferingThread(this));
}

void ServiceController::stopBuffering() {
    if (stopThread(mBufferingThread)) {
        send(BUFFERING_END_EVENT, 0, 0);
    }
}

// What came or failed to come before this does not count.
void ServiceController::startCheckSignal() {
    uint64_t now = 0;
    if (readClockMs(&now)) {
        mLastSignalTime = now;
    }
    startThread(mCheckSignalThread, new CheckSignalThread(this));
}

void ServiceController::stopCheckSignal() {
    stopThread(mCheckSignalThread);
}

void ServiceController::startCheckEndOfContent() {
    mLastFrameCount = 0;
    startThread(mCheckEndOfContentThread, new CheckEndOfContentThread(this));
}

void ServiceController::stopCheckEndOfContent() {
    stopThread(mCheckEndOfContentThread);
}

void ServiceController::startCheckFrameRate() {
    startThread(mCheckFrameRateThread, new CheckFrameRateThread(this));
}

void ServiceController::stopCheckFrameRate() {
    stopThread(mCheckFrameRateThread);
}

void ServiceController::stopAll() {
    stopBuffering();
    stopCheckSignal();
    stopCheckFrameRate();
    stopCheckEndOfContent();
}

// A thread that runs already is ended first: nobody else would ever do it.
void ServiceController::startThread(sp<PollingThread>& slot, const sp<PollingThread>& thread) {
    std::lock_guard<std::mutex> guard(mThreadLock);
    if (slot != nullptr) {
        slot->requestExitAndWait();
    }
    slot = thread;
    if (slot->run("PollingThread") != android::OK) {
        ORV_LOGE("%s: no thread\n", __func__);
    }
}

// Whether there was one.
bool ServiceController::stopThread(sp<PollingThread>& slot) {
    std::lock_guard<std::mutex> guard(mThreadLock);
    if (slot == nullptr) {
        return false;
    }
    slot->requestExitAndWait();
    slot = nullptr;
    return true;
}

void ServiceController::send(event_t event, unsigned int value1, unsigned int value2) {
    if (ServiceControllerListener* listener = mListener; listener != nullptr) {
        listener->onServiceControllerEvent(event, value1, value2);
    }
}

void ServiceController::onFrameRendered(int width, int height, Uint33) {
    updateSignalTimer();
    if (mReportResolution.exchange(false)) {
        send(START_VIDEO_TASK_EVENT, static_cast<unsigned int>(width),
             static_cast<unsigned int>(height));
    }
    ++mFrameCount;
}

void ServiceController::onAudioReady(long msec) {
    mWaitToRender = msec;
    updateSignalTimer();
}

// Deliberate: the report stays pending, only a picture ends it.
void ServiceController::onVideoResolution(int width, int height) {
    if (mReportResolution) {
        send(START_VIDEO_TASK_EVENT, static_cast<unsigned int>(width),
             static_cast<unsigned int>(height));
    }
}

void ServiceController::updateSignalTimer() {
    uint64_t now = 0;
    if (!readClockMs(&now)) {
        ORV_LOGE("%s: Error getting system time.", __func__);
        return;
    }
    mLastSignalTime = now;
    if (mSignalStatus == SIGNAL_GOOD) {
        return;
    }
    std::lock_guard<std::mutex> guard(mSignalLock);
    if (mSignalStatus != SIGNAL_GOOD) {  // nobody else was quicker
        changeSignalStatus(SIGNAL_GOOD, now);
    }
}

void ServiceController::checkSignalStrength() {
    std::lock_guard<std::mutex> guard(mSignalLock);
    // Read before the clock: data that comes in between must not lie in the future.
    const uint64_t lastMs = mLastSignalTime;
    uint64_t now = 0;
    if (mListener == nullptr || !readClockMs(&now)) {
        ORV_LOGE("%s: Error getting system time", __func__);  // deliberate: for both cases
        return;
    }
    const uint64_t lateMs = now - lastMs;
    if (lateMs < WEAK_AFTER_MS) {
        return;
    }
    const unsigned int status = mSignalStatus;
    ORV_LOGV("%s: Signal timeout: %llu late; status = %u", __func__,
             static_cast<unsigned long long>(lateMs), status);
    switch (status) {
        case SIGNAL_GOOD:
            changeSignalStatus(SIGNAL_WEAK, now);
            break;
        case SIGNAL_WEAK:
            if (lateMs >= LOST_AFTER_MS) {
                changeSignalStatus(SIGNAL_LOST, now);
                mReportResolution = true;
            }
            break;
        case SIGNAL_LOST:
            changeSignalStatus(SIGNAL_LOST, now);  // a reminder
            mReportResolution = true;
            break;
        default:
            ORV_LOGE("%s: Bad signal status: %u", __func__, status);
            break;
    }
}

// With mSignalLock held.
void ServiceController::changeSignalStatus(SignalStatus to, uint64_t nowMs) {
    send(SIGNAL_UPDATE_EVENT, mSignalStatus, to);
    mSignalStatus = to;
    mLastSignalTime = nowMs;
}

void ServiceController::bufferingProcess() {
    const int64_t wait = mWaitToRender;
    const int64_t progress = wait < 1 ? 0 : std::min(PROGRESS_SCALE / wait, FULL_PROGRESS);
    ORV_LOGV("%s progress = %d mWaitToRender = %lld", __func__, static_cast<int>(progress),
             static_cast<long long>(wait));
    const auto value = static_cast<uint32_t>(progress);
    {
        std::lock_guard<std::mutex> guard(mBufferingLock);
        if (mListener == nullptr || value <= mLastProgress) {
            return;
        }
        mLastProgress = value;
    }
    send(BUFFERING_EVENT, value, 0);
}

bool ServiceController::checkEndOfContent() {
    const uint32_t count = mFrameCount;
    if (mLastFrameCount.exchange(count) != count) {
        return true;
    }
    send(EOC_EVENT, 0, 0);
    return false;
}

void ServiceController::updateFrameRate() {
    const uint32_t frames = mFrameCount.exchange(0);
    mFrameRate = static_cast<int32_t>(frames);
    if (frames >= 1) {
        mNoFrameSeconds = 0;
    } else if (mNoFrameSeconds < SILENT_SECONDS) {
        ++mNoFrameSeconds;
    } else {
        mFrameRate = -1;
    }
}

}  // namespace OrvPlayer
