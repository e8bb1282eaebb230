// How the controller drives recordings: pause, resume and seek of one that is played, the end of
// its content, and recording what is watched.

#include <cstdlib>

#include "common/Trace.h"
#include "service/MainController.h"

using android::sp;

namespace OrvPlayer {

int MainController::pause() {
    ORV_LOGV("%s\n", __func__);
    if (mEndOfContent) {
        mServiceController->stopCheckEndOfContent();
    } else if (m_pPlayer != nullptr) {
        m_pPlayer->pause();
    }
    if (const int status = mAudioRenderer->stop(); status != 0) {
        return status;
    }
    const int status = mVideoRenderer->stop();
    mSynchronization->pause();
    return status;
}

int MainController::resume() {
    ORV_LOGV("%s\n", __func__);
    mSynchronization->resume();
    int status = mAudioRenderer->start();
    if (status == 0) {
        status = mVideoRenderer->start();
    }
    if (mEndOfContent) {
        mServiceController->startCheckEndOfContent();
    } else if (m_pPlayer != nullptr) {
        m_pPlayer->resume();
    }
    return status;
}

int MainController::seek(int position) {
    ORV_LOGV("%s\n", __func__);
    if (m_pPlayer == nullptr || !m_pPlayer->isPossibleSeek() || mEndOfContent) {
        return 1;
    }
    if (stop() != 0) {
        // Whatever refused, nothing may hold on to the decoder that goes.
        for (const sp<Module>& module : mModules) {
            module->stop();
        }
        emptyRingBuffers();
    }
    m_pPlayer->seek(position);
    return replaceVideoDecoder() != 0 ? 1 : start();
}

// The codec keeps nothing of the old position that way. The new decoder stands last among the
// modules. The old one is gone before the new one turns to its surface.
int MainController::replaceVideoDecoder() {
    const auto done = [](int status, const char* label) {
        if (status != 0) {
            ORV_LOGE("%s: Error configuring %s.", "seek", label);
        }
        return status == 0;
    };
    sp<android::Surface> surface = mVideoDecoder->getSurface();
    mModules.remove(mVideoDecoder);
    mVideoDecoder = nullptr;
    mVideoDecoder = new MediaCodecDecoder("VideoDecoder");
    mModules.push_back(mVideoDecoder);
    mVideoDecoder->setDecoderInfoListenerListener(this);
    for (ErrorListener* listener : mErrorListeners) {
        mVideoDecoder->addErrorListener(*listener);
    }
    if (!done(mVideoDecoder->setInput(mVideoPES), "setInput on VideoDecoder") ||
        !done(mVideoDecoder->addOutput(mVideoRaw, nullptr), "addOutput on VideoDecoder") ||
        !done(mVideoDecoder->configure(Decoder::H264), "Video Decoder")) {
        return 1;
    }
    mVideoDecoder->setSurface(surface);
    return 0;
}

int MainController::startRecord(Uri* target) {
    if (target == nullptr) {
        return 1;
    }
    std::map<std::string, std::string> queries = target->mQueries;
    mRecType = atoi(queries["recType"].c_str());
    ORV_LOGV("%s recType = %d", __func__, mRecType);
    if (mRecording) {
        return 1;
    }
    m_pRecorder = new Recorder;
    m_pRecorder->setListener(this);
    m_pRecorder->start(target, mPIDs[PID_TYPE_VIDEO], mPIDs[PID_TYPE_AUDIO],
                       mPIDs[PID_TYPE_CLOSED_CAPTION], mAudioCodingType - 1);
    mRecording = true;
    return 0;
}

int MainController::stopRecord(bool save) {
    ORV_LOGV("%s\n", __func__);
    if (!mRecording) {
        return 1;
    }
    m_pRecorder->stop(save ? 1 : 0);
    m_pRecorder = nullptr;
    mRecording = false;
    return 0;
}

// For the destructor: neither calls the controller afterwards.
void MainController::stopPlayerAndRecorder() {
    mPlayerListener = nullptr;
    mRecorderListener = nullptr;
    if (mRecording) {
        stopRecord(false);
    }
    if (m_pPlayer != nullptr) {
        m_pPlayer->setListener(nullptr);
    }
}

void MainController::setPlayerListener(IPlayerListener* listener) {
    mPlayerListener = listener;
}

void MainController::setRecorderListener(IRecorderListener* listener) {
    mRecorderListener = listener;
}

void MainController::onTimeUpdate(int elapsedSeconds) {
    if (IPlayerListener* listener = mPlayerListener; listener != nullptr) {
        listener->onTimeUpdate(elapsedSeconds);
    }
}

// The service has no more to give; what it gave is still to be played.
void MainController::onEndOfContent() {
    ORV_LOGV("%s\n", __func__);
    if (const unsigned int nowMs = m_pPlayer->getCurrentTimeMs(); nowMs != 0) {
        onTimeUpdate(static_cast<int>(nowMs / 1000));
    }
    mEndOfContent = true;
    mServiceController->startCheckEndOfContent();
}

void MainController::onRecorderStarted(int result) {
    if (IRecorderListener* listener = mRecorderListener; listener != nullptr) {
        listener->onRecorderStarted(result);
    }
}

void MainController::onRecorderStopped(int result) {
    if (IRecorderListener* listener = mRecorderListener; listener != nullptr) {
        listener->onRecorderStopped(result);
    }
}

// Deliberate: the player's errors, too, reach the application as those of a recorder.
void MainController::onError(int code) {
    if (IRecorderListener* listener = mRecorderListener; listener != nullptr) {
        listener->onError(code);
    }
}

}  // namespace OrvPlayer
