// Settings, which outlive controllers, and questions.

#include <media/AudioSystem.h>

#include "common/Trace.h"
#include "service/COrvPlayer.h"
#include "service/PlayerUse.h"

using android::sp;

namespace OrvPlayer {

namespace {

constexpr int MAX_SOUND_EFFECT = 9;
constexpr uint32_t AV_SYNC_BIAS_MS = 200;

}  // namespace

int COrvPlayer::getState() {
    return mState;
}

int COrvPlayer::setSurface(const sp<android::Surface>& surface) {
    const std::lock_guard<std::mutex> guard(mLock);
    sp<android::Surface> wanted = surface;
    if (m_pPlayer != nullptr) {
        m_pPlayer->setSurface(wanted);
    }
    mSurface = surface;
    return 0;
}

int COrvPlayer::getFrame(int count, int intervalMs) {
    const std::lock_guard<std::mutex> guard(mLock);
    ORV_LOGV("%s: %d %d", __func__, count, intervalMs);
    if (m_pPlayer != nullptr) {
        m_pPlayer->getFrame(count, intervalMs);
    }
    return 0;
}

int COrvPlayer::cancelCaptureFrame() {
    const std::lock_guard<std::mutex> guard(mLock);
    return m_pPlayer != nullptr ? m_pPlayer->cancelCaptureFrame() : 0;
}

int COrvPlayer::setSoundEffect(int /*unused*/, int option) {
    const std::lock_guard<std::mutex> guard(mLock);
    ORV_LOGV("%s - option: %d", __func__, option);
    if (option <= MAX_SOUND_EFFECT) {
        mSoundEffect = static_cast<int8_t>(option);
        if (m_pPlayer != nullptr) {
            m_pPlayer->setSoundEffect(option);
        }
    }
    return 0;
}

int COrvPlayer::setCropRect(int left, int top, int right, int bottom, int useOriginal) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (m_pPlayer == nullptr) {
        ORV_LOGE("%s - m_pPlayer == NULL", __func__);
        return 1;
    }
    return m_pPlayer->setCropRect(left, top, right, bottom, useOriginal);
}

int COrvPlayer::setAVSync(int value) {
    const std::lock_guard<std::mutex> guard(mLock);
    ORV_LOGV("%s: %d", __func__, value);
    // Unsigned: any number may come.
    mAVSyncOffset = static_cast<int32_t>(static_cast<uint32_t>(value) - AV_SYNC_BIAS_MS);
    if (m_pPlayer != nullptr) {
        m_pPlayer->setAVSync(mAVSyncOffset);
    }
    return 0;
}

int COrvPlayer::setCaptionSync(int value) {
    const std::lock_guard<std::mutex> guard(mLock);
    ORV_LOGV("%s: %d", __func__, value);
    mCaptionSync = value;
    return 0;
}

// Deliberate: there is one language, that of the caption PID.
int COrvPlayer::setCaptionLanguage(int language) {
    const std::lock_guard<std::mutex> guard(mLock);
    ORV_LOGV("%s.. language = %d", __func__, language);
    return 0;
}

int COrvPlayer::setAudioEnable(int on) {
    const std::lock_guard<std::mutex> guard(mLock);
    ORV_LOGV("%s: %d", __func__, on);
    mAudioEnabled = on != 0;
    return m_pPlayer != nullptr ? m_pPlayer->setAudioEnable(on) : 0;
}

int COrvPlayer::setAudioOnlyMode(int on) {
    const std::lock_guard<std::mutex> guard(mLock);
    ORV_LOGV("%s: %d", __func__, on);
    mAudioOnlyMode = on != 0;
    return m_pPlayer != nullptr ? m_pPlayer->setAudioOnlyMode(on) : 0;
}

int COrvPlayer::setAudioPID(int pid) {
    const std::lock_guard<std::mutex> guard(mLock);
    ORV_LOGV("%s: %d", __func__, pid);
    return m_pPlayer != nullptr ? m_pPlayer->setAudioPID(pid) : 0;
}

int COrvPlayer::setCCPID(int pid) {
    const std::lock_guard<std::mutex> guard(mLock);
    ORV_LOGV("%s: %d", __func__, pid);
    return m_pPlayer != nullptr ? m_pPlayer->setCCPID(pid) : 0;
}

int COrvPlayer::setAudioPathForce(int config) {
    ORV_LOGV("%s: %d", __func__, config);
    const int result = android::AudioSystem::setForceUse(
        AUDIO_POLICY_FORCE_FOR_MEDIA, static_cast<audio_policy_forced_cfg_t>(config));
    if (result < 0) {
        ORV_LOGE("%s: Error to set audio path", __func__);
    }
    return result;
}

int COrvPlayer::getFrameRate() {
    const std::lock_guard<std::mutex> guard(mLock);
    return m_pPlayer != nullptr ? m_pPlayer->getFrameRate() : -1;
}

int64_t COrvPlayer::getPCRValue() {
    const PlayerUse player(*this);
    return player ? player->getPCRValue() : 0;
}

}  // namespace OrvPlayer
