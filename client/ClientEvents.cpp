#include "ClientEvents.h"

#include <algorithm>
#include <utility>

#include "CaptionText.h"
#include "binder/CallTimeout.h"

namespace orvclient {

namespace {

using Kind = CallbackQueue::Kind;

constexpr int SEEK_REFUSED = 1;
// The results of commands wait behind a caption meanwhile.
constexpr std::chrono::milliseconds TIME_QUERY{500};

std::optional<RecordingFailure> recordingFailureOf(int code) {
    switch (code) {
        case wire::RECORDER_NOT_BEGUN:
            return RecordingFailure::NOT_BEGUN;
        case wire::RECORDER_NOT_WRITTEN:
            return RecordingFailure::NOT_WRITTEN;
        case wire::RECORDER_STORAGE_FULL:
            return RecordingFailure::STORAGE_FULL;
        case wire::RECORDER_NO_INPUT:
            return RecordingFailure::NO_INPUT;
        default:
            return std::nullopt;
    }
}

}  // namespace

ClientEvents::ClientEvents(std::shared_ptr<const Callbacks> callbacks, CallbackQueue& queue,
                           const android::sp<android::IBinder>& player)
    : mCallbacks(std::move(callbacks)), mQueue(queue), mPlayer(player) {}

void ClientEvents::begin(Result result) {
    std::lock_guard<std::mutex> guard(mLock);
    mAwaited = result;
    mCode.reset();
    if (result == Result::SEEK) {
        mIsSeekRefused = false;
    }
}

std::optional<int> ClientEvents::await(Result result, Clock::time_point deadline) {
    std::unique_lock<std::mutex> guard(mLock);
    mChanged.wait_until(guard, deadline, [this] { return mCode.has_value() || mEnded; });
    mAwaited.reset();
    mIsSeekRefused = result == Result::SEEK && mCode == SEEK_REFUSED;
    return std::exchange(mCode, std::nullopt);
}

void ClientEvents::cancel() {
    std::lock_guard<std::mutex> guard(mLock);
    mAwaited.reset();
    mCode.reset();
}

void ClientEvents::abandon(Result result) {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mCode.has_value()) {
        ++mAbandoned[static_cast<size_t>(result)];
    }
    mAwaited.reset();
    mCode.reset();
}

bool ClientEvents::end() {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (std::exchange(mEnded, true)) {
            return false;
        }
    }
    mChanged.notify_all();
    return true;
}

bool ClientEvents::isEnded() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mEnded;
}

void ClientEvents::setPictures(const PictureQueue* pictures) {
    std::lock_guard<std::mutex> guard(mLock);
    mPictures = pictures;
}

// With the lock held: whether this is the result of a command that nobody waits for any more.
bool ClientEvents::takeAbandoned(Result result) {
    unsigned& abandoned = mAbandoned[static_cast<size_t>(result)];
    if (abandoned == 0) {
        return false;
    }
    --abandoned;
    return true;
}

void ClientEvents::settle(Result result, int code) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (takeAbandoned(result) || mAwaited != result) {
            return;
        }
        mCode = code;
    }
    mChanged.notify_all();
}

void ClientEvents::onSeeked(int32_t positionMs) {
    mElapsedMs = positionMs;
    bool wasEnd = false;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (takeAbandoned(Result::SEEK)) {
            return;
        }
        // What was taken for the answer of this seek was the end after all.
        wasEnd = mAwaited == Result::SEEK ? mCode == SEEK_REFUSED : mIsSeekRefused;
        mIsSeekRefused = false;
        mIsEndTold = false;
        if (mAwaited == Result::SEEK) {
            mCode = 0;
        }
    }
    mChanged.notify_all();
    if (wasEnd) {
        tellEnd();
    }
}

void ClientEvents::onEndOfContent() {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (takeAbandoned(Result::SEEK)) {
            return;
        }
        if (mAwaited == Result::SEEK && !mCode.has_value()) {
            mCode = SEEK_REFUSED;
            mChanged.notify_all();
            return;
        }
    }
    tellEnd();
}

