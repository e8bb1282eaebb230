// Opening and closing, and the commands that go from one state to another.

#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "common/Trace.h"
#include "common/Uri.h"
#include "service/COrvPlayer.h"

using android::sp;

namespace OrvPlayer {

namespace {

constexpr int SOURCE_LIVE = 0;
constexpr int SOURCE_MEDIA_FILE = 1;
constexpr int SOURCE_RECORDING = 2;

const char* textOf(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

int COrvPlayer::openUri(const char* uri, int type) {
    const std::lock_guard<std::mutex> guard(mLock);
    ORV_LOGI("%s: pUri: %s type: %d", __func__, textOf(uri), type);
    int result = mState != ORVPLAYER_STATE_IDLE ? performClose() : 0;
    if (result == 0) {
        result = openSource(uri, type);
    }
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->openUriComplete(result);
    }
    return result;
}

int COrvPlayer::openSource(const char* uri, int type) {
    const int result = configureSource(uri, type);
    if (result != 0) {
        ORV_LOGE("%s: Error configuring Controller: %d", "openUri", result);
        releasePlayer();
        return result;
    }
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->onBufferingBegin();
    }
    mState = ORVPLAYER_STATE_OPEN;
    preparePlayer();
    return 0;
}

int COrvPlayer::configureSource(const char* uri, int type) {
    switch (type) {
        case OPEN_URI_SOURCE:
            return configureUri(uri);
        case OPEN_MEDIA_FILE:
            mSourceType = SOURCE_MEDIA_FILE;
            setPlayer(createFileController());
            return m_pPlayer != nullptr ? m_pPlayer->configure({{"path", textOf(uri)}}) : 1;
        default:
            ORV_LOGE("%s: Source type is not supported: %d", "openUri", type);
            return 1;
    }
}

int COrvPlayer::configureUri(const char* text) {
    const std::unique_ptr<Uri> uri(Uri::parse(text));
    if (uri == nullptr) {
        ORV_LOGE("%s: uri parsing error", "openUri");
        return 1;
    }
    const bool isFile = uri->mScheme == "FILE";
    if (isFile) {
        mSourceType = SOURCE_RECORDING;
    } else if (uri->mScheme == "MTV") {
        mSourceType = SOURCE_LIVE;
    } else {
        // Deliberate: opened all the same, as a source of the kind of the one before.
        ORV_LOGE("%s: Unknown URI Scheme", "openUri");
    }
    setPlayer(createMainController());
    // What the queries name goes before what is added here.
    std::map<std::string, std::string> config = uri->mQueries;
    config.emplace("sourceType", std::to_string(mSourceType));
    if (isFile) {
        config.emplace("filePath", uri->mPath);
    }
    return m_pPlayer != nullptr ? m_pPlayer->configure(config) : 1;
}

// A new controller gets its listeners, and the settings that were made before.
void COrvPlayer::preparePlayer() {
    m_pPlayer->setCaptureFrameListener(this);
    m_pPlayer->setServiceControllerListener(this);
    m_pPlayer->setCaptionListener(this);
    m_pPlayer->setErrorListener(this);
    m_pPlayer->setAudioRenderedListener(this);
    m_pPlayer->setVideoRenderedListener(this);
    m_pPlayer->setPlayerListener(this);
    m_pPlayer->setRecorderListener(this);
    m_pPlayer->setAudioEnable(mAudioEnabled ? 1 : 0);
    m_pPlayer->setSurface(mSurface);
    if (mSoundEffect != NO_SOUND_EFFECT) {
        m_pPlayer->setSoundEffect(mSoundEffect);
    }
    m_pPlayer->setAVSync(mAVSyncOffset);
}

int COrvPlayer::start() {
    const std::lock_guard<std::mutex> guard(mLock);
    int result = 1;
    if (mState == ORVPLAYER_STATE_OPEN && m_pPlayer != nullptr) {
        result = m_pPlayer->start();
        if (result == 0) {
            mState = ORVPLAYER_STATE_PLAY;
        } else {
            ORV_LOGE("%s: Error starting player", __func__);
        }
    }
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->startComplete(result);
    }
    return 0;
}

int COrvPlayer::stop() {
    const std::lock_guard<std::mutex> guard(mLock);
    return performStop();
}

