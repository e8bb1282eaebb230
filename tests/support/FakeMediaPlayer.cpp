#include "support/FakeMediaPlayer.h"

#include <cstdio>
#include <thread>
#include <utility>

namespace orvtest {

FakeMediaPlayer& FakeMediaPlayer::instance() {
    static auto* only = new FakeMediaPlayer;
    return *only;
}

void FakeMediaPlayer::reset() {
    const std::lock_guard guard(mLock);
    mCommands.clear();
    mAnnotation = nullptr;
    mListener = nullptr;
    mPositionMs = 0;
    mSurfaceStatus = 0;
}

std::vector<std::string> FakeMediaPlayer::take() {
    const std::lock_guard guard(mLock);
    return std::exchange(mCommands, {});
}

size_t FakeMediaPlayer::living() const {
    const std::lock_guard guard(mLock);
    return mLiving;
}

bool FakeMediaPlayer::tell(int msg, int ext1, int ext2) {
    std::unique_lock guard(mLock);
    const android::sp<android::MediaPlayerListener> listener = mListener;
    guard.unlock();
    if (listener == nullptr) {
        return false;
    }
    std::thread([&] { listener->notify(msg, ext1, ext2, nullptr); }).join();
    return true;
}

void FakeMediaPlayer::setPosition(int ms) {
    const std::lock_guard guard(mLock);
    mPositionMs = ms;
}

void FakeMediaPlayer::failSurfaces(int status) {
    const std::lock_guard guard(mLock);
    mSurfaceStatus = status;
}

void FakeMediaPlayer::annotate(std::function<std::string()> annotation) {
    const std::lock_guard guard(mLock);
    mAnnotation = std::move(annotation);
}

void FakeMediaPlayer::note(const std::string& command) {
    const std::lock_guard guard(mLock);
    mCommands.push_back(command + (mAnnotation ? mAnnotation() : ""));
}

void FakeMediaPlayer::addPlayer(int change) {
    const std::lock_guard guard(mLock);
    mLiving += static_cast<size_t>(change);
}

void FakeMediaPlayer::setListener(const android::sp<android::MediaPlayerListener>& listener) {
    const std::lock_guard guard(mLock);
    mListener = listener;
}

int FakeMediaPlayer::position() const {
    const std::lock_guard guard(mLock);
    return mPositionMs;
}

int FakeMediaPlayer::surfaceStatus() const {
    const std::lock_guard guard(mLock);
    return mSurfaceStatus;
}

}  // namespace orvtest

namespace android {

namespace {

orvtest::FakeMediaPlayer& fake() {
    return orvtest::FakeMediaPlayer::instance();
}

}  // namespace

class MediaPlayer::Impl {};

MediaPlayer::MediaPlayer() {
    fake().addPlayer(1);
}
MediaPlayer::~MediaPlayer() {
    fake().addPlayer(-1);
}

status_t MediaPlayer::setDataSource(const sp<IMediaHTTPService>& httpService, const char* url,
                                    const KeyedVector<String8, String8>* headers) {
    fake().note(std::string("setDataSource '") + url + "'" +
                (httpService != nullptr || headers != nullptr ? " with more" : ""));
    return OK;
}
status_t MediaPlayer::setVideoSurfaceTexture(const sp<IGraphicBufferProducer>& producer) {
    fake().note(producer != nullptr ? "setVideoSurfaceTexture" : "setVideoSurfaceTexture null");
    return fake().surfaceStatus();
}
status_t MediaPlayer::setListener(const sp<MediaPlayerListener>& listener) {
    fake().note(listener != nullptr ? "setListener" : "setListener null");
    fake().setListener(listener);
    return OK;
}
status_t MediaPlayer::setVolume(float left, float right) {
    char text[64];
    snprintf(text, sizeof text, "setVolume %.1f %.1f", static_cast<double>(left),
             static_cast<double>(right));
    fake().note(text);
    return OK;
}
status_t MediaPlayer::prepare() {
    fake().note("prepare");
    return UNKNOWN_ERROR;  // nobody may look
}
status_t MediaPlayer::start() {
    fake().note("start");
    return UNKNOWN_ERROR;
}
status_t MediaPlayer::stop() {
    fake().note("stop");
    return OK;
}
status_t MediaPlayer::pause() {
    fake().note("pause");
    return OK;
}
status_t MediaPlayer::seekTo(int ms, MediaPlayerSeekMode mode) {
    fake().note("seekTo " + std::to_string(ms) + " " + std::to_string(static_cast<int>(mode)));
    return OK;
}
status_t MediaPlayer::getCurrentPosition(int* ms) {
    *ms = fake().position();
    return OK;
}
audio_session_t MediaPlayer::getAudioSessionId() {
    return static_cast<audio_session_t>(77);
}
void MediaPlayer::disconnect() {
    fake().note("disconnect");
}

}  // namespace android
