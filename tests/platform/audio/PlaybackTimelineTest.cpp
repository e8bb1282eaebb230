#include "audio/PlaybackTimeline.h"

#include <gtest/gtest.h>

namespace orvhost {
namespace {

TEST(PlaybackTimelineTest, LatencyIsTheLimitLessHalfABlockOfSilence) {
    struct {
        uint32_t rate, bytesPerFrame;
        int64_t latencyNs;
    } const cases[] = {
        {48000, 4, 179'666'667},   // 8,192 bytes last 42.667 ms
        {48000, 12, 193'888'889},  // 5.1
        {32000, 2, 137'000'000},  {44100, 4, 177'780'046},
        {22050, 2, 108'120'182},  {8000, 2, 40'000'000},  // a block lasts longer than the limit
    };
    for (const auto& form : cases) {
        EXPECT_EQ(PlaybackTimeline::nominalLatencyNs(form.rate, form.bytesPerFrame), form.latencyNs)
            << form.rate << " Hz, " << form.bytesPerFrame;
    }
}

// Frame and time are inverse to each other at every rate and after weeks, with no drift.
TEST(PlaybackTimelineTest, FramesKeepTheirTimesForEver) {
    constexpr int64_t startNs = 123'456'789'012;
    constexpr int64_t latencyNs = 179'666'667;
    for (const uint32_t rate : {8000U, 22050U, 32000U, 44100U, 48000U, 192000U}) {
        PlaybackTimeline timeline(rate);
        timeline.start(startNs, latencyNs);
        EXPECT_EQ(timeline.playTimeNs(0), startNs + latencyNs);
        for (const int64_t second : {-1, 0, 1, 3600, 40 * 24 * 3600}) {
            const int64_t whole = second * rate;
            EXPECT_EQ(timeline.playTimeNs(whole), startNs + latencyNs + second * 1'000'000'000);
            for (int64_t frame = whole - 3; frame < whole + 200; frame++) {
                const int64_t timeNs = timeline.playTimeNs(frame);
                ASSERT_EQ(timeline.frameDueAt(timeNs), frame) << rate;
                ASSERT_EQ(timeline.frameDueAt(timeNs + 1), frame + 1) << rate;
                // Room for a frame comes with the nanosecond at which capacity allows it.
                const int64_t roomNs = timeline.roomTimeNs(frame);
                ASSERT_EQ(timeline.frameDueAt(roomNs) + timeline.capacityFrames(), frame) << rate;
                ASSERT_LT(timeline.frameDueAt(roomNs - 1) + timeline.capacityFrames(), frame);
            }
        }
    }
}

}  // namespace
}  // namespace orvhost
