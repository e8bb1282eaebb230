#include "media/player/MediaFileState.h"

namespace orvhost {

std::atomic<int64_t>& mediaFileDurationMs() {
    static std::atomic<int64_t> durationMs{0};
    return durationMs;
}

std::atomic<uint64_t>& mediaPicturesDropped() {
    static std::atomic<uint64_t> pictures{0};
    return pictures;
}

}  // namespace orvhost
