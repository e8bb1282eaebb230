#pragma once

#include <cerrno>
#include <cstdint>

// The native window: what code that knows neither the codec nor the buffer queue sees of a
// Surface. All operations return 0 or a negative status and may be called from any thread. None
// waits for the application for longer than 5 ms.

// Memory of one buffer, for the graphics mapper. Valid as long as the buffer it came from.
typedef const struct orv_buffer_handle* buffer_handle_t;

// A window's crop, in pixels of the buffer. All four edges are inside: a whole 1920 x 1080 picture
// is (0, 0, 1919, 1079). Right below left or bottom above top stands for the whole buffer.
typedef struct android_native_rect_t {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
} android_native_rect_t;

// What a window hands out. The window keeps it alive until it is queued or cancelled.
struct ANativeWindowBuffer {
    int width = 0;   // pixels
    int height = 0;  // rows
    int stride = 0;  // luma bytes from one row to the next
    int format = 0;
    uint64_t usage = 0;
    buffer_handle_t handle = nullptr;
};

enum {
    // Size of the window on the display; 0 until the application has told it.
    NATIVE_WINDOW_WIDTH = 0,
    NATIVE_WINDOW_HEIGHT = 1,
    NATIVE_WINDOW_FORMAT = 2,
    // How many buffers the consumer may keep at a time.
    NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS = 3,
};

// Operations of perform().
enum {
    NATIVE_WINDOW_SET_CROP = 3,
};

// Who connects to a window. One at a time.
enum {
    NATIVE_WINDOW_API_CPU = 2,
    NATIVE_WINDOW_API_MEDIA = 3,
};

struct ANativeWindow {
    int (*query)(const ANativeWindow* window, int what, int* value) = nullptr;
    int (*perform)(ANativeWindow* window, int operation, ...) = nullptr;

    // Lends the picture that was presented last, to be read with the CPU, while a producer is
    // connected; -EWOULDBLOCK when there is none yet or another reader keeps it. There are no
    // fences on this host: *fenceFd becomes -1. The picture must not be written to.
    int (*dequeueBuffer)(ANativeWindow* window, ANativeWindowBuffer** buffer,
                         int* fenceFd) = nullptr;
    // Gives the picture back. It is on the display already, so nothing changes there and it is
    // not counted again. Cancelling does the same.
    int (*queueBuffer)(ANativeWindow* window, ANativeWindowBuffer* buffer, int fenceFd) = nullptr;
    int (*cancelBuffer)(ANativeWindow* window, ANativeWindowBuffer* buffer, int fenceFd) = nullptr;
};

// Sets what part of each picture queued from now on is shown; null shows all of it.
inline int native_window_set_crop(ANativeWindow* window, const android_native_rect_t* crop) {
    return window->perform(window, NATIVE_WINDOW_SET_CROP, crop);
}

inline int native_window_dequeue_buffer_and_wait(ANativeWindow* window,
                                                 ANativeWindowBuffer** buffer) {
    int fenceFd = -1;
    return window->dequeueBuffer(window, buffer, &fenceFd);
}
