#pragma once

#include <utils/Errors.h>

namespace android {

// Result codes of the media classes beside those of utils/Errors.h (of which the codec uses
// INVALID_OPERATION, -38, and -EAGAIN, -11).
enum {
    MEDIA_ERROR_BASE = -1000,
    ERROR_UNSUPPORTED = MEDIA_ERROR_BASE - 10,
    ERROR_END_OF_STREAM = MEDIA_ERROR_BASE - 11,
    INFO_FORMAT_CHANGED = MEDIA_ERROR_BASE - 12,
    INFO_OUTPUT_BUFFERS_CHANGED = MEDIA_ERROR_BASE - 14,
};

}  // namespace android
