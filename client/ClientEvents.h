#pragma once

#include <orvclient/Player.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

#include "BnCOrvPlayerClient.h"
#include "BpCOrvPlayer.h"
#include "CallbackQueue.h"

namespace orvclient {

// Hears what one service reports. Results of commands go to the command that waits for them, at
// once and on the thread that brought them; everything else becomes a callback of the application.
//
//   events->begin(Result::OPEN);
//   player.openUri(...)               // the result is on its way before this returns
//   events->await(Result::OPEN, ...)
//
// A refused seek and the end of the content sound alike. Each seek has one answer: what sounds like
// an end while a seek waits is that answer, unless onSeeked() comes as well.
//
// Any thread; one command at a time.
class ClientEvents : public BnCOrvPlayerClient {
public:
    enum class Result { OPEN, START, PAUSE, RESUME, SEEK, RECORD, RECORD_STOP };
    static constexpr int NOT_RECORDED = -1;  // as the result of RECORD, else a number
    using Clock = std::chrono::steady_clock;

    // The queue must live as long as calls can come. `player` is asked for the time of captions.
    ClientEvents(std::shared_ptr<const Callbacks> callbacks, CallbackQueue& queue,
                 const android::sp<android::IBinder>& player);

    void begin(Result result);
    // The service's code; nothing when none came in time, or the service is gone.
    std::optional<int> await(Result result, Clock::time_point deadline);
    // Instead of await(): the command failed, and no result comes.
    void cancel();
    // Instead of await(): the command was given and not answered. Its result is passed over when it
    // comes.
    void abandon(Result result);

    // Ends every await(), and what comes later is dropped. False when it was told before.
    bool end();
    bool isEnded() const;

    bool isRecording() const { return mIsRecording; }
    // How far the content was played.
    std::chrono::milliseconds elapsed() const { return std::chrono::milliseconds(mElapsedMs); }

    // Stills are told together with the picture of this queue that they show; may be null.
    void setPictures(const PictureQueue* pictures);

protected:
    ~ClientEvents() override = default;

private:
    static constexpr size_t RESULTS = 7;

    void openUriComplete(int32_t result) override;
    void startComplete(int32_t result) override;
    void closedCaptionText(const uint8_t* text, size_t bytes) override;
    void onCaptureFrame(std::shared_ptr<const StillMemory> still) override;
    void onSignalStatusChanged(uint32_t previous, uint32_t current) override;
    void onStopComplete(int32_t) override {}
    void onError(int32_t code) override;
    void onBufferingBegin() override;
    void onBufferingEnd() override;
    void onBuffering(int32_t percent) override;
    void onAudioSessionId(int32_t id) override;
    void onStartVideoTask(int32_t width, int32_t height) override;
    void onTimeUpdate(int32_t seconds) override;
    void onEndOfContent() override;
    void onRecorderStarted(int32_t number) override;
    void onRecorderStopped(int32_t result) override;
    void onPaused(int32_t result) override { settle(Result::PAUSE, result); }
    void onResumed(int32_t result) override { settle(Result::RESUME, result); }
    void onSeeked(int32_t positionMs) override;

    bool takeAbandoned(Result result);
    void settle(Result result, int code);
    void tellEnd();
    void expectEnd();
    // Posts a call of one callback, unless the application has none.
    template <typename Function, typename... Arguments>
    void tell(CallbackQueue::Kind kind, Function Callbacks::*member, Arguments... arguments);

    const std::shared_ptr<const Callbacks> mCallbacks;
    CallbackQueue& mQueue;
    BpCOrvPlayer mPlayer;

    mutable std::mutex mLock;
    std::condition_variable mChanged;
    std::optional<Result> mAwaited;  // by the command that runs
    std::optional<int> mCode;        // its result
    bool mIsSeekRefused = false;     // the last seek, by what sounded like an end
    std::array<unsigned, RESULTS> mAbandoned{};
    bool mIsEndTold = false;  // since playback began, or went elsewhere
    bool mEnded = false;
    std::atomic<bool> mIsRecording{false};
    std::atomic<int64_t> mElapsedMs{0};
    const PictureQueue* mPictures = nullptr;
};

}  // namespace orvclient
