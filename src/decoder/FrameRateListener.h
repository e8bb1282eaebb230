#pragma once

#include <cstdint>

namespace OrvPlayer {

// Told the frame duration of a video stream once it is known, and again after every reset.
class FrameRateListener {
public:
    virtual ~FrameRateListener() = default;
    // In 90 kHz ticks. Called from the thread that cuts the units.
    virtual void onFrameDuration(uint64_t frameDuration) = 0;
};

}  // namespace OrvPlayer
