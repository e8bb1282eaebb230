#pragma once

#include <orvclient/Player.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "PictureView.h"

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

// Makes a still of a picture that this program has, with the colours as a screen shows them. False
// when that cannot be converted.
bool copyPicture(const PictureView& view, Still* still);

// Keeps the stills that the player hands out until somebody has time for them: callback thread in,
// any thread out. The bound is on memory, 8 MB for each still of 1920 x 1080: when there is no room
// the oldest goes.
class StillTray {
public:
    explicit StillTray(size_t room) : mRoom(room) {}
    StillTray(const StillTray&) = delete;  // callbacks know it by address
    StillTray& operator=(const StillTray&) = delete;

    // Copies what is readable during this call only.
    void put(const orvclient::StillView& view);

    // The oldest one. Waits so long for one to come; false when none did.
    bool take(Still* still, std::chrono::milliseconds wait);

private:
    const size_t mRoom;
    std::mutex mLock;
    std::condition_variable mArrived;
    std::deque<Still> mStills;
};

}  // namespace orvplay
