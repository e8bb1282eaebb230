#include "Still.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <memory>
#include <utility>

namespace orvplay {

namespace {

// The decoder makes microseconds of 90 kHz ticks and cuts what is behind the point: the next tick
// is the one that was meant.
uint64_t ticksOf(int64_t timestampNs) {
    constexpr uint64_t MASK_33_BITS = 0x1FFFFFFFF;
    const int64_t timeUs = timestampNs / 1000;
    return static_cast<uint64_t>((timeUs * 9 + 99) / 100) & MASK_33_BITS;
}

int coefficientsOf(ColourMatrix matrix) {
    return matrix == ColourMatrix::BT709    ? SWS_CS_ITU709
           : matrix == ColourMatrix::BT2020 ? SWS_CS_BT2020
                                            : SWS_CS_ITU601;
}

}  // namespace

bool copyPicture(const PictureView& view, Still* still) {
    const EvenCrop area = evenCropOf(view);
    const std::unique_ptr<SwsContext, void (*)(SwsContext*)> scaler(
        sws_getContext(area.width, area.height, AV_PIX_FMT_NV12, area.width, area.height,
                       AV_PIX_FMT_BGRA, SWS_BILINEAR | SWS_FULL_CHR_H_INT | SWS_ACCURATE_RND,
                       nullptr, nullptr, nullptr),
        sws_freeContext);
    if (scaler == nullptr) {
        return false;
    }
    constexpr int UNCHANGED = 1 << 16;
    const int* coefficients = sws_getCoefficients(coefficientsOf(colourMatrixOf(view)));
    sws_setColorspaceDetails(scaler.get(), coefficients, hasFullRange(view) ? 1 : 0, coefficients,
                             1, 0, UNCHANGED, UNCHANGED);
    still->width = static_cast<uint32_t>(area.width);
    still->height = static_cast<uint32_t>(area.height);
    still->pixels.resize(size_t{4} * still->width * still->height);
    const ptrdiff_t lumaAt = ptrdiff_t{area.y} * view.lumaStride + area.x;
    const ptrdiff_t chromaAt = ptrdiff_t{area.y / 2} * view.chromaStride + area.x;
    const uint8_t* const in[4] = {view.luma + lumaAt, view.chroma + chromaAt, nullptr, nullptr};
    const int inStrides[4] = {view.lumaStride, view.chromaStride, 0, 0};
    uint8_t* const out[4] = {still->pixels.data(), nullptr, nullptr, nullptr};
    const int outStrides[4] = {area.width * 4, 0, 0, 0};
    still->takenAt = std::chrono::system_clock::now();
    still->pts90k = ticksOf(view.input.timestamp);
    still->sampleAspectWidth = view.input.sampleAspectWidth;
    still->sampleAspectHeight = view.input.sampleAspectHeight;
    return sws_scale(scaler.get(), in, inStrides, 0, area.height, out, outStrides) == area.height;
}

void StillTray::put(const orvclient::StillView& view) {
    Still still;
    still.pixels.assign(view.pixels, view.pixels + size_t{4} * view.width * view.height);
    still.width = view.width;
    still.height = view.height;
    still.takenAt = std::chrono::system_clock::now();
    still.pts90k = ticksOf(view.source.ptsNs);
    still.sampleAspectWidth = view.source.sampleAspectWidth;
    still.sampleAspectHeight = view.source.sampleAspectHeight;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mStills.size() >= mRoom) {
            mStills.pop_front();
        }
        mStills.push_back(std::move(still));
    }
    mArrived.notify_all();
}

bool StillTray::take(Still* still, std::chrono::milliseconds wait) {
    std::unique_lock<std::mutex> guard(mLock);
    if (!mArrived.wait_for(guard, wait, [this] { return !mStills.empty(); })) {
        return false;
    }
    *still = std::move(mStills.front());
    mStills.pop_front();
    return true;
}

}  // namespace orvplay
