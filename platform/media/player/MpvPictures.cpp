#include "media/player/MpvPictures.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace orvhost {

namespace {

constexpr size_t ALIGNMENT = 64;  // of rows, for the vector units of the conversion
constexpr int64_t LONGEST_LEAD_US = 100'000;
constexpr int64_t LONGEST_PERIOD_US = 500'000;
constexpr auto IDLE_WAIT = std::chrono::milliseconds(300);
constexpr auto SETTLING_WAIT = std::chrono::milliseconds(200);

size_t strideOf(int width) {
    return (static_cast<size_t>(width) * 4 + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
}

}  // namespace

MpvPictures::MpvPictures(mpv_handle* player, PictureSink& sink) : mPlayer(player), mSink(sink) {}

MpvPictures::~MpvPictures() {
    if (mContext == nullptr) {
        return;
    }
    {
        const std::lock_guard guard(mLock);
        mExit = true;
    }
    mChanged.notify_all();
    mThread.join();
    mpv_render_context_set_update_callback(mContext, nullptr, nullptr);
    mpv_render_context_free(mContext);
}

bool MpvPictures::start() {
    char api[] = MPV_RENDER_API_TYPE_SW;
    mpv_render_param parameters[] = {{MPV_RENDER_PARAM_API_TYPE, api},
                                     {MPV_RENDER_PARAM_INVALID, nullptr}};
    if (mpv_render_context_create(&mContext, mPlayer, parameters) < 0) {
        mContext = nullptr;
        return false;
    }
    mThread = std::thread([this] { run(); });
    mpv_render_context_set_update_callback(mContext, onUpdate, this);
    return true;
}

void MpvPictures::setFields(bool isInterlaced, bool isTopFieldFirst) {
    const std::lock_guard guard(mLock);
    mFormat.isInterlaced = isInterlaced;
    mFormat.isTopFieldFirst = isTopFieldFirst;
}

void MpvPictures::setFormat(const MediaPicture& format) {
    const std::lock_guard guard(mLock);
    const MediaPicture former = std::exchange(mFormat, format);
    mFormat.isInterlaced = former.isInterlaced;
    mFormat.isTopFieldFirst = former.isTopFieldFirst;
    mRedraw = mRedraw || std::exchange(mAwaitsFormat, false);
    mChanged.notify_all();
}

void MpvPictures::awaitIdle() {
    std::unique_lock guard(mLock);
    mChanged.wait_for(guard, IDLE_WAIT, [this] { return mIsIdle && !mUpdated && !mRedraw; });
}

void MpvPictures::unsettle() {
    const std::lock_guard guard(mLock);
    mIsSettled = false;
    mSettledBy.reset();
}

void MpvPictures::settle() {
    const std::lock_guard guard(mLock);
    mIsSettled = true;
    mChanged.notify_all();
}

void MpvPictures::redraw() {
    const std::lock_guard guard(mLock);
    mRedraw = true;
    mChanged.notify_all();
}

// On any thread of mpv's, under locks of its own.
void MpvPictures::onUpdate(void* self) {
    auto& pictures = *static_cast<MpvPictures*>(self);
    const std::lock_guard guard(pictures.mLock);
    pictures.mUpdated = true;
    pictures.mChanged.notify_all();
}

void MpvPictures::run() {
    pthread_setname_np(pthread_self(), "MediaPictures");
    std::unique_lock guard(mLock);
    while (!mExit) {
        mChanged.wait(guard, [this] { return mUpdated || mRedraw || mExit; });
        if (mExit) {
            return;
        }
        const bool isAskedFor = mRedraw;
        mUpdated = false;
        mRedraw = false;
        mIsIdle = false;
        guard.unlock();
        const uint64_t flags = mpv_render_context_update(mContext);
        if ((flags & MPV_RENDER_UPDATE_FRAME) != 0 || isAskedFor) {
            takePicture(isAskedFor);
        }
        guard.lock();
        mIsIdle = true;
        mChanged.notify_all();
    }
}

void MpvPictures::takePicture(bool isAskedFor) {
    mpv_render_frame_info info = {};
    mpv_render_context_get_info(mContext, {MPV_RENDER_PARAM_NEXT_FRAME_INFO, &info});
    const bool isNew = (info.flags & MPV_RENDER_FRAME_INFO_PRESENT) != 0 &&
                       (info.flags & MPV_RENDER_FRAME_INFO_REDRAW) == 0;
    mHasPicture = mHasPicture || isNew;
    const MediaPicture format = formatOfPicture();
    if ((!isNew && !(isAskedFor && mHasPicture)) || format.width <= 0 || format.height <= 0 ||
        !mSink.reserve(format.width, format.height)) {
        skip();
        return;
    }
    if (!draw(format)) {
        return;
    }
    if (!awaitSettled()) {
        return;
    }
    const int64_t timeUs = timeOf(info.target_time);
    waitUntil(info.target_time);
    mSink.present(timeUs);
}

// The first picture comes about when its format is told: sometimes before, then it is drawn again.
MediaPicture MpvPictures::formatOfPicture() {
    const std::lock_guard guard(mLock);
    mAwaitsFormat = mFormat.width <= 0;
    return mFormat;
}

// mpv tells when a picture is due, by its own clock, and which time it is at in the file, but not
// for which picture: it may be the one before or after. So the distance of the two is kept while it
// is right to within one and a half pictures: they are told as far apart as they are due, and at
// most two from where they stand in the file.
int64_t MpvPictures::timeOf(int64_t playerTimeUs) {
    const int64_t timeUs = mTimeUs;
    const int64_t stepUs = timeUs - std::exchange(mLastTimeUs, timeUs);
    if (stepUs > 0 && stepUs <= LONGEST_PERIOD_US) {
        mPeriodUs = stepUs;
    }
    if (playerTimeUs <= 0) {
        return timeUs;
    }
    const int64_t offsetUs = timeUs - playerTimeUs;
    if (std::abs(offsetUs - mOffsetUs) > mPeriodUs * 3 / 2) {
        mOffsetUs = offsetUs;
    }
    return playerTimeUs + mOffsetUs;
}

bool MpvPictures::draw(const MediaPicture& format) {
    size_t stride = strideOf(format.width);
    const size_t bytes = stride * static_cast<size_t>(format.height);
    if (bytes != mPixelBytes) {
        mPixels.reset(static_cast<uint8_t*>(aligned_alloc(ALIGNMENT, bytes)));
        mPixelBytes = mPixels != nullptr ? bytes : 0;
    }
    if (mPixels == nullptr) {
        skip();
        return false;
    }
    int size[] = {format.width, format.height};
    char pixelFormat[] = "bgr0";
    int dontWait = 0;
    mpv_render_param parameters[] = {{MPV_RENDER_PARAM_SW_SIZE, size},
                                     {MPV_RENDER_PARAM_SW_FORMAT, pixelFormat},
                                     {MPV_RENDER_PARAM_SW_STRIDE, &stride},
                                     {MPV_RENDER_PARAM_SW_POINTER, mPixels.get()},
                                     {MPV_RENDER_PARAM_BLOCK_FOR_TARGET_TIME, &dontWait},
                                     {MPV_RENDER_PARAM_INVALID, nullptr}};
    if (mpv_render_context_render(mContext, parameters) < 0) {
        return false;
    }
    MediaPicture picture = format;
    picture.pixels = mPixels.get();
    picture.strideBytes = static_cast<int>(stride);
    return mSink.prepare(picture);
}

void MpvPictures::skip() {
    int yes = 1;
    int dontWait = 0;
    mpv_render_param parameters[] = {{MPV_RENDER_PARAM_SKIP_RENDERING, &yes},
                                     {MPV_RENDER_PARAM_BLOCK_FOR_TARGET_TIME, &dontWait},
                                     {MPV_RENDER_PARAM_INVALID, nullptr}};
    mpv_render_context_render(mContext, parameters);
}

// mpv says that it has arrived once its first picture is drawn, or, close to the end of the file,
// the second: then that one is shown. Should it never say so, the wait is over all the same.
bool MpvPictures::awaitSettled() {
    std::unique_lock guard(mLock);
    if (mIsSettled) {
        return true;
    }
    if (!mSettledBy.has_value()) {
        mSettledBy = std::chrono::steady_clock::now() + SETTLING_WAIT;
    }
    const bool isEarly = mChanged.wait_until(
        guard, *mSettledBy, [this] { return mIsSettled || mUpdated || mRedraw || mExit; });
    if (isEarly && !mIsSettled) {
        mRedraw = true;
        return false;
    }
    mIsSettled = true;
    return true;
}

// Pictures of a pause, and the first after a jump, have no time: they are due at once.
void MpvPictures::waitUntil(int64_t playerTimeUs) {
    const int64_t leadUs = std::min(playerTimeUs - mpv_get_time_us(mPlayer), LONGEST_LEAD_US);
    if (playerTimeUs > 0 && leadUs > 0) {
        std::unique_lock guard(mLock);
        mChanged.wait_for(guard, std::chrono::microseconds(leadUs), [this] { return mExit; });
    }
}

}  // namespace orvhost
