#pragma once

#include <atomic>
#include <cstdint>

namespace orvhost {

// How long the media file is that was prepared last in this process, in milliseconds, 0 when that
// is unknown; for the host's status lines. Any thread.
std::atomic<int64_t>& mediaFileDurationMs();

// Pictures of media files that found no free buffer in their surface. Any thread.
std::atomic<uint64_t>& mediaPicturesDropped();

}  // namespace orvhost
