#include "media/player/MediaFileState.h"

namespace orvhost {

std::atomic<int64_t>& mediaFileDurationMs() {
    static std::atomic<int64_t> durationMs{0};
    return durationMs;
}

}  // namespace orvhost
