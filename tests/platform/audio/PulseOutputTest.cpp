#include <gtest/gtest.h>
#include <media/AudioSystem.h>
#include <media/AudioTrack.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "audio/AudioClock.h"
#include "audio/AudioOutput.h"
#include "audio/MasterVolume.h"
#include "audio/PlaybackTap.h"
#include "platform/audio/SoundServer.h"
#include "support/Await.h"

namespace android {
namespace {

// A sanitizer slows the server's client down by more than the sound may be off.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr double MAX_ERROR_MS = 100;
#else
constexpr double MAX_ERROR_MS = 15;
#endif

constexpr int64_t MS = 1'000'000;

int64_t nowNs() {
    return orvhost::AudioClock::system().nowNs();
}

bool goesTo(audio_devices_t device) {
    return AudioSystem::getDeviceConnectionState(device, "") == AUDIO_POLICY_DEVICE_STATE_AVAILABLE;
}

// Writes a beep of 10 ms every 300 ms into a track, as fast as it takes them, and knows when each
// of them is due.
class Beeper : public orvhost::PlaybackTap {
public:
    Beeper(uint32_t rate, audio_channel_mask_t mask)
        : mRate(rate),
          mChannels(static_cast<size_t>(std::popcount(mask))),
          mTrack(new AudioTrack(AUDIO_STREAM_MUSIC, rate, AUDIO_FORMAT_DEFAULT, mask)) {
        orvhost::setPlaybackTap(this);
        mTrack->start();
        mWriter = std::thread([this] { write(); });
    }

    ~Beeper() override {
        mIsDone = true;
        mTrack->stop();
        mWriter.join();
        orvhost::setPlaybackTap(nullptr);
    }

    AudioTrack& track() { return *mTrack; }

    std::vector<int64_t> dueBeeps() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mDueNs;
    }
    int64_t latestWriteNs() const { return mLatestWriteNs; }
    int64_t latestPlayTimeNs() const { return mLatestPlayTimeNs; }
    // Of the first block after the last flush; 0 while there is none.
    int64_t latencyNs() const { return mLatencyNs; }
    size_t missedFrames() const { return mMissedFrames; }

    void onBlock(const orvhost::PlaybackBlock& block) override {
        mMissedFrames += block.missedFrames;
        mLatestWriteNs = nowNs();
        mLatestPlayTimeNs = block.playTimeNs;
        if (mLatencyNs == 0) {
            mLatencyNs = block.playTimeNs - mLatestWriteNs;
        }
        const auto* pPcm = static_cast<const int16_t*>(block.pPcm);
        const std::lock_guard<std::mutex> guard(mLock);
        for (size_t i = block.missedFrames; i < block.frameCount; i++) {
            const bool isLoud = pPcm[i * block.channelCount] != 0;
            if (isLoud && !mWasLoud) {
                mDueNs.push_back(block.playTimeNs +
                                 static_cast<int64_t>(i) * 1'000'000'000 / block.sampleRate);
            }
            mWasLoud = isLoud;
        }
    }

    void onFlushed(int /*sessionId*/, int64_t timeNs) override {
        mLatencyNs = 0;
        const std::lock_guard<std::mutex> guard(mLock);
        std::erase_if(mDueNs, [timeNs](int64_t dueNs) { return dueNs > timeNs; });
        mWasLoud = false;
    }

private:
    void write() {
        const size_t frames = mRate * 3 / 10;
        std::vector<int16_t> pcm(frames * mChannels);
        for (size_t i = 0; i < mRate / 100 * mChannels; i++) {
            pcm[frames * mChannels / 2 + i] = (i / mChannels / 12) % 2 == 0 ? 15000 : -15000;
        }
        while (!mIsDone) {
            mTrack->write(pcm.data(), pcm.size() * sizeof(int16_t));
        }
    }

    const uint32_t mRate;
    const size_t mChannels;
    const sp<AudioTrack> mTrack;
    std::atomic<bool> mIsDone{false};
    std::atomic<int64_t> mLatestWriteNs{0};
    std::atomic<int64_t> mLatestPlayTimeNs{0};
    std::atomic<int64_t> mLatencyNs{0};
    std::atomic<size_t> mMissedFrames{0};
    std::mutex mLock;
    std::vector<int64_t> mDueNs;
    bool mWasLoud = false;
    std::thread mWriter;
};

class PulseOutputTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (SoundServer::isInstalled()) {
            spServer = new SoundServer;
            orvhost::setAudioOutput(orvhost::AudioOutput::PULSE);
        }
    }
    static void TearDownTestSuite() {
        delete spServer;
        spServer = nullptr;
    }

