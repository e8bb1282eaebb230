#include "recorder/Player.h"

#include <cutils/properties.h>
#include <dtv/RecPlayerBinder.h>

#include <algorithm>
#include <cstdlib>

#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr const char* CARD_PATH_FILE = "/data/one-seg/extSdCard";
constexpr const char* CARD_PATH_PROPERTY = "oneseg.extSdCard.path";
constexpr uint32_t TICKS_PER_MS = 90;
constexpr uint32_t TICKS_PER_SECOND = 90'000;
constexpr uint32_t MS_PER_SECOND = 1000;
constexpr uint32_t LAST_SEEK_TARGET_MS = 1500;  // before the end

// The outcome of a call of the recorder service, traced.
bool succeeded(const char* operation, const char* function, unsigned char result) {
    if (result == 1) {
        ORV_LOGV("%s %s succeeded!", operation, function);
    } else {
        ORV_LOGE("%s %s failed", operation, function);
    }
    return result == 1;
}

// Where the external storage card is mounted, "" without one. Of a longer text the beginning.
std::string cardPath() {
    char path[PROPERTY_VALUE_MAX] = {};
    if (OneSegPGL_CheckFile(CARD_PATH_FILE) == 1) {
        const long size =
            std::min<long>(OneSegPGL_GetFileSize(CARD_PATH_FILE), PROPERTY_VALUE_MAX - 1);
        if (size >= 1 && OneSegPGL_ReadFile(CARD_PATH_FILE, path, size) == size) {
            return path;
        }
    }
    property_get(CARD_PATH_PROPERTY, path, "");
    return path;
}

}  // namespace

void Player::setListener(IPlayerListener* listener) {
    mListener.publish(listener);
    mListener.set(listener);
    mListenerKey = listener;
}

void Player::setFilePath(const std::string& path) {
    mFilePath = path;
}

void Player::start() {
    ORV_LOGI("%s", __func__);
    {
        std::lock_guard<std::mutex> guard(mTimeLock);
        mStopped = false;
    }
    succeeded(__func__, "RecPlayerBinder_IsTSPlayerActive",
              RecPlayerBinder_IsTSPlayerActive(playerCallback, mListenerKey));
    const std::string card = cardPath();
    ORV_LOGI("%s external sdcard path = %s", __func__, card.c_str());
    const bool outsideCard = !card.empty() && mFilePath.find(card) == std::string::npos;
    recDetails* const details =
        RecPlayerBinder_GetRecClipDetails(mFilePath.c_str(), outsideCard ? 1 : 0);
    if (details == nullptr) {
        ORV_LOGI("%s fail to get duration", __func__);
        return;
    }
    const uint32_t durationMs = details->playbackDuration;
    free(details->prgName);
    free(details->stationName);
    free(details);
    {
        std::lock_guard<std::mutex> guard(mTimeLock);
        mDuration = durationMs;
    }
    ORV_LOGI("%s duration = %d(ms)", __func__, static_cast<int>(durationMs));
}

void Player::stop() {
    ORV_LOGV("%s", __func__);
    std::lock_guard<std::mutex> guard(mTimeLock);
    mStopped = true;
}

void Player::pause() {
    succeeded(__func__, "RecPlayerBinder_PauseTSPlayer", RecPlayerBinder_PauseTSPlayer());
}

void Player::resume() {
    succeeded(__func__, "RecPlayerBinder_ResumeTSPlayer", RecPlayerBinder_ResumeTSPlayer());
}

bool Player::isPossibleSeek() {
    const unsigned char answer = RecPlayerBinder_IsPossibleSeek();
    succeeded(__func__, "RecPlayerBinder_IsPossibleSeek", answer);
    return answer != 0;  // deliberate: also what was traced as a failure
}