int COrvPlayer::close() {
    const std::lock_guard<std::mutex> guard(mLock);
    return performClose();
}

int COrvPlayer::performStop() {
    switch (mState) {
        case ORVPLAYER_STATE_PLAY:
        case ORVPLAYER_STATE_PAUSE: {
            const int result = m_pPlayer != nullptr ? m_pPlayer->stop() : 0;
            if (result != 0) {
                ORV_LOGE("%s Error stopping player", __func__);
                onError(UNKNOWN_ERROR_CODE);
            } else if (m_pPlayer != nullptr) {
                mState = ORVPLAYER_STATE_OPEN;
            }
            return result;
        }
        case ORVPLAYER_STATE_OPEN:
            return 0;
        default:
            ORV_LOGE("%s - end", __func__);
            onError(UNKNOWN_ERROR_CODE);
            return 1;
    }
}

int COrvPlayer::performClose() {
    ORV_LOGV("%s", __func__);
    switch (mState) {
        case ORVPLAYER_STATE_IDLE:
            return 0;
        case ORVPLAYER_STATE_PLAY:
        case ORVPLAYER_STATE_PAUSE:
            if (const int result = performStop(); result != 0) {
                return result;
            }
            break;
        case ORVPLAYER_STATE_OPEN:
            break;
        default:
            ORV_LOGE("%s - end", "performStop");
            onError(UNKNOWN_ERROR_CODE);
            return 1;
    }
    if (m_pPlayer == nullptr) {
        return 1;
    }
    releasePlayer();
    mState = ORVPLAYER_STATE_IDLE;
    return 0;
}

int COrvPlayer::pause() {
    const std::lock_guard<std::mutex> guard(mLock);
    int result = 1;
    if (mState == ORVPLAYER_STATE_PLAY && m_pPlayer != nullptr) {
        m_pPlayer->pause();
        mState = ORVPLAYER_STATE_PAUSE;
        result = 0;
    } else {
        ORV_LOGE("%s mState != ORVPLAYER_STATE_PLAY - end", __func__);
    }
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->onPaused(result);
    }
    return result;
}

int COrvPlayer::resume() {
    const std::lock_guard<std::mutex> guard(mLock);
    int result = 1;
    if (mState == ORVPLAYER_STATE_PAUSE && m_pPlayer != nullptr) {
        m_pPlayer->resume();
        mState = ORVPLAYER_STATE_PLAY;
        result = 0;
    }
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        listener->onResumed(result);
    }
    return result;
}

int COrvPlayer::seek(int positionMs) {
    const std::lock_guard<std::mutex> guard(mLock);
    int result = 1;
    if (m_pPlayer != nullptr) {
        result = m_pPlayer->seek(positionMs);
        if (mState != ORVPLAYER_STATE_PAUSE) {
            m_pPlayer->resume();
        }
    }
    if (const sp<ICOrvPlayerClient> listener = client(); listener != nullptr) {
        if (result == 0) {
            listener->onSeeked(positionMs);
        } else {
            listener->onEndOfContent();  // deliberate: there is no other word for a refused seek
        }
    }
    ORV_LOGV("%s millise(%d)-result=%d", __func__, positionMs, result);
    return result;
}

int COrvPlayer::startRecorder(const char* uri) {
    ORV_LOGI("%s: %s", __func__, textOf(uri));
    const std::lock_guard<std::mutex> guard(mLock);
    const std::unique_ptr<Uri> target(Uri::parse(uri));
    if (target == nullptr || m_pPlayer == nullptr) {
        return RECORDER_ERROR_CODE;
    }
    if (m_pPlayer->startRecord(target.get()) != 0) {
        ORV_LOGE("%s: Error starting recorder", __func__);
        ORV_LOGV("%s - end", __func__);
        return RECORDER_ERROR_CODE;
    }
    return 0;
}

int COrvPlayer::stopRecorder(int save) {
    const std::lock_guard<std::mutex> guard(mLock);
    ORV_LOGV("%s", __func__);
    if (m_pPlayer != nullptr) {
        m_pPlayer->stopRecord(save != 0);
    }
    return 0;
}

}  // namespace OrvPlayer
