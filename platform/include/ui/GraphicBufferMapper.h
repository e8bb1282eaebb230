#pragma once

#include <system/graphics.h>
#include <system/window.h>
#include <ui/Rect.h>
#include <utils/Errors.h>

#include <cstdint>

namespace android {

// Gives the CPU access to a buffer of which only the handle is known. Stateless and thread-safe.
//
// Every call answers BAD_VALUE for a null handle. A lock needs one of the software usage flags of
// GraphicBuffer and a rectangle that is not empty and lies inside the buffer, else BAD_VALUE;
// addresses given are those of the whole picture, whatever the rectangle. They stay readable as
// long as the buffer lives, but what they show is settled only until the buffer goes back to its
// window.
class GraphicBufferMapper {
public:
    // The one of this process.
    static GraphicBufferMapper& get();

    status_t lock(buffer_handle_t handle, uint32_t usage, const Rect& bounds, void** address);
    status_t lockYCbCr(buffer_handle_t handle, uint32_t usage, const Rect& bounds,
                       android_ycbcr* planes);
    status_t unlock(buffer_handle_t handle);
};

}  // namespace android