    void SetUp() override {
        if (spServer == nullptr) {
            GTEST_SKIP() << "pulseaudio is not installed";
        }
        ASSERT_TRUE(spServer->start());
    }
    void TearDown() override {
        AudioSystem::setForceUse(AUDIO_POLICY_FORCE_FOR_MEDIA, AUDIO_POLICY_FORCE_NONE);
        if (spServer != nullptr) {
            spServer->kill();
        }
    }

    // From 100 ms on (what was flushed may be on its way out until then) three beeps are heard, and
    // the middle one of their distances to what was due is well inside what the eye tolerates. One
    // of them may suffer from a busy machine.
    static void expectBeepsInTime(Beeper& beeper, BeepListener& listener, const char* pWhen) {
        const int64_t sinceNs = nowNs() + 100 * MS;
        const std::vector<int64_t> heard = listener.awaitBeeps(3, sinceNs);
        ASSERT_EQ(heard.size(), 3U) << pWhen;
        const std::vector<int64_t> due = beeper.dueBeeps();
        std::vector<double> errorsMs;
        for (const int64_t heardNs : heard) {
            int64_t errorNs = INT64_MAX;
            for (const int64_t dueNs : due) {
                errorNs = std::min(errorNs, std::abs(heardNs - dueNs));
            }
            errorsMs.push_back(static_cast<double>(errorNs) / MS);
        }
        std::sort(errorsMs.begin(), errorsMs.end());
        EXPECT_LT(errorsMs[1], MAX_ERROR_MS) << pWhen;
        std::cout << pWhen << ": heard " << errorsMs[1] << " ms off the time it was due\n";
    }

    static SoundServer* spServer;
};

SoundServer* PulseOutputTest::spServer = nullptr;

TEST_F(PulseOutputTest, SoundIsHeardWhenItIsDue) {
    BeepListener listener("room.monitor");
    ASSERT_TRUE(listener.awaitListening());
    struct {
        uint32_t rate;
        audio_channel_mask_t mask;
    } const forms[] = {{48000, AUDIO_CHANNEL_OUT_STEREO},
                       {24000, AUDIO_CHANNEL_OUT_MONO},
                       {48000, AUDIO_CHANNEL_OUT_5POINT1}};
    for (const auto& form : forms) {
        Beeper beeper(form.rate, form.mask);
        expectBeepsInTime(beeper, listener, "after start");
        beeper.track().flush();
        expectBeepsInTime(beeper, listener, "after flush");
        EXPECT_EQ(beeper.missedFrames(), 0U);
    }
}

// A server that dies, or hangs, costs the writer nothing: every write goes on, in time.
TEST_F(PulseOutputTest, WriterDoesNotNoticeTheLossOfTheServer) {
    BeepListener listener("room.monitor");
    ASSERT_TRUE(listener.awaitListening());
    Beeper beeper(48000, AUDIO_CHANNEL_OUT_STEREO);
    expectBeepsInTime(beeper, listener, "before");
    const std::function<void()> losses[] = {[] { spServer->freeze(); }, [] { spServer->kill(); }};
    for (const auto& lose : losses) {
        lose();
        const int64_t lostNs = nowNs();
        const int64_t playTimeNs = beeper.latestPlayTimeNs();
        ASSERT_TRUE(orvtest::await([&] { return beeper.latestWriteNs() > lostNs + 500 * MS; }));
        const int64_t tookNs = beeper.latestWriteNs() - lostNs;
        EXPECT_NEAR(beeper.latestPlayTimeNs() - playTimeNs, tookNs, 150 * MS);
        const int64_t flushNs = nowNs();
        beeper.track().flush();
        beeper.track().setVolume(1, 1);
        EXPECT_LT(nowNs() - flushNs, 100 * MS);
        spServer->thaw();
    }
    EXPECT_TRUE(orvtest::await([] { return !goesTo(AUDIO_DEVICE_OUT_SPEAKER); }));
    EXPECT_LT(beeper.missedFrames(), 4800U);  // a blocked writer would lose far more

    ASSERT_TRUE(spServer->start());
    BeepListener again("room.monitor");
    expectBeepsInTime(beeper, again, "after the server came back");
}

