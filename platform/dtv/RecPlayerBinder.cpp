#include <dtv/RecPlayerBinder.h>

#include <atomic>

#include "dtv/RecPlayerState.h"

namespace {

std::atomic<uint64_t> sAudioPtsMs{0};

}  // namespace

void RecPlayerBinder_NotifyAudioPTS(unsigned long ms) {
    sAudioPtsMs.store(ms, std::memory_order_relaxed);
}

namespace orvhost {

uint64_t lastNotifiedAudioPtsMs() {
    return sAudioPtsMs.load(std::memory_order_relaxed);
}

}  // namespace orvhost
