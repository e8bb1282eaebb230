// What comes from the pipeline's threads: to the client, or the end of the process.

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <thread>

#include "common/Module.h"
#include "common/Trace.h"
#include "service/COrvPlayer.h"

using android::sp;

namespace OrvPlayer {

namespace {

// The one way out: no other thread follows, for what runs at the end of a process must run once.
[[noreturn]] void endProcess(unsigned int code) {
    static std::atomic<bool> ending{false};
    while (ending.exchange(true)) {
        std::this_thread::sleep_for(std::chrono::hours(1));
    }
    pollfd room = {STDERR_FILENO, POLLOUT, 0};
    if (poll(&room, 1, 0) == 1 && (room.revents & POLLOUT) != 0) {  // not held up by its reader
        fprintf(stderr, "orvplayer: internal fault (code %u), the service ends\n", code);
    }
    exit(INT_MIN);  // a status of 0 to who waits
}

}  // namespace

void COrvPlayer::onError(unsigned int code, const Module* module) const {
    if (module != nullptr) {
        ORV_LOGE("%s <%d> Module:%s", __func__, static_cast<int>(code),
                 module->getModuleName().c_str());
    } else {
        ORV_LOGE("%s <%d>", __func__, static_cast<int>(code));
    }
    if (code == UNKNOWN_ERROR_CODE || code == CODEC_LOST_CODE) {
        ORV_LOGE("%s: Commiting suicide due to unknown error.", __func__);
        endProcess(code);
    }
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->onError(static_cast<int>(code));
    }
}

void COrvPlayer::onError(int code) {
    onError(static_cast<unsigned int>(code), nullptr);
}

// The pixels stay the caller's, client or not.
void COrvPlayer::onCaptureFrame(unsigned char* pixels, unsigned int width, unsigned int height,
                                bool twoBytesPerPixel) {
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->onCaptureFrame(pixels, width, height, twoBytesPerPixel);
    }
}

void COrvPlayer::onClosedCaptionReceived(unsigned char* text, int length) {
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->closedCaptionText(text, length);
    }
}

void COrvPlayer::onAudioSessionId(int id) {
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->onAudioSessionId(id);
    }
}

void COrvPlayer::onFirstFrameRendered(int width, int height) {
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->onStartVideoTask(width, height);
    }
}

void COrvPlayer::onTimeUpdate(int elapsedSeconds) {
    ORV_LOGV("%s elapsedTime = %d", __func__, elapsedSeconds);
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->onTimeUpdate(elapsedSeconds);
    }
}

void COrvPlayer::onEndOfContent() {
    ORV_LOGV("%s", __func__);
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->onEndOfContent();
    }
}

void COrvPlayer::onRecorderStarted(int result) {
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->onRecorderStarted(result);
    }
}

void COrvPlayer::onRecorderStopped(int result) {
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->onRecorderStopped(result);
    }
}

void COrvPlayer::onServiceControllerEvent(ServiceController::event_t event, unsigned int value1,
                                          unsigned int value2) {
    const sp<ICOrvPlayerClient> listener = client();
    if (listener == nullptr) {
        return;
    }
    const int first = static_cast<int>(value1);
    const int second = static_cast<int>(value2);
    switch (event) {
        case ServiceController::SIGNAL_UPDATE_EVENT:
            ORV_LOGI("%s: Received SIGNAL_UPDATE_EVENT: pre %d curr %d", __func__, first, second);
            listener->onSignalStatusChanged(value1, value2);
            break;
        case ServiceController::BUFFERING_BEGIN_EVENT:
            ORV_LOGI("%s: Received BUFFERING_BEGIN_EVENT", __func__);
            listener->onBufferingBegin();
            break;
        case ServiceController::BUFFERING_END_EVENT:
            ORV_LOGI("%s: Received BUFFERING_END_EVENT", __func__);
            listener->onBufferingEnd();
            break;
        case ServiceController::BUFFERING_EVENT:
            ORV_LOGI("%s: Received BUFFERING_EVENT: progress %d", __func__, first);
            listener->onBuffering(first);
            break;
        case ServiceController::START_VIDEO_TASK_EVENT:
            ORV_LOGI("%s: Received START_VIDEO_TASK_EVENT: width: %d height: %d", __func__, first,
                     second);
            listener->onStartVideoTask(first, second);
            break;
        case ServiceController::EOC_EVENT:
            ORV_LOGI("%s: Received EOC_EVENT", __func__);
            listener->onEndOfContent();
            break;
        default:
            break;
    }
}

}  // namespace OrvPlayer
