#include <fcntl.h>
#include <media/mediaplayer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>

#include "audio/AudioOutput.h"
#include "audio/AudioSession.h"
#include "audio/MasterVolume.h"
#include "media/player/EngineLoader.h"
#include "media/player/MediaFileState.h"
#include "media/player/Notifier.h"
#include "media/player/SurfaceSink.h"
#include "trace/HostLog.h"

namespace android {

using orvhost::MediaEngine;
using orvhost::MediaFailure;

namespace {

constexpr const char* URL_SCHEMES[] = {"http://", "https://", "rtsp://", "rtmp://"};

bool isUrl(const std::string& location) {
    return std::any_of(std::begin(URL_SCHEMES), std::end(URL_SCHEMES),
                       [&](const char* scheme) { return location.starts_with(scheme); });
}

// A path cannot be taken for anything else once it begins with "/".
std::string absolutePath(const std::string& path) {
    std::error_code failure;
    const auto absolute = std::filesystem::absolute(path, failure);
    return failure ? path : absolute.string();
}

// Why a path cannot be played, empty when it may: the engine would say less of it, and wait for a
// pipe that nobody writes to.
std::string whyUnreadable(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) {
        return std::system_category().message(errno);
    }
    struct stat what = {};
    const bool isFile = fstat(file, &what) == 0 && (S_ISREG(what.st_mode) || S_ISBLK(what.st_mode));
    close(file);
    return isFile ? "" : "not a file";
}

int errorCodeOf(MediaFailure failure) {
    return failure == MediaFailure::READING  ? MEDIA_ERROR_IO
           : failure == MediaFailure::FORMAT ? MEDIA_ERROR_UNSUPPORTED
                                             : 0;
}

}  // namespace

class MediaPlayer::Impl : public orvhost::MediaEngineClient, private orvhost::MasterVolumeListener {
public:
    Impl()
        : mSink([this] { mNotifier.post(MEDIA_INFO, MEDIA_INFO_RENDERING_START, 0); }),
          mSession(orvhost::newAudioSession()) {
        orvhost::addMasterVolumeListener(this);
    }
    ~Impl() override { orvhost::removeMasterVolumeListener(this); }
    Impl(const Impl&) = delete;  // listeners are known by address
    Impl& operator=(const Impl&) = delete;

    status_t setDataSource(const char* url);
    status_t setVideoSurfaceTexture(const sp<IGraphicBufferProducer>& producer);
    status_t setVolume(float volume);
    status_t prepare();
    status_t start();
    status_t stop();
    status_t pause();
    status_t seekTo(int ms, MediaPlayerSeekMode mode);
    void disconnect();

    // MediaEngineClient.
    void onVideoSize(int width, int height) override;
    void onBuffering(int percent) override;
    void onPosition(int64_t ms) override { mPositionMs = ms; }
    void onEnd() override;
    void onFailure(MediaFailure failure, const std::string& reason) override;
    void onMessage(const char* text) override { HOST_LOGI("MediaPlayer: %s\n", text); }

    orvhost::Notifier mNotifier;
    orvhost::SurfaceSink mSink;
    const audio_session_t mSession;
    std::atomic<int64_t> mPositionMs{0};
    std::atomic<int64_t> mDurationMs{-1};

private:
    void onMasterVolume() override;
    double wholeGain() const;
    status_t fail(MediaFailure failure, const std::string& reason);

    std::mutex mLock;  // one command at a time; the engine's threads never take it
    std::string mLocation;
    bool mIsDisconnected = false;
    double mGain = 1.0;
    std::unique_ptr<MediaEngine> mEngine;  // from prepare() to stop()
    std::atomic<uint64_t> mVideoSize{0};   // as told: width, height
    std::atomic<bool> mIsAtEnd{false};     // and no seek since
    std::atomic<bool> mHasFailed{false};
};

status_t MediaPlayer::Impl::setDataSource(const char* url) {
    const std::lock_guard guard(mLock);
    if (mIsDisconnected || !mLocation.empty()) {
        return INVALID_OPERATION;
    }
    if (url == nullptr || *url == 0) {
        return BAD_VALUE;
    }
    mLocation = url;
    return OK;
}

