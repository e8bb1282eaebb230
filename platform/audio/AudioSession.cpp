#include "audio/AudioSession.h"

#include <atomic>

namespace orvhost {

audio_session_t newAudioSession() {
    static std::atomic<audio_session_t> sLast{0};
    return sLast.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace orvhost