void Player::seek(int positionMs) {
    uint32_t elapsedSec = 0;
    bool isAtEnd = false;
    {
        std::lock_guard<std::mutex> guard(mTimeLock);
        elapsedSec = m_elapsedTimeSec;
        // Deliberate: a shorter recording makes the limit wrap, so that every target is sought.
        isAtEnd = static_cast<uint32_t>(positionMs) >= mDuration - LAST_SEEK_TARGET_MS;
    }
    if (isAtEnd) {
        moveTo(positionMs);
        mListener.call([](IPlayerListener& listener) { listener.onEndOfContent(); });
        return;
    }
    if (succeeded(
            __func__, "RecPlayerBinder_RepositioningTSPlayer",
            RecPlayerBinder_RepositioningTSPlayer(static_cast<int>(elapsedSec), positionMs))) {
        elapsedSec = moveTo(positionMs);
    }
    ORV_LOGI("%s: millisec %d - m_elapsedTimeSec %d", __func__, positionMs,
             static_cast<int>(elapsedSec));
}

uint32_t Player::moveTo(int positionMs) {
    std::lock_guard<std::mutex> guard(mTimeLock);
    m_elapsedTimeSec = static_cast<uint32_t>(positionMs / static_cast<int>(MS_PER_SECOND));
    m_startPTS = 0;
    return m_elapsedTimeSec;
}

bool Player::countTime(Uint33 pts, uint32_t* elapsedMs, uint32_t* elapsedSec) {
    std::lock_guard<std::mutex> guard(mTimeLock);
    if (mStopped) {
        return false;
    }
    if (m_startPTS == 0 || m_startPTS > pts) {
        // Deliberate: a product of 32 bits. See PlayerTest.SeeksWithinTheRecording.
        m_startPTS = pts - m_elapsedTimeSec * TICKS_PER_SECOND;
        return false;
    }
    *elapsedMs = static_cast<uint32_t>((pts - m_startPTS) / TICKS_PER_MS);
    *elapsedSec = *elapsedMs / MS_PER_SECOND;
    ORV_LOGV(
        "%s: pts =%llu, m_startPTS = %u, elapsedTimeMSec = %u, elapsedTimeSec = %u, "
        "m_elapsedTimeSec = %u",
        "updateCurTime", static_cast<unsigned long long>(pts), static_cast<uint32_t>(m_startPTS),
        *elapsedMs, *elapsedSec, m_elapsedTimeSec);
    if (mDuration != 0) {
        *elapsedSec = std::min(*elapsedSec, mDuration / MS_PER_SECOND);
    }
    if (*elapsedSec <= m_elapsedTimeSec) {
        return false;
    }
    m_elapsedTimeSec = *elapsedSec;
    return true;
}

void Player::updateCurTime(Uint33 pts) {
    uint32_t elapsedMs = 0;
    uint32_t elapsedSec = 0;
    if (!countTime(pts, &elapsedMs, &elapsedSec)) {
        return;
    }
    succeeded(__func__, "RecPlayerBinder_SetCurrLapTime",
              RecPlayerBinder_SetCurrLapTime(elapsedMs, pts / TICKS_PER_MS));
    mListener.call([elapsedSec](IPlayerListener& listener) {
        listener.onTimeUpdate(static_cast<int>(elapsedSec));
    });
}

unsigned int Player::getCurrentTimeMs() {
    std::lock_guard<std::mutex> guard(mTimeLock);
    return m_elapsedTimeSec * MS_PER_SECOND;
}

void playerCallback(int event, void* listener) {
    ORV_LOGI("%s event received: %d", __func__, event);
    ListenerGuard<IPlayerListener>::callAt(listener, [event](IPlayerListener& to) {
        switch (event) {
            case PLAYER_EVENT_END_OF_CONTENT:
                to.onEndOfContent();
                break;
            case PLAYER_EVENT_READ_FAILED:
            case PLAYER_EVENT_BAD_RECORDING:
                to.onError(Player::PLAYER_ERROR_SERVICE);
                break;
            default:
                break;
        }
    });
}

}  // namespace OrvPlayer
