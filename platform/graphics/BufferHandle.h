#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

// What a buffer_handle_t points at: the mapping of one graphic buffer, owned by that buffer. All
// but the lock count is fixed once the buffer is made.
struct orv_buffer_handle {
    int descriptor = -1;
    uint8_t* base = nullptr;
    size_t byteSize = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t stride = 0;  // bytes of a luma row, and of a chroma row
    bool writable = false;
    mutable std::atomic<int> locks{0};
};