status_t MediaPlayer::Impl::setVideoSurfaceTexture(const sp<IGraphicBufferProducer>& producer) {
    const std::lock_guard guard(mLock);
    if (mIsDisconnected) {
        return INVALID_OPERATION;
    }
    const status_t result = mSink.setProducer(producer);
    if (mEngine != nullptr) {
        mEngine->redraw();
    }
    return result;
}

status_t MediaPlayer::Impl::setVolume(float volume) {
    const std::lock_guard guard(mLock);
    mGain = static_cast<double>(volume);
    if (mEngine != nullptr) {
        mEngine->setGain(wholeGain());
    }
    return OK;
}

void MediaPlayer::Impl::onMasterVolume() {
    const std::lock_guard guard(mLock);
    if (mEngine != nullptr) {
        mEngine->setGain(wholeGain());
    }
}

// Of the player and of the process.
double MediaPlayer::Impl::wholeGain() const {
    return mGain * orvhost::masterVolume().value_or(orvhost::MasterVolume()).gain();
}

status_t MediaPlayer::Impl::prepare() {
    const std::lock_guard guard(mLock);
    if (mIsDisconnected || mEngine != nullptr) {
        return INVALID_OPERATION;
    }
    mPositionMs = 0;
    mDurationMs = -1;
    orvhost::mediaFileDurationMs() = 0;
    mVideoSize = 0;
    mIsAtEnd = false;
    mHasFailed = false;
    mSink.expectFirstPicture();
    if (mLocation.empty()) {
        return fail(MediaFailure::OTHER, "no data source");
    }
    std::string reason;
    MediaEngine::Source source;
    source.isUrl = isUrl(mLocation);
    source.location = source.isUrl ? mLocation : absolutePath(mLocation);
    if (!source.isUrl) {
        reason = whyUnreadable(source.location);
        if (!reason.empty()) {
            return fail(MediaFailure::READING, reason);
        }
    }
    source.isSilent = orvhost::audioOutput() == orvhost::AudioOutput::SILENT;
    source.gain = wholeGain();
    source.timeoutMs = READ_TIMEOUT_MS;
    mEngine = orvhost::createMediaEngine(*this, mSink, &reason);
    if (mEngine == nullptr) {
        return fail(MediaFailure::OTHER, reason);
    }
    MediaFailure failure = MediaFailure::OTHER;
    if (!mEngine->open(source, &failure, &reason)) {
        mEngine = nullptr;
        return fail(failure, reason);
    }
    mDurationMs = mEngine->durationMs();
    orvhost::mediaFileDurationMs() = std::max<int64_t>(mDurationMs, 0);
    return OK;
}

status_t MediaPlayer::Impl::start() {
    const std::lock_guard guard(mLock);
    if (mEngine == nullptr || mHasFailed) {
        return INVALID_OPERATION;
    }
    if (mIsAtEnd.exchange(false)) {
        mEngine->seek(0, true);
    }
    return mEngine->setPaused(false) ? OK : INVALID_OPERATION;
}

status_t MediaPlayer::Impl::stop() {
    const std::lock_guard guard(mLock);
    if (mEngine == nullptr) {
        return INVALID_OPERATION;
    }
    mEngine = nullptr;
    mNotifier.clear();
    return OK;
}

status_t MediaPlayer::Impl::pause() {
    const std::lock_guard guard(mLock);
    return mEngine != nullptr && mEngine->setPaused(true) ? OK : INVALID_OPERATION;
}

status_t MediaPlayer::Impl::seekTo(int ms, MediaPlayerSeekMode mode) {
    const std::lock_guard guard(mLock);
    if (mEngine == nullptr) {
        return INVALID_OPERATION;
    }
    if (mode != MediaPlayerSeekMode::SEEK_PREVIOUS_SYNC &&
        mode != MediaPlayerSeekMode::SEEK_CLOSEST) {
        return BAD_VALUE;
    }
    const int64_t target = std::max(ms, 0);
    if (!mEngine->seek(target, mode == MediaPlayerSeekMode::SEEK_CLOSEST)) {
        return INVALID_OPERATION;
    }
    mIsAtEnd = false;
    mPositionMs = target;
    return OK;
}

