#include "service/MP4Controller.h"

#include <cmath>
#include <cstring>
#include <mutex>

#include "common/Trace.h"

using android::Parcel;
using android::sp;

namespace OrvPlayer {

namespace {

constexpr unsigned int REPORT_PERIOD_MS = 100;
constexpr unsigned int MEDIA_PLAYER_ERROR = 1;  // ends the process

}  // namespace

// Stands between the player, which keeps its listener alive, and the controller, which keeps the
// player: the controller ends when its owner drops it, on the owner's thread, whether it was
// stopped or not.
class MP4Controller::Notifications : public android::MediaPlayerListener {
public:
    explicit Notifications(MP4Controller* owner) : mOwner(owner) {}

    void notify(int msg, int ext1, int ext2, const Parcel* obj) override {
        const std::lock_guard<std::mutex> running(mLock);
        if (mOwner != nullptr) {
            mOwner->notify(msg, ext1, ext2, obj);
        }
    }

    // Both return once no notification runs.
    void wait() { const std::lock_guard<std::mutex> running(mLock); }
    void clearOwner() {
        const std::lock_guard<std::mutex> running(mLock);
        mOwner = nullptr;
    }

private:
    std::mutex mLock;  // held while the owner is told
    MP4Controller* mOwner;
};

MP4Controller::MP4Controller()
    : mMediaPlayer(new android::MediaPlayer),
      mNotifications(new Notifications(this)),
      mTimer(onTimeUpdateTrigger, this) {
    if (mTimer.creationError() != 0) {
        ORV_LOGE("%s: Could not create timer!", __func__);
    }
}

MP4Controller::~MP4Controller() {
    mReporting = false;
    if (mTimer.remove() != 0) {
        ORV_LOGE("%s: Unable to delete internal timer\n", __func__);
    }
    mNotifications->clearOwner();
    mMediaPlayer->disconnect();
}

int MP4Controller::configure(std::map<std::string, std::string> config) {
    // A file that cannot be played shows after start().
    mMediaPlayer->setDataSource(nullptr, config["path"].c_str(), nullptr);
    return 0;
}

int MP4Controller::setSurface(sp<android::Surface>& surface) {
    const android::status_t status = mMediaPlayer->setVideoSurfaceTexture(
        surface != nullptr ? surface->getIGraphicBufferProducer() : nullptr);
    if (status != 0) {
        ORV_LOGE("%s: Error setting surface %d\n", __func__, status);
        return 1;
    }
    return 0;
}

int MP4Controller::start() {
    mMediaPlayer->setListener(mNotifications);
    if (auto* listener = mAudioRenderedListener.load(); listener != nullptr) {
        listener->onAudioSessionId(mMediaPlayer->getAudioSessionId());
    }
    setVolume();
    mMediaPlayer->prepare();
    mMediaPlayer->start();
    startInternalTimer();
    return 0;
}

int MP4Controller::stop() {
    mMediaPlayer->stop();
    mMediaPlayer->setListener(nullptr);
    mNotifications->wait();
    stopInternalTimer();
    return 0;
}

int MP4Controller::pause() {
    stopInternalTimer();
    mMediaPlayer->pause();
    return 0;
}

int MP4Controller::resume() {
    startInternalTimer();
    mMediaPlayer->start();
    return 0;
}

int MP4Controller::seek(int positionMs) {
    mMediaPlayer->seekTo(positionMs, android::MediaPlayerSeekMode::SEEK_PREVIOUS_SYNC);
    return 0;
}

int MP4Controller::setAudioEnable(int on) {
    mMuted = on == 0;
    setVolume();
    return 0;
}

void MP4Controller::setVolume() {
    const float volume = mMuted ? 0.0f : 1.0f;
    mMediaPlayer->setVolume(volume, volume);
}

int MP4Controller::getFrame(int /*count*/, int /*intervalMs*/) {
    return 1;
}

int MP4Controller::dump(FILE* /*stream*/, const android::Vector<android::String16>& /*args*/,
                        int /*indent*/) {
    return 1;
}

int MP4Controller::setCropRect(int /*left*/, int /*top*/, int /*right*/, int /*bottom*/,
                               int /*useOriginal*/) {
    return 1;
}

void MP4Controller::startInternalTimer() {
    mReporting = true;
    if (const int error = mTimer.armPeriodic(REPORT_PERIOD_MS); error != 0) {
        ORV_LOGE("%s: Error starting timer to update UI: %d (%s)", __func__, error,
                 strerror(error));
    }
}

void MP4Controller::stopInternalTimer() {
    mReporting = false;
    if (const int error = mTimer.disarm(); error != 0) {
        ORV_LOGE("%s: Error stopping timer to update UI: %d (%s)", __func__, error,
                 strerror(error));
    }
    mTimer.waitForCallback();
}

void MP4Controller::onTimeUpdateTrigger(void* controller) {
    static_cast<MP4Controller*>(controller)->reportPosition();
}

// Deliberate: the same second is told ten times. See
// MP4ControllerTest.ReportsThePositionTenTimesASecondWhilePlaying.
void MP4Controller::reportPosition() {
    IPlayerListener* listener = mPlayerListener;
    if (!mReporting || listener == nullptr) {
        return;
    }
    int positionMs = 0;
    mMediaPlayer->getCurrentPosition(&positionMs);
    listener->onTimeUpdate(static_cast<int>(std::ceil(positionMs * 0.001)));
}

void MP4Controller::notify(int msg, int ext1, int ext2, const Parcel* /*obj*/) {
    ORV_LOGI("%s: msg %d, ext1 %d, ext2 %d\n", __func__, msg, ext1, ext2);
    switch (msg) {
        case android::MEDIA_PLAYBACK_COMPLETE:
            ORV_LOGV("%s: Received MEDIA_PLAYBACK_COMPLETE\n", __func__);
            if (auto* listener = mPlayerListener.load(); listener != nullptr) {
                listener->onEndOfContent();
            }
            break;
        case android::MEDIA_BUFFERING_UPDATE:
            ORV_LOGV("%s: Received MEDIA_BUFFERING_UPDATE\n", __func__);
            ORV_LOGV("%s: Buffering at: %d\n", __func__, ext1);
            break;
        case android::MEDIA_SET_VIDEO_SIZE:
            ORV_LOGV("%s: Received MEDIA_SET_VIDEO_SIZE\n", __func__);
            setVideoSize(ext1, ext2);
            break;
        case android::MEDIA_ERROR:
            ORV_LOGV("%s: Received MEDIA_ERROR\n", __func__);
            // Deliberate: any error of the player, whatever it says, is fatal.
            if (auto* listener = mErrorListener.load(); listener != nullptr) {
                listener->onError(MEDIA_PLAYER_ERROR, nullptr);
            }
            break;
        case android::MEDIA_INFO:
            ORV_LOGV("%s: Received MEDIA_INFO\n", __func__);
            onInfo(ext1);
            break;
        default:
            break;
    }
}

void MP4Controller::setVideoSize(int width, int height) {
    if (width != mVideoWidth || height != mVideoHeight) {
        ORV_LOGV("%s: Video size: %d x %d", "notify", width, height);
        mVideoWidth = width;
        mVideoHeight = height;
    }
}

void MP4Controller::onInfo(int info) {
    if (info != android::MEDIA_INFO_RENDERING_START) {
        return;
    }
    ORV_LOGV("%s: MEDIA_INFO: MEDIA_INFO_RENDERING_START\n", "notify");
    if (auto* listener = mVideoRenderedListener.load(); listener != nullptr) {
        listener->onFirstFrameRendered(mVideoWidth, mVideoHeight);
    }
}

}  // namespace OrvPlayer
