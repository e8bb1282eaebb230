#include "audio/PlaybackTrack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utils/Errors.h>

#include <atomic>
#include <cstring>
#include <future>
#include <string>
#include <thread>

#include "audio/PlaybackTap.h"
#include "platform/audio/DrivenClock.h"

namespace orvhost {
namespace {

constexpr uint32_t RATE = 48000;
constexpr int64_t MS = 1'000'000;
constexpr int64_t LATENCY_NS = 179'666'667;
constexpr int64_t LATENCY_FRAMES = 8624;
constexpr size_t FRAME_BYTES = 4;
constexpr size_t BLOCK_BYTES = 8192;

int64_t framesIn(int64_t ns) {
    return ns * RATE / 1'000'000'000;
}

// Keeps what the tracks tell.
class RecordingTap : public PlaybackTap {
public:
    RecordingTap() { setPlaybackTap(this); }
    ~RecordingTap() override { setPlaybackTap(nullptr); }

    void onBlock(const PlaybackBlock& block) override {
        blocks.push_back(block);
        frames += block.frameCount;
        missed += block.missedFrames;
    }
    void onFlushed(int /*sessionId*/, int64_t /*nowNs*/) override {}

    std::vector<PlaybackBlock> blocks;
    size_t frames = 0;
    size_t missed = 0;
};

// Stereo PCM whose left sample is the frame's number and whose right is its negative.
std::vector<int16_t> numbered(size_t frames, int first = 0) {
    std::vector<int16_t> pcm;
    for (size_t i = 0; i < frames; i++) {
        const int number = (first + static_cast<int>(i)) % 30000;
        pcm.push_back(static_cast<int16_t>(number));
        pcm.push_back(static_cast<int16_t>(-number));
    }
    return pcm;
}

class PlaybackTrackTest : public testing::Test {
protected:
    ssize_t writeSilence(size_t bytes, bool blocking = true) {
        return mTrack.write(std::vector<char>(bytes).data(), bytes, blocking);
    }