void MediaPlayer::Impl::disconnect() {
    const std::lock_guard guard(mLock);
    mIsDisconnected = true;
    mEngine = nullptr;
    mNotifier.setListener(nullptr);
    mNotifier.clear();
    mSink.setProducer(nullptr);
}

void MediaPlayer::Impl::onVideoSize(int width, int height) {
    const uint64_t size = static_cast<uint64_t>(width) << 32 | static_cast<uint32_t>(height);
    if (mVideoSize.exchange(size) != size) {
        mNotifier.post(MEDIA_SET_VIDEO_SIZE, width, height);
    }
}

void MediaPlayer::Impl::onBuffering(int percent) {
    mNotifier.post(MEDIA_BUFFERING_UPDATE, percent, 0, true);
}

void MediaPlayer::Impl::onEnd() {
    mIsAtEnd = true;
    mNotifier.post(MEDIA_PLAYBACK_COMPLETE, 0, 0);
}

void MediaPlayer::Impl::onFailure(MediaFailure failure, const std::string& reason) {
    fail(failure, reason);
}

// The application learns no more than a number: the line says the rest.
status_t MediaPlayer::Impl::fail(MediaFailure failure, const std::string& reason) {
    mHasFailed = true;
    const int code = errorCodeOf(failure);
    HOST_LOGE("MediaPlayer: \"%s\" cannot be played: %s\n", mLocation.c_str(), reason.c_str());
    mNotifier.post(MEDIA_ERROR, MEDIA_ERROR_UNKNOWN, code);
    return code != 0 ? code : UNKNOWN_ERROR;
}

MediaPlayer::MediaPlayer() : mImpl(new Impl) {}

MediaPlayer::~MediaPlayer() {
    disconnect();
}

status_t MediaPlayer::setDataSource(const sp<IMediaHTTPService>& /*httpService*/, const char* url,
                                    const KeyedVector<String8, String8>* /*headers*/) {
    return mImpl->setDataSource(url);
}

status_t MediaPlayer::setVideoSurfaceTexture(const sp<IGraphicBufferProducer>& bufferProducer) {
    return mImpl->setVideoSurfaceTexture(bufferProducer);
}

status_t MediaPlayer::setListener(const sp<MediaPlayerListener>& listener) {
    mImpl->mNotifier.setListener(listener);
    return OK;
}

status_t MediaPlayer::setVolume(float leftVolume, float rightVolume) {
    const bool isRight = leftVolume >= 0.0f && leftVolume <= 1.0f && rightVolume >= 0.0f &&
                         rightVolume <= 1.0f;  // and no NaN
    return isRight ? mImpl->setVolume(std::max(leftVolume, rightVolume)) : BAD_VALUE;
}

status_t MediaPlayer::prepare() {
    return mImpl->prepare();
}

status_t MediaPlayer::start() {
    return mImpl->start();
}

status_t MediaPlayer::stop() {
    return mImpl->stop();
}

status_t MediaPlayer::pause() {
    return mImpl->pause();
}

status_t MediaPlayer::seekTo(int msec, MediaPlayerSeekMode mode) {
    return mImpl->seekTo(msec, mode);
}

status_t MediaPlayer::getCurrentPosition(int* msec) {
    if (msec == nullptr) {
        return BAD_VALUE;
    }
    *msec = static_cast<int>(std::min<int64_t>(mImpl->mPositionMs, INT32_MAX));
    return OK;
}

status_t MediaPlayer::getDuration(int* msec) {
    if (msec == nullptr) {
        return BAD_VALUE;
    }
    *msec = static_cast<int>(std::min<int64_t>(mImpl->mDurationMs, INT32_MAX));
    return OK;
}

audio_session_t MediaPlayer::getAudioSessionId() {
    return mImpl->mSession;
}

void MediaPlayer::disconnect() {
    mImpl->disconnect();
}

}  // namespace android
