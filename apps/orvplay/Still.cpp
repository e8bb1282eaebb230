#include "Still.h"

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

}  // namespace

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
