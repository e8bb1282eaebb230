#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "graphics/BufferQueue.h"

namespace orvplay {

// One picture of the screen, as the player's capture gives it.
struct Still {
    std::vector<uint8_t> pixels;  // blue, green, red, alpha; no gap between rows
    uint32_t width = 0;
    uint32_t height = 0;
    std::chrono::system_clock::time_point takenAt;
    uint64_t pts90k = 0;             // 33 bits
    uint32_t sampleAspectWidth = 0;  // 0 when unknown
    uint32_t sampleAspectHeight = 0;
};

// Keeps the stills that the player hands out until somebody has time for them: capture thread in,
// any thread out. The bound is on memory, 8 MB for each still of 1920 x 1080: when there is no room
// the oldest goes.
class StillTray {
public:
    StillTray(const android::sp<orvhost::BufferQueue::Consumer>& window, size_t room)
        : mWindow(window), mRoom(room) {}
    StillTray(const StillTray&) = delete;  // the capture thread calls it
    StillTray& operator=(const StillTray&) = delete;

    // Copies the words of a capture that ends with this call. The window, which lent the picture
    // to it, tells the rest.
    void put(const unsigned char* pixels, uint32_t width, uint32_t height);

    // The oldest one. Waits so long for one to come; false when none did.
    bool take(Still* still, std::chrono::milliseconds wait);

private:
    const android::sp<orvhost::BufferQueue::Consumer> mWindow;
    const size_t mRoom;
    std::mutex mLock;
    std::condition_variable mArrived;
    std::deque<Still> mStills;
};

}  // namespace orvplay
