#include "audio/PlaybackTap.h"

#include <atomic>
#include <mutex>

#include "audio/PlaybackTapSlot.h"

namespace orvhost {
namespace {

std::mutex sLock;
PlaybackTap* sTap = nullptr;  // under sLock
std::atomic<bool> sIsSet{false};

}  // namespace

void setPlaybackTap(PlaybackTap* pTap) {
    const std::lock_guard<std::mutex> guard(sLock);
    sTap = pTap;
    sIsSet.store(pTap != nullptr, std::memory_order_relaxed);
}

bool PlaybackTapSlot::isSet() {
    return sIsSet.load(std::memory_order_relaxed);
}

void PlaybackTapSlot::played(const PlaybackBlock& block) {
    const std::lock_guard<std::mutex> guard(sLock);
    if (sTap != nullptr) {
        sTap->onBlock(block);
    }
}

void PlaybackTapSlot::flushed(int sessionId, int64_t nowNs) {
    const std::lock_guard<std::mutex> guard(sLock);
    if (sTap != nullptr) {
        sTap->onFlushed(sessionId, nowNs);
    }
}

}  // namespace orvhost
