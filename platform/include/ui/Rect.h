#pragma once

#include <cstdint>

namespace android {

// A part of a buffer for the graphics mapper. Right and bottom are outside: the whole of a buffer
// is (0, 0, width, height). (A window's crop, android_native_rect_t, counts them in.)
struct Rect {
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;

    Rect() = default;
    Rect(int32_t w, int32_t h) : right(w), bottom(h) {}
    Rect(int32_t l, int32_t t, int32_t r, int32_t b) : left(l), top(t), right(r), bottom(b) {}
};

}  // namespace android