// The service tells it again after a command that it refused for the end.
void ClientEvents::tellEnd() {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (std::exchange(mIsEndTold, true)) {
            return;
        }
    }
    tell(Kind::EVENT, &Callbacks::onEnd);
}

void ClientEvents::expectEnd() {
    std::lock_guard<std::mutex> guard(mLock);
    mIsEndTold = false;
}

template <typename Function, typename... Arguments>
void ClientEvents::tell(Kind kind, Function Callbacks::*member, Arguments... arguments) {
    if (!((*mCallbacks).*member) || isEnded()) {
        return;
    }
    mQueue.post(kind, [callbacks = mCallbacks, member, arguments...] {
        ((*callbacks).*member)(arguments...);
    });
}

void ClientEvents::openUriComplete(int32_t result) {
    mElapsedMs = 0;
    expectEnd();
    tell(Kind::EVENT, &Callbacks::onOpened, result);
    settle(Result::OPEN, result);
}

void ClientEvents::startComplete(int32_t result) {
    expectEnd();
    tell(Kind::EVENT, &Callbacks::onStarted, result);
    settle(Result::START, result);
}

void ClientEvents::closedCaptionText(const uint8_t* text, size_t bytes) {
    if (!mCallbacks->onCaption) {
        return;
    }
    int64_t pcr90k = 0;
    {
        const orvhost::CallTimeout bound(TIME_QUERY);
        mPlayer.getPCRValue(&pcr90k);
    }
    tell(Kind::CAPTION, &Callbacks::onCaption, captionUtf8(text, bytes), pcr90k);
}

void ClientEvents::onCaptureFrame(std::shared_ptr<const StillMemory> still) {
    if (!mCallbacks->onStill || isEnded()) {
        return;
    }
    StillView view;
    view.pixels = still->pixels();
    view.width = still->width();
    view.height = still->height();
    view.bytesPerPixel = still->bytesPerPixel();
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mPictures != nullptr) {
            view.source = mPictures->lastStill();
        }
    }
    mQueue.post(Kind::STILL, [callbacks = mCallbacks, still = std::move(still), view] {
        callbacks->onStill(view);
    });
}

void ClientEvents::onSignalStatusChanged(uint32_t previous, uint32_t current) {
    tell(Kind::EVENT, &Callbacks::onSignal, previous, current);
}

void ClientEvents::onError(int32_t code) {
    tell(Kind::EVENT, &Callbacks::onError, code);
    if (const auto failure = recordingFailureOf(code); failure.has_value()) {
        tell(Kind::EVENT, &Callbacks::onRecordingFailed, *failure);
        if (*failure == RecordingFailure::NOT_BEGUN) {
            settle(Result::RECORD, NOT_RECORDED);
        }
    }
}

void ClientEvents::onBufferingBegin() {
    tell(Kind::EVENT, &Callbacks::onBufferingBegin);
}

void ClientEvents::onBufferingEnd() {
    tell(Kind::EVENT, &Callbacks::onBufferingEnd);
}

void ClientEvents::onBuffering(int32_t percent) {
    tell(Kind::FREQUENT, &Callbacks::onBuffering, percent);
}

void ClientEvents::onAudioSessionId(int32_t id) {
    tell(Kind::EVENT, &Callbacks::onAudioSession, id);
}

void ClientEvents::onStartVideoTask(int32_t width, int32_t height) {
    tell(Kind::EVENT, &Callbacks::onStartVideo, width, height);
}

void ClientEvents::onTimeUpdate(int32_t seconds) {
    mElapsedMs = int64_t{seconds} * 1000;
    tell(Kind::FREQUENT, &Callbacks::onTime, seconds);
}

void ClientEvents::onRecorderStarted(int32_t number) {
    mIsRecording = true;
    tell(Kind::EVENT, &Callbacks::onRecordingStarted, number);
    settle(Result::RECORD, std::max(number, 0));
}

void ClientEvents::onRecorderStopped(int32_t result) {
    if (mIsRecording.exchange(false)) {
        tell(Kind::EVENT, &Callbacks::onRecordingStopped, result == 1);
    }
    settle(Result::RECORD_STOP, result);
}

}  // namespace orvclient