// Only where sound goes counts as connected, and Bluetooth takes another 170 ms from the next
// flush.
TEST_F(PulseOutputTest, ForcedRouteMovesSoundAndTheDeviceState) {
    BeepListener ears("ears.monitor");
    ASSERT_TRUE(ears.awaitListening());
    Beeper beeper(48000, AUDIO_CHANNEL_OUT_STEREO);
    ASSERT_TRUE(orvtest::await([] { return goesTo(AUDIO_DEVICE_OUT_SPEAKER); }));
    EXPECT_FALSE(goesTo(AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES));
    EXPECT_FALSE(goesTo(AUDIO_DEVICE_NONE));

    const auto latencyAfterFlushNs = [&beeper] {
        beeper.track().flush();
        EXPECT_TRUE(orvtest::await([&] { return beeper.latencyNs() != 0; }));
        return beeper.latencyNs();
    };
    EXPECT_NEAR(latencyAfterFlushNs(), 180 * MS, 5 * MS);

    AudioSystem::setForceUse(AUDIO_POLICY_FORCE_FOR_MEDIA, AUDIO_POLICY_FORCE_BT_A2DP);
    ASSERT_TRUE(orvtest::await([] { return goesTo(AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES); }));
    EXPECT_FALSE(goesTo(AUDIO_DEVICE_OUT_SPEAKER));
    EXPECT_NEAR(latencyAfterFlushNs(), 350 * MS, 5 * MS);
    expectBeepsInTime(beeper, ears, "on the forced output");

    // The way back by parameter: forced to the loudspeaker, then free.
    for (const char* pPairs : {"audioParam;DMB_FORCE_SPEAKER=on", "DMB_FORCE_SPEAKER=off;x=y;;="}) {
        AudioSystem::setParameters(AUDIO_IO_HANDLE_NONE, String8(pPairs));
        EXPECT_TRUE(orvtest::await([] { return goesTo(AUDIO_DEVICE_OUT_SPEAKER); })) << pPairs;
    }
}

// Loudness of each stream as the server's mixers show it: "80% no" with the muting behind it.
std::vector<std::string> mixerRows() {
    std::vector<std::string> rows;
    std::string muted;
    FILE* const pipe = popen("LC_ALL=C pactl list sink-inputs", "r");
    char line[512];
    while (pipe != nullptr && fgets(line, sizeof line, pipe) != nullptr) {
        const std::string text(line);
        if (const size_t at = text.find("Mute: "); at != std::string::npos) {
            muted = text.substr(at + 6, text.find_last_not_of('\n') + 1 - at - 6);
        } else if (const size_t end = text.find('%');
                   end != std::string::npos && text.find("Volume: ") != std::string::npos) {
            const size_t begin = text.find_last_of(" ", end) + 1;
            rows.push_back(text.substr(begin, end + 1 - begin) + " " + muted);
        }
    }
    if (pipe != nullptr) {
        pclose(pipe);
    }
    return rows;
}

TEST_F(PulseOutputTest, MixersShowTheVolumeOfWhatPlaysAndOfWhatComes) {
    using Rows = std::vector<std::string>;
    const auto becomes = [](const Rows& rows) {
        return orvtest::await([&] { return mixerRows() == rows; });
    };
    orvhost::setMasterVolume({70, false});  // before there is a server to tell
    const Beeper beeper(48000, AUDIO_CHANNEL_OUT_STEREO);
    EXPECT_TRUE(becomes({"70% no"}));
    orvhost::setMasterVolume({400, true});
    EXPECT_TRUE(becomes({"150% yes"}));
    orvhost::setMasterVolume({-5, false});
    EXPECT_TRUE(becomes({"0% no"}));
    {
        const sp<AudioTrack> other =
            new AudioTrack(AUDIO_STREAM_MUSIC, 24000, AUDIO_FORMAT_DEFAULT, AUDIO_CHANNEL_OUT_MONO);
        other->start();
        EXPECT_TRUE(becomes({"0% no", "0% no"}));
        orvhost::setMasterVolume({100, false});
        EXPECT_TRUE(becomes({"100% no", "100% no"}));
    }
    // A server that comes back has it too.
    orvhost::setMasterVolume({40, false});
    spServer->kill();
    ASSERT_TRUE(spServer->start());
    EXPECT_TRUE(becomes({"40% no"}));
    orvhost::setMasterVolume({});
}

TEST_F(PulseOutputTest, ManyTracksComeAndGo) {
    const std::vector<char> pcm(4096);
    for (int i = 0; i < 100; i++) {
        const sp<AudioTrack> track =
            new AudioTrack(AUDIO_STREAM_MUSIC, 48000, AUDIO_FORMAT_DEFAULT, 0x3);
        ASSERT_EQ(track->start(), NO_ERROR);
        ASSERT_EQ(track->write(pcm.data(), pcm.size()), 4096);
        if (i % 3 == 0) {
            track->stop();
        }
        if (i % 10 == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(i));  // into each phase
        }
    }
}

}  // namespace
}  // namespace android
