#pragma once

#include <cstdint>

namespace orvhost {

// What RecPlayerBinder_NotifyAudioPTS said last, in milliseconds; 0 before the first call. Any
// thread.
uint64_t lastNotifiedAudioPtsMs();

}  // namespace orvhost
