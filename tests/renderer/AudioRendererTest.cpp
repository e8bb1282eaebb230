#include "renderer/AudioRenderer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Await.h"
#include "support/FakeAudio.h"
#include "support/FakeTimers.h"
#include "support/MonotonicClock.h"
#include "support/Report.h"
#include "support/TraceCapture.h"
#include "trace/OneSegPGL.h"

namespace {

using namespace OrvPlayer;
using orvtest::await;
using orvtest::FakeAudio;
using orvtest::FakeTimers;
using Write = FakeAudio::Write;
using Track = FakeAudio::Track;

constexpr int64_t MS = 90;
constexpr Uint33 START = 9'000'000;
constexpr uint64_t NOW_MS = 1'000'000'000'000;  // see VideoRendererTest.cpp
constexpr uint8_t SOUND = 0x55;
constexpr uint32_t BLUETOOTH = 0x80, HEADSET = 0x4;

class Listener : public AudioRenderer::AudioRenderedListener, public ErrorListener {
public:
    void onAudioRendered() override {
        ++rendered;
        for (int i = 0; toSwitchOn != nullptr && i < 1000; ++i) {
            toSwitchOn->setOutputEnable(true);
            std::this_thread::yield();
        }
    }
    void onAudioReady(long msec) override {
        std::lock_guard<std::mutex> guard(mLock);
        mReady.push_back(msec);
    }
    void onAudioSessionId(int id) override { session = id; }
    void onError(unsigned int code, const Module*) const override { error = code; }

    // What onAudioReady told since the last call.
    std::vector<long> takeReady() {
        std::lock_guard<std::mutex> guard(mLock);
        return std::exchange(mReady, {});
    }

    std::atomic<int> rendered{0};
    std::atomic<int> session{0};
    mutable std::atomic<unsigned int> error{0};
    AudioRenderer* toSwitchOn = nullptr;  // from onAudioRendered, again and again

private:
    std::mutex mLock;
    std::vector<long> mReady;
};

struct Format {
    uint32_t rate = 48000;
    uint8_t channels = 2;
    uint8_t bits = 16;
};

class AudioRendererTest : public testing::Test {
protected:
    void SetUp() override {
        OneSegPGL_InitializeDebug();
        mAudio.reset();
        mTimers.reset();
        mRenderer = new AudioRenderer(mSync);
        ASSERT_EQ(mRing->configure("raw", 19), 0);
        mRenderer->setInput(mRing);
        mRenderer->setAudioRenderedListener(&mListener);
        mRenderer->addErrorListener(mListener);
        mSync->addListener(mRenderer.get());
    }
    // As a rule a write waits for room here, and does not hold up the stop.
    void TearDown() override {
        EXPECT_EQ(mRenderer->stop(), 0);
        mRenderer = nullptr;
        EXPECT_EQ(mAudio.living(), 0u);
    }

    void start() {
        mSync->setBasePCR(START, Synchronization::REAL_PCR);
        ASSERT_EQ(mRenderer->configure(), 0);
        ASSERT_EQ(mRenderer->start(), 0);
    }

    // A record of `size` bytes of sound that is `earlyTicks` away from START.
    void push(int64_t earlyTicks, uint32_t size = 8192, Format format = {},
              uint32_t type = Data::AUDIO_FRAGMENT) {
        const uint32_t recordSize = AudioFragmentData::FIXED_SIZE + size;
        unsigned char* block = mRing->write(recordSize, RingBuffer::NON_BLOCKING);
        ASSERT_NE(block, nullptr);
        auto* record = new (block) AudioFragmentData;
        record->mType = type;
        record->mSize = recordSize;
        record->mPTS = (START + static_cast<uint64_t>(earlyTicks)) & UINT33_MASK;
        record->mSamplingRate = format.rate;
        record->mNumberChannels = format.channels;
        record->mBitsPerSample = format.bits;
        memset(block + AudioFragmentData::FIXED_SIZE, SOUND, size);
        mRing->writeAdvance(recordSize);
    }

