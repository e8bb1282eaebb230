#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace orvhost {

// What the codecs of this process did since it started; for the host's status lines, never read by
// the player. Each counter is exact by itself, the set is not a snapshot.
struct CodecStatistics {
    std::atomic<uint64_t> picturesDecoded{0};
    // Decoded before the first picture that stands by itself, and therefore never handed out.
    std::atomic<uint64_t> picturesHeldBack{0};
    std::atomic<uint64_t> picturesRendered{0};         // queued to a surface
    std::atomic<uint64_t> picturesReleasedUnseen{0};   // given back without being rendered
    std::atomic<uint64_t> picturesDroppedAtWindow{0};  // no free window buffer, or no surface
    std::atomic<uint64_t> videoUnitsDamaged{0};
    std::atomic<uint64_t> audioBlocksDecoded{0};
    std::atomic<uint64_t> audioUnitsDamaged{0};
    // CLOCK_MONOTONIC, microseconds, of the first output since the last start; 0: none yet.
    std::atomic<int64_t> firstPictureUs{0};
    std::atomic<int64_t> firstSoundUs{0};
    // The same of the first IDR picture: when its unit was queued, and when the picture could be
    // dequeued. A stream without IDR pictures leaves both at 0.
    std::atomic<int64_t> firstIdrQueuedUs{0};
    std::atomic<int64_t> firstIdrReadyUs{0};

    // The times of the pictures that were dropped at the window, the latest of them: the one that
    // was counted as number n stands at n modulo their number.
    static constexpr size_t DROPS = 256;
    std::array<std::atomic<int64_t>, DROPS> windowDropsUs{};

    // Any thread; two at once may leave one time out.
    void countWindowDrop(int64_t timeUs) {
        windowDropsUs[picturesDroppedAtWindow % DROPS] = timeUs;
        ++picturesDroppedAtWindow;
    }
};

CodecStatistics& codecStatistics();

}  // namespace orvhost