    JumpingClock mClock;
    PlaybackTrack mTrack{RATE, AUDIO_CHANNEL_OUT_STEREO, 7, mClock};
    RecordingTap mTap;
};

// The latency counts from the first write, not from what made the track empty.
TEST_F(PlaybackTrackTest, FirstByteIsHeardOneLatencyAfterItsWriting) {
    mTrack.start();
    const std::function<void()> emptyings[] = {[] {}, [this] { mTrack.flush(); },
                                               [this] {
                                                   mTrack.stop();
                                                   mTrack.start();
                                               },
                                               [this] { mTrack.flush(); }};
    for (const auto& makeEmpty : emptyings) {
        makeEmpty();
        EXPECT_FALSE(mTrack.positionAt(mClock.nowNs()).isDue);
        mClock.advance(3333 * MS);
        const int64_t writtenNs = mClock.nowNs();
        mTap.blocks.clear();
        writeSilence(5 * BLOCK_BYTES);
        ASSERT_FALSE(mTap.blocks.empty());
        EXPECT_EQ(mTap.blocks[0].playTimeNs, writtenNs + LATENCY_NS);
        EXPECT_EQ(mTrack.positionAt(writtenNs + LATENCY_NS).frame, 0);
        EXPECT_EQ(mTrack.positionAt(writtenNs).frame, -LATENCY_FRAMES);
    }
    EXPECT_EQ(mTap.missed, 0U);
}

TEST_F(PlaybackTrackTest, SlowAndBluetoothOutputsAreLaterFromTheNextFlushOn) {
    struct {
        int64_t deviceMs;
        bool isBluetooth;
        int64_t latencyNs;
    } const outputs[] = {{80, false, LATENCY_NS},
                         {150, true, LATENCY_NS + 170 * MS},
                         {400, true, 420 * MS},
                         {30'000, false, 2020 * MS},
                         {-5, false, LATENCY_NS}};
    mTrack.start();
    for (const auto& output : outputs) {
        writeSilence(BLOCK_BYTES);
        const PlaybackTrack::Position before = mTrack.positionAt(mClock.nowNs());
        mTrack.setDeviceLatency(output.deviceMs * MS);
        mTrack.setBluetooth(output.isBluetooth);
        EXPECT_EQ(mTrack.positionAt(mClock.nowNs()).frame, before.frame);
        mTrack.flush();
        mTap.blocks.clear();
        const int64_t nowNs = mClock.nowNs();
        writeSilence(BLOCK_BYTES, false);
        EXPECT_EQ(mTap.blocks.at(0).playTimeNs, nowNs + output.latencyNs);
        // The headroom of 50 ms stays, so the capacity grows with the latency.
        const ssize_t more = writeSilence(10 * BLOCK_BYTES, false);
        EXPECT_NEAR((BLOCK_BYTES + static_cast<size_t>(more)) / FRAME_BYTES, framesIn(50 * MS), 1);
    }
}

// A minute of blocks is taken at the nominal rate, at most 50 ms ahead of the latency and never
// behind it.
TEST_F(PlaybackTrackTest, WriterIsPacedByTheClock) {
    mTrack.start();
    const int64_t startNs = mClock.nowNs();
    int64_t frames = 0;
    while (frames < 60 * RATE) {
        ASSERT_EQ(writeSilence(BLOCK_BYTES), static_cast<ssize_t>(BLOCK_BYTES));
        frames += BLOCK_BYTES / FRAME_BYTES;
        const int64_t aheadNs = frames * 1'000'000'000 / RATE - (mClock.nowNs() - startNs);
        ASSERT_LE(aheadNs, 50 * MS + 42'000);  // two frames of rounding
        ASSERT_TRUE(frames < 3000 || aheadNs > 0) << frames;
    }
    EXPECT_EQ(mTap.missed, 0U);
    writeSilence(10 * BLOCK_BYTES, false);
    EXPECT_EQ(writeSilence(BLOCK_BYTES, false), android::WOULD_BLOCK);
    mClock.advance(10 * MS);
    EXPECT_EQ(writeSilence(BLOCK_BYTES, false), static_cast<ssize_t>(480 * FRAME_BYTES));
}

// A pause of the writer costs what should have been heard in it and shifts nothing.
TEST_F(PlaybackTrackTest, UnderrunDropsWhatItMissed) {
    mTrack.start();
    const int64_t startNs = mClock.nowNs();
    writeSilence(480 * FRAME_BYTES);
    mClock.advance(1000 * MS);
    const int64_t lateFrames = framesIn(1000 * MS) - LATENCY_FRAMES - 480;
    const int64_t resumedNs = mClock.nowNs();
    while (mTap.frames < RATE * 2) {
        ASSERT_EQ(writeSilence(BLOCK_BYTES), static_cast<ssize_t>(BLOCK_BYTES));
        if (static_cast<int64_t>(mTap.frames) <= lateFrames + 480) {
            ASSERT_EQ(mClock.nowNs(), resumedNs) << "waited with late data in hand";
        }
    }
    EXPECT_EQ(mTap.missed, static_cast<size_t>(lateFrames));
    int64_t frame = 0;
    for (const PlaybackBlock& block : mTap.blocks) {
        EXPECT_EQ(framesIn(block.playTimeNs - startNs - LATENCY_NS), frame);
        frame += static_cast<int64_t>(block.frameCount);
    }
}

TEST_F(PlaybackTrackTest, AnyByteCountIsTakenFromAFrameBoundary) {
    mTrack.start();
    const std::vector<int16_t> pcm = numbered(4000);
    std::vector<char> shifted(pcm.size() * 2 + 1);  // at an odd address
    std::memcpy(shifted.data() + 1, pcm.data(), pcm.size() * 2);
    size_t frames = 0;
    for (const size_t bytes : {0, 1, 3, 4, 7, 8, 4099, 2}) {
        EXPECT_EQ(mTrack.write(shifted.data() + 1 + frames * FRAME_BYTES, bytes, true),
                  static_cast<ssize_t>(bytes));
        frames += bytes / FRAME_BYTES;
        EXPECT_EQ(mTap.frames, frames);
    }
    std::vector<int16_t> played(frames * 2);
    mTrack.read(mTrack.positionAt(0).run, 0, played.data(), frames);
    EXPECT_EQ(played, numbered(frames));
}

// A device that plays 60 ms from now finds exactly the frames that are due then, over many rounds
// of the ring; nothing but silence stands before, after and instead of them.
TEST_F(PlaybackTrackTest, DeviceFindsWhatIsDue) {
    mTrack.start();
    const uint64_t run = mTrack.positionAt(0).run;
    int written = 0;
    for (int pass = 0; pass < 300; pass++) {
        const std::vector<int16_t> block = numbered(1000, written);
        mTrack.write(block.data(), block.size() * 2, true);
        written += 1000;
        const PlaybackTrack::Position position = mTrack.positionAt(mClock.nowNs() + 60 * MS);
        ASSERT_EQ(position.run, run);
        std::vector<int16_t> heard(960 * 2, 1);
        mTrack.read(run, position.frame, heard.data(), 960);
        std::vector<int16_t> expected = numbered(960, static_cast<int>(position.frame));
        for (int64_t i = 0; i < 960 && position.frame + i < 0; i++) {
            expected[static_cast<size_t>(i) * 2] = expected[static_cast<size_t>(i) * 2 + 1] = 0;
        }
        ASSERT_EQ(heard, expected) << pass;
    }
    std::vector<int16_t> heard(20, 1);
    mTrack.read(run, written - 5, heard.data(), 10);
    std::vector<int16_t> expected = numbered(5, written - 5);
    expected.resize(20);
    EXPECT_EQ(heard, expected);
    mTrack.read(run + 1, written - 5, heard.data(), 10);
    EXPECT_EQ(heard, std::vector<int16_t>(20));
    mTrack.flush();
    heard.assign(20, 1);
    mTrack.read(run, written - 5, heard.data(), 10);
    EXPECT_EQ(heard, std::vector<int16_t>(20));
}

TEST_F(PlaybackTrackTest, VolumeScalesLeftAndRightAndNothingElse) {
    struct {
        audio_channel_mask_t mask;
        std::vector<int16_t> heard;  // of 10000 in each channel at 0.5 left and 0.0 right
    } const cases[] = {
        {AUDIO_CHANNEL_OUT_MONO, {2500}},
        {AUDIO_CHANNEL_OUT_STEREO, {5000, 0}},
        {AUDIO_CHANNEL_OUT_5POINT1, {5000, 0, 2500, 2500, 5000, 0}},
        {AUDIO_CHANNEL_OUT_7POINT1, {5000, 0, 2500, 2500, 5000, 0, 5000, 0}},
    };
    for (const auto& form : cases) {
        PlaybackTrack track(RATE, form.mask, 1, mClock);
        track.start();
        const std::vector<int16_t> frame(form.heard.size(), 10000);
        const int64_t nowNs = mClock.nowNs();
        track.write(frame.data(), frame.size() * 2, true);
        const PlaybackTrack::Position before = track.positionAt(nowNs);
        track.setVolume(0.5F, 0.0F);
        const PlaybackTrack::Position after = track.positionAt(nowNs);
        EXPECT_EQ(before.frame, after.frame);
        EXPECT_EQ(before.run, after.run);
        std::vector<int16_t> heard(frame.size());
        track.read(after.run, 0, heard.data(), 1);
        EXPECT_EQ(heard, form.heard);
        track.setVolume(1.0F, 1.0F);
        track.read(after.run, 0, heard.data(), 1);
        EXPECT_EQ(heard, frame);
    }
}

// A writer that waits for room on a thread of its own, with the time standing still.
class WaitingWriterTest : public testing::Test {
protected:
    std::future<ssize_t> waitInWrite() {
        auto result = std::async(std::launch::async, [this] {
            const std::vector<char> pcm(RATE * FRAME_BYTES, 1);
            return mTrack.write(pcm.data(), pcm.size() - 1, true);
        });
        EXPECT_TRUE(mClock.awaitWaiter());
        return result;
    }

    StandingClock mClock;
    PlaybackTrack mTrack{RATE, AUDIO_CHANNEL_OUT_STEREO, 1, mClock};
};

TEST_F(WaitingWriterTest, FlushDropsTheWholeWriteAndReturnsItsCount) {
    mTrack.start();
    std::future<ssize_t> written = waitInWrite();
    mTrack.flush();
    EXPECT_EQ(written.get(), static_cast<ssize_t>(RATE * FRAME_BYTES - 1));
    // Nothing of it, neither the part that was in the track nor the rest, starts the next run.
    EXPECT_FALSE(mTrack.positionAt(mClock.nowNs()).isDue);
    written = waitInWrite();
    EXPECT_EQ(mTrack.positionAt(mClock.nowNs() + LATENCY_NS).frame, 0);
    mTrack.stop();
    mTrack.flush();
    EXPECT_GT(written.get(), 0);
}

TEST_F(WaitingWriterTest, StopWakesTheWriterWithWhatWasTaken) {
    EXPECT_EQ(mTrack.write("abcd", 4, true), android::INVALID_OPERATION);
    mTrack.start();
    std::future<ssize_t> written = waitInWrite();
    mTrack.stop();
    EXPECT_NEAR(static_cast<double>(written.get()), RATE * FRAME_BYTES * 0.05, FRAME_BYTES);
    EXPECT_EQ(mTrack.write("abcd", 4, true), android::INVALID_OPERATION);

    // Started again before the writer ran: the write belongs to the run that ended all the same.
    mTrack.start();
    written = waitInWrite();
    mTrack.stop();
    mTrack.start();
    EXPECT_LT(written.get(), static_cast<ssize_t>(RATE * FRAME_BYTES - 1));
    EXPECT_FALSE(mTrack.positionAt(mClock.nowNs()).isDue);
}

// Everything at once on the real clock, for the sanitizers; every writer comes home.
TEST(PlaybackTrackThreadsTest, WritersDeviceAndControlsDoNotDisturbEachOther) {
    PlaybackTrack track(RATE, AUDIO_CHANNEL_OUT_STEREO, 1);
    RecordingTap tap;
    track.start();
    std::atomic<bool> isDone{false};
    std::atomic<int> passes[3] = {};
    const auto write = [&](std::atomic<int>& pass) {
        const std::vector<char> pcm(BLOCK_BYTES);
        for (; !isDone; pass++) {
            const ssize_t taken = track.write(pcm.data(), pcm.size(), true);
            EXPECT_TRUE(taken > 0 || taken == android::INVALID_OPERATION) << taken;
        }
    };
    const auto play = [&](std::atomic<int>& pass) {
        std::vector<int16_t> heard(960);
        for (; !isDone; pass++) {
            track.setDeviceLatency(50 * MS);
            track.setBluetooth(true);
            const auto position = track.positionAt(track.clock().nowNs() + 50 * MS);
            track.read(position.run, position.frame, heard.data(), 480);
        }
    };
    std::vector<std::thread> threads;
    threads.emplace_back(write, std::ref(passes[0]));
    threads.emplace_back(write, std::ref(passes[1]));
    threads.emplace_back(play, std::ref(passes[2]));
    for (int i = 0; passes[0] < 200 || passes[1] < 200 || passes[2] < 200; i++) {
        track.flush();
        track.setVolume(0.5F, static_cast<float>(i % 2));
        if (i % 10 == 0) {
            track.stop();
            track.start();
        }
    }
    isDone = true;
    track.stop();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
}  // namespace orvhost
