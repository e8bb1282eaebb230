// The decoder's picture size and what part of it the window shows.

#include <algorithm>

#include "common/Trace.h"
#include "decoder/MediaCodecDecoder.h"

namespace OrvPlayer {

int MediaCodecDecoder::videoOutputCropChanged(android_native_rect_t rect) {
    mVideoWidth = rect.right - rect.left + 1;
    mVideoHeight = rect.bottom - rect.top + 1;
    std::lock_guard<std::mutex> guard(mWindowLock);
    if (m_pSurface == nullptr) {
        ORV_LOGE("[%s] %s: surface is not set yet", component(), __func__);
        return ERR_CROP;
    }
    if (const int status = native_window_set_crop(m_pSurface.get(), &rect); status != 0) {
        ORV_LOGE("[%s] %s: Error setting crop rect on Native Window %d", component(), __func__,
                 status);
        return ERR_CROP;
    }
    mOrgNativeWindowCropRect = rect;
    return 0;
}

int MediaCodecDecoder::setCropRect(int left, int top, int right, int bottom, int useOriginal) {
    std::lock_guard<std::mutex> guard(mLock);
    std::lock_guard<std::mutex> window(mWindowLock);
    if (mOrgNativeWindowCropRect.right < 0) {
        ORV_LOGE("[%s] %s: mOrgNativeWindowCropRect is not initialized", component(), __func__);
        return ERR_CROP;
    }
    if (m_pSurface == nullptr) {
        ORV_LOGE("[%s] %s: m_pSurface is NULL", component(), __func__);
        return ERR_CROP;
    }
    android_native_rect_t crop = mOrgNativeWindowCropRect;
    if (useOriginal == 0 && !setCropSize(left, top, right, bottom, &crop)) {
        ORV_LOGE("[%s] %s: Error converting crop rect%d", component(), __func__, 1);
        return ERR_CROP;
    }
    if (const int status = native_window_set_crop(m_pSurface.get(), &crop); status != 0) {
        ORV_LOGE("[%s] %s: Error setting crop rect on Native Window %d", component(), __func__,
                 status);
        return ERR_CROP;
    }
    return 0;
}

bool MediaCodecDecoder::setCropSize(int left, int top, int right, int bottom,
                                    android_native_rect_t* crop) {
    int displayWidth = 0;
    int displayHeight = 0;
    const ANativeWindow* display = m_pSurface.get();
    display->query(display, NATIVE_WINDOW_WIDTH, &displayWidth);
    display->query(display, NATIVE_WINDOW_HEIGHT, &displayHeight);
    if (displayWidth == 0 || displayHeight == 0) {
        ORV_LOGI("[%s] %s: error displayWidth = %d, displayHeight = %d", component(), __func__,
                 displayWidth, displayHeight);
        return false;
    }
    // The caller's rectangle is any four numbers: what does not fit the picture is clamped before
    // it becomes an integer again.
    const android_native_rect_t& whole = mOrgNativeWindowCropRect;
    const auto scaled = [](int origin, float scale, int value) {
        const float offset = std::clamp(scale * static_cast<float>(value), -1e9f, 1e9f);
        return origin + static_cast<int>(offset);
    };
    const float scaleX = static_cast<float>(whole.right - whole.left) / displayWidth;
    const float scaleY = static_cast<float>(whole.bottom - whole.top) / displayHeight;
    crop->left = std::max(scaled(whole.left, scaleX, left), 0);
    crop->top = std::max(scaled(whole.top, scaleY, top), 0);
    crop->right = std::min(scaled(whole.left, scaleX, right), whole.right);
    crop->bottom = std::min(scaled(whole.top, scaleY, bottom), whole.bottom);
    return true;
}

}  // namespace OrvPlayer