    // The next `count` writes: 'Z' silence, 'P' sound, each with its size.
    std::string pass(int count) {
        std::string names;
        for (int i = 0; i < count; ++i) {
            Write write{};
            if (!mAudio.pass(&write)) {
                return names + "nothing came";
            }
            names += (i == 0 ? "" : " ") + std::string(write.first == SOUND ? "P" : "Z") +
                     std::to_string(write.size);
        }
        return names;
    }

    // Runs on without records until something else is decided: everything pushed was looked at.
    bool awaitConsumed() {
        return await([&] { return mRing->getDataSize() == 0; });
    }

    bool isTraced(const std::string& wanted) {
        const std::vector<std::string> lines = mTrace.take();
        return std::any_of(lines.begin(), lines.end(),
                           [&](const std::string& line) { return line == wanted; });
    }

    // A renderer of its own for a further case of the same test.
    void again() {
        TearDown();
        mAudio.reset();
        mTimers.reset();
        mListener.takeReady();
        mSync = new Synchronization;
        mRing = new RingBuffer;
        SetUp();
    }

    FakeAudio& mAudio = FakeAudio::instance();
    FakeTimers& mTimers = FakeTimers::instance();
    orvtest::MonotonicClock mClock{NOW_MS};
    orvtest::TraceCapture mTrace;
    Listener mListener;
    android::sp<Synchronization> mSync = new Synchronization;
    android::sp<RingBuffer> mRing = new RingBuffer;
    android::sp<AudioRenderer> mRenderer;
};

// Silence comes in pieces of at most 8192 bytes, until the record is less than 201 ms early; late
// records lose their beginning. The first record of each case finds the clock at START.
TEST_F(AudioRendererTest, MeetsThePresentationTimeWithSilenceAndSkipping) {
    struct Case {
        int64_t earlyTicks;
        uint32_t size;
        Format format;
        const char* writes;
        std::vector<long> ready;
    };
    const Case cases[] = {
        {0, 8192, {}, "P8192", {0}},
        {150 * MS, 8192, {}, "P8192", {150}},
        {201 * MS - 1, 8192, {}, "P8192", {200}},
        {201 * MS, 8192, {}, "Z8192 P8192", {201, 158}},
        {250 * MS, 8192, {}, "Z8192 Z8192 P8192", {250, 207, 164}},
        {201 * MS, 800, {8000, 1, 16}, "Z3216 P800", {201, 0}},
        {-201 * MS + 1, 8192, {}, "P8192", {-200}},
        {-201 * MS, 40000, {}, "P1408", {-201}},
        {-250 * MS, 50000, {}, "P2000", {-250}},
        {-203 * MS, 44100, {44100, 2, 16}, "P8291", {-203}},  // not on a sample frame
        {900'089, 8192, {}, "P8192", {10000}},                // neither early any more nor huge yet
    };
    for (const Case& wanted : cases) {
        SCOPED_TRACE(testing::Message() << wanted.earlyTicks << " ticks, " << wanted.size);
        const auto writes = std::count(wanted.writes, wanted.writes + strlen(wanted.writes), ' ');
        push(wanted.earlyTicks, wanted.size, wanted.format);
        start();
        EXPECT_EQ(pass(static_cast<int>(writes) + 1), wanted.writes);
        EXPECT_EQ(mListener.takeReady(), wanted.ready);
        EXPECT_TRUE(awaitConsumed());
        again();
    }
}

TEST_F(AudioRendererTest, DropsWhatIsAllTooLateAndStartsTheClockAfreshWhenItIsHuge) {
    push(-250 * MS, 48000);
    start();
    EXPECT_EQ(pass(1), "Z8192");  // nothing else to play
    EXPECT_TRUE(isTraced("Dropping fragment"));
    EXPECT_EQ(mListener.rendered, 0);

    for (const int64_t distance : {11'000 * MS, -11'000 * MS}) {
        again();
        push(distance);
        start();
        EXPECT_TRUE(awaitConsumed());
        EXPECT_TRUE(await([&] {
            return isTraced(
                "render: PCR resynchronization forced due to huge difference in wait interaval: " +
                std::to_string(distance / MS));
        }));
        mClock.advance(100);
        mSync->setBasePCR(START + 5, Synchronization::REAL_PCR);  // near, and taken all the same
        EXPECT_EQ(mSync->getPCRValue(), START + 5);
    }
}

// The distance of the second record shows how far the first moved the clock.
TEST_F(AudioRendererTest, AdvancesItsClockByTheSoundWritten) {
    struct Case {
        uint32_t size;
        Format format;
        int64_t ticks;
    };
    const Case cases[] = {
        {8192, {}, 3840},
        {8192, {44100, 2, 16}, 4179},  // 4179.59
        {4096, {32000, 1, 16}, 5760},
        {6144, {48000, 6, 16}, 960},
    };
    for (const Case& wanted : cases) {
        SCOPED_TRACE(wanted.ticks);
        push(0, wanted.size, wanted.format);
        push(wanted.ticks + 7 * MS, 80, wanted.format);
        start();
        EXPECT_EQ(pass(2), "P" + std::to_string(wanted.size) + " P80");
        EXPECT_EQ(mListener.takeReady(), (std::vector<long>{0, 7}));
        again();
    }
}

TEST_F(AudioRendererTest, PlaysSilenceWhenThereIsNothingAndEndsWhenThatFails) {
    start();
    push(0);
    EXPECT_EQ(pass(4), "P8192 Z8192 Z8192 Z8192");
    EXPECT_EQ(mListener.rendered, 1);
    Write write{};
    ASSERT_TRUE(mAudio.pass(&write, 100));
    EXPECT_TRUE(await([&] {
        return isTraced(
            "render Could not write into system audio buffer: Unknown error -100 (100)");
    }));
    // The render thread has ended: records stay. A stop and a start begin anew.
    push(0);
    EXPECT_EQ(mRenderer->start(), 0);
    EXPECT_GT(mRing->getDataSize(), 0u);
    EXPECT_EQ(mRenderer->stop(), 0);
    EXPECT_EQ(mListener.session, -1);
    EXPECT_EQ(mRenderer->start(), 0);
    mRenderer->resyncPCR();
    EXPECT_TRUE(await([&] { return mAudio.pass(&write) && write.first == SOUND; }));
}

// A record that was not taken whole counts as played.
TEST_F(AudioRendererTest, AShortWriteCostsTheRecordOnly) {
    push(0);
    push(3840, 80);
    push(3840 + 300 * MS, 96);  // its silence will be short
    push(3840 + 300 * MS, 112);
    start();
    Write write{};
    ASSERT_TRUE(mAudio.pass(&write, -32));
    EXPECT_EQ(pass(1), "P80");
    EXPECT_TRUE(isTraced("render Could not write into system audio buffer: Broken pipe (-32)"));
    ASSERT_TRUE(mAudio.pass(&write, 10));
    EXPECT_EQ(write, (Write{8192, 0}));
    EXPECT_EQ(pass(1), "Z8192");  // the record of 96 bytes is gone
    const std::vector<long> ready = mListener.takeReady();
    ASSERT_GE(ready.size(), 4u);
    EXPECT_EQ(std::vector<long>(ready.begin(), ready.begin() + 4),
              (std::vector<long>{0, 0, 299, 256}));
}

TEST_F(AudioRendererTest, RebuildsTheTrackForAnotherConfiguration) {
    push(0, 80);
    push(0, 96, {32000, 1, 16});
    push(0, 112, {48000, 7, 16});
    push(0, 128, {48000, 8, 16});
    start();
    EXPECT_EQ(pass(4), "P80 P96 P112 P128");
    const std::vector<Track> tracks{
        {48000, 0x1}, {48000, 0x3}, {32000, 0x1}, {48000, 0x13F}, {48000, 0x63F}};
    EXPECT_EQ(mAudio.tracks(), tracks);
    EXPECT_EQ(mListener.session, 5);
    EXPECT_EQ(mListener.takeReady(), (std::vector<long>{0, 0, 0, 0}));  // the clock is read again
    EXPECT_TRUE(
        isTraced("render: Changed audio rendering configuration: FS: 32000 - Ch: 1 - bps: 16"));

    // No track can be had any more: the thread ends and the record stays.
    mAudio.failTracks(-22);
    push(0, 80);
    mAudio.open();
    EXPECT_TRUE(await([&] { return isTraced("render: Error in createAudioPlayer"); }));
    EXPECT_GT(mRing->getDataSize(), 0u);
}

TEST_F(AudioRendererTest, PassesOverForeignAndInvalidRecords) {
    push(0, 80, {}, Data::VIDEO_FRAME);
    push(0, 80, {0, 2, 16});
    push(0, 80, {0x80000000, 2, 16});
    push(0, 80, {48000, 0, 16});
    push(0, 80, {48000, 2, 0});
    push(0, 96);
    start();
    EXPECT_EQ(pass(1), "P96");
    EXPECT_EQ(mListener.error, 0x41003u);
    EXPECT_TRUE(isTraced("render: Invalid config values: 48000 2 0. Discarding the packet"));
    // Samples of no whole byte: nothing to compute with, and no harm, be they on time or early.
    push(0, 80, {48000, 2, 4});
    EXPECT_NE(pass(2).find("P80"), std::string::npos);
    push(300 * MS, 80, {48000, 2, 4});
    EXPECT_TRUE(await([&] { return pass(1) != "P80" && mRing->getDataSize() == 0; }));
}

TEST_F(AudioRendererTest, WaitsForTheClock) {
    ASSERT_EQ(mRenderer->configure(), 0);
    ASSERT_EQ(mRenderer->start(), 0);
    push(20 * MS);
    EXPECT_TRUE(await([&] { return isTraced("render: Synchronization is not ready"); }));
    EXPECT_GT(mRing->getDataSize(), 0u);
    mSync->setBasePCR(START, Synchronization::REAL_PCR);
    EXPECT_EQ(pass(1), "P8192");
    EXPECT_EQ(mListener.takeReady(), (std::vector<long>{20}));
}

// Whatever drops synchronisation empties the track, and the next record reads the clock again.
TEST_F(AudioRendererTest, DropsSynchronization) {
    const std::pair<const char*, std::function<void()>> drops[] = {
        {"setOutputEnable", [&] { mRenderer->setOutputEnable(true); }},
        {"resyncPCR", [&] { mRenderer->resyncPCR(); }},
        {"onPCRChanged", [&] { mRenderer->onPCRChanged(0); }},
        {"clock", [&] { mSync->setBasePCR(START, Synchronization::REAL_PCR); }},
        {"timer", [&] { mTimers.fire(0); }},
    };
    for (const auto& [name, drop] : drops) {
        SCOPED_TRACE(name);
        start();
        push(0);
        EXPECT_EQ(pass(1), "P8192");
        mClock.advance(2000);
        const size_t flushes = mAudio.flushes();
        drop();
        EXPECT_GT(mAudio.flushes(), flushes);
        const bool rebased = mSync->getPCRValue() == START;
        push((rebased ? 0 : 2000 * MS) + 33 * MS, 80);
        // The write that was waiting, then the record, unless that came first.
        std::string writes = pass(1);
        if (writes != "P80") {
            writes = pass(1);
        }
        EXPECT_EQ(writes, "P80");
        EXPECT_EQ(mListener.takeReady(), (std::vector<long>{0, 33}));
        again();
    }
}

TEST_F(AudioRendererTest, SilentUntilTheOutputIsEnabled) {
    start();
    EXPECT_EQ(mAudio.volume(), 0.0f);
    mRenderer->setOutputEnable(true);
    EXPECT_EQ(mAudio.volume(), 1.0f);
    push(0);  // another track, the same volume
    EXPECT_EQ(pass(1), "P8192");
    EXPECT_EQ(mAudio.tracks().size(), 2u);
    EXPECT_EQ(mAudio.volume(), 1.0f);
    mRenderer->setOutputEnable(false);
    EXPECT_EQ(mAudio.volume(), 0.0f);
    EXPECT_NE(
        orvtest::reportOf(*mRenderer, 1).find("\t\tAudio Volume: 0.0\n\t\tResync PCR Count: 4\n"),
        std::string::npos);
}

// Sound that goes to a Bluetooth output is heard 170 ms later; a change of the outputs, the one
// found first included, ends in a new synchronisation three seconds on.
TEST_F(AudioRendererTest, WatchesTheOutputs) {
    mAudio.setDevice(BLUETOOTH, true);
    mAudio.setDevice(HEADSET, true);
    start();
    ASSERT_TRUE(await(
        [&] { return orvtest::reportOf(*mRenderer, 1).find("mOutputStatus: 132\n") < 9999; }));
    push(0);
    EXPECT_EQ(pass(1), "P8192");
    EXPECT_EQ(mListener.takeReady(), (std::vector<long>{-170}));
    EXPECT_EQ(mTimers.armedFor(0), 3);
    EXPECT_FALSE(mRenderer->checkOutputDevice());
    mRenderer->stop();
    EXPECT_EQ(mTimers.armedFor(0), std::nullopt);
}

TEST_F(AudioRendererTest, NeedsAnInputAndATrackToBeConfigured) {
    android::sp<AudioRenderer> bare = new AudioRenderer(mSync);
    EXPECT_EQ(bare->configure(), 0x41004);
    EXPECT_TRUE(isTraced("configure: AudioRenderer must have an input"));
    EXPECT_EQ(bare->start(), 1);
    mAudio.failTracks(-19);
    EXPECT_EQ(mRenderer->configure(), 0x41004);
    EXPECT_TRUE(isTraced("createAudioPlayer: Error initializing AudioTrack: -19"));
    // Without a track records are passed over and nothing spins or hangs.
    mSync->setBasePCR(START, Synchronization::REAL_PCR);
    EXPECT_EQ(mRenderer->start(), 0);
    push(0, 80, {48000, 1, 16});
    EXPECT_TRUE(awaitConsumed());
    mTimers.failCreation(11);
    bare = new AudioRenderer(mSync);
    EXPECT_TRUE(
        isTraced(std::string("AudioRenderer: Error creating timer: 11 (") + strerror(11) + ")"));
}

// The listener may switch the output on while another thread stops the renderer.
TEST_F(AudioRendererTest, StopsWhileItsListenerOpensTheOutput) {
    start();
    mListener.toSwitchOn = mRenderer.get();
    push(0);
    ASSERT_TRUE(await([&] { return mListener.rendered == 1; }));
    EXPECT_EQ(mRenderer->stop(), 0);
    EXPECT_EQ(mListener.session, -1);
    EXPECT_EQ(mRenderer->stop(), 0);
    EXPECT_EQ(mAudio.living(), 0u);
}

// A render thread that was asked to exit is seen off by the next start.
TEST_F(AudioRendererTest, MayBeStartedAgainWithoutAStop) {
    start();
    push(0);
    EXPECT_EQ(pass(1), "P8192");
    mRenderer->requestExit();
    EXPECT_EQ(mRenderer->start(), 0);
    push(0, 80);
    EXPECT_TRUE(await([&] { return pass(1) == "P80"; }));
    EXPECT_EQ(mAudio.living(), 1u);
}

TEST_F(AudioRendererTest, SlowReportHoldsNobodyUp) {
    ASSERT_EQ(mRenderer->configure(), 0);
    EXPECT_TRUE(orvtest::letsOthersThrough(*mRenderer, [&] { mRenderer->onPCRChanged(0); }));
}

// Destroyed in any state it leaves neither thread nor track.
TEST_F(AudioRendererTest, MayBeDestroyedWhileItRuns) {
    start();
    push(0);
    EXPECT_EQ(pass(1), "P8192");
    mRenderer = nullptr;
    EXPECT_EQ(mAudio.living(), 0u);
    EXPECT_NE(mListener.session, -1);  // nobody is told any more
    mSync = new Synchronization;
    mRenderer = new AudioRenderer(mSync);
}

}  // namespace
