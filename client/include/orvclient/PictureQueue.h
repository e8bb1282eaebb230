#pragma once

#include <orvclient/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace orvclient {

// Colour matrix and transfer of a picture as the stream tells them.
enum class Colours { UNKNOWN, BT601, BT709, BT2020 };

// One picture of the player, in memory shared with it: valid until it is released.
struct Picture {
    int slot = -1;
    uint64_t number = 0;  // 1, 2, 3 ... in the order of presentation
    int64_t ptsNs = 0;    // on the stream's time line
    // Semi-planar 4:2:0: rows of luma, then rows of Cb Cr Cb Cr, both `stride` bytes apart.
    const uint8_t* luma = nullptr;
    const uint8_t* chroma = nullptr;
    size_t stride = 0;
    uint32_t width = 0;  // of the memory, in pixels
    uint32_t height = 0;
    // The part to show, all four edges inside.
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;
    bool interlaced = false;  // both fields in one frame, line by line
    bool topFieldFirst = false;
    uint32_t sampleAspectWidth = 0;  // 0 : 0 when unknown (ITU-T H.264, sar_width and sar_height)
    uint32_t sampleAspectHeight = 0;
    Colours colours = Colours::UNKNOWN;
    bool fullRange = false;  // luma 0 to 255, else 16 to 235
};

// The application's end of a surface: the player presents pictures here. No pixel is copied between
// the processes; who does not take pictures in time loses them, nobody waits. Any thread.
//
//   Picture picture;
//   while (queue.acquire(&picture, 100)) {
//       ... show it ...
//       queue.release(picture);
//   }
class ORVCLIENT_API PictureQueue {
public:
    PictureQueue();
    ~PictureQueue();  // ends the queue: the player shows nothing from then on
    PictureQueue(const PictureQueue&) = delete;
    PictureQueue& operator=(const PictureQueue&) = delete;

    // The oldest picture that waits, after waiting up to `timeoutMs` for one; false when none came,
    // when three are out already, or after end().
    bool acquire(Picture* picture, int timeoutMs);
    // Gives it back; nothing happens for one that is not out.
    void release(const Picture& picture);

    // The picture that the player made a still of last, or is making, without its pixels.
    Picture lastStill() const;

    struct Counters {
        uint64_t queued = 0;    // pictures presented
        uint64_t acquired = 0;  // pictures taken
        uint64_t dropped = 0;   // pictures that found no room, because none was taken
    };
    Counters counters() const;

    // What the player learns about the window's size, in pixels.
    void setDisplaySize(int width, int height);

    // Wakes whoever waits; nothing comes from here on.
    void end();

    class ORVCLIENT_LOCAL Halves;  // the library's own
    Halves& halves() { return *mHalves; }

private:
    const std::unique_ptr<Halves> mHalves;
};

}  // namespace orvclient
