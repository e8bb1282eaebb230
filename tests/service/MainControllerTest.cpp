#include "service/MainController.h"

#include <gtest/gtest.h>
#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ControllerFixture.h"

namespace {

std::atomic<int> gRegionsUntilFailure{-1};

}  // namespace

// The shared memory of ring buffers, which can be made to run out.
extern "C" int __real_ashmem_create_region(const char* name, size_t size);
extern "C" int __wrap_ashmem_create_region(const char* name, size_t size) {
    if (gRegionsUntilFailure >= 0 && gRegionsUntilFailure-- == 0) {
        errno = ENOMEM;
        return -1;
    }
    return __real_ashmem_create_region(name, size);
}

namespace {

using namespace OrvPlayer;
using android::sp;
using orvtest::FakeDemux;
using Started = std::vector<FakeDemux::Started>;
using std::chrono::steady_clock;

class MainControllerTest : public orvtest::ControllerTest {
protected:
    void TearDown() override {
        ControllerTest::TearDown();
        fclose(mNowhere);
    }

    std::string ringBuffers() {
        const std::string all = report(0);
        return all.substr(0, all.find("+ Modules:"));
    }

    FILE* const mNowhere = fopen("/dev/null", "w");
    const Config LIVE = live();
};

TEST_F(MainControllerTest, ConfigurationFailuresNameTheirStep) {
    EXPECT_EQ(mController->configure(LIVE), 0);
    mTrace.take();
    EXPECT_EQ(mController->configure(LIVE), 1);
    EXPECT_TRUE(isTraced("configure: Error configuring PCRTS RingBuffer."));

    const char* const regions[] = {"PCRTS",    "VideoTS",  "VideoPES", "VideoRaw", "AudioTS",
                                   "AudioPES", "AudioRaw", "CCTS",     "CCPES",    "CCRaw"};
    for (int i = 0; i < static_cast<int>(std::size(regions)); ++i) {
        SCOPED_TRACE(regions[i]);
        newController();
        gRegionsUntilFailure = i;
        mTrace.take();
        EXPECT_EQ(mController->configure(LIVE), 1);
        EXPECT_TRUE(
            isTraced(std::string("configure: Error configuring ") + regions[i] + " RingBuffer."));
    }
    gRegionsUntilFailure = -1;

    newController();
    mAudio.failTracks(-19);
    EXPECT_EQ(mController->configure(LIVE), 1);
    EXPECT_TRUE(isTraced("configure: Error configuring Audio Renderer."));
}

TEST_F(MainControllerTest, FiltersThePIDsThatNameAStream) {
    const FakeDemux::Started pcr{256, DEMUX_FILTER_PCR}, video{273, DEMUX_FILTER_VIDEO},
        audio{274, DEMUX_FILTER_PES}, captions{305, DEMUX_FILTER_PES};
    struct Case {
        Config config;
        Started filters;
    };
    const Case cases[] = {
        {LIVE, {pcr, video, audio}},
        {{{"videoPid", "273"}, {"audioPid", "274"}}, {video, audio}},
        {{{"pcrPid", "0"}, {"videoPid", "273"}}, {video}},
        {{{"pcrPid", "8191"}, {"audioPid", "274"}}, {audio}},
        {{{"pcrPid", "73727"}, {"videoPid", "65809"}}, {video}},  // modulo 65536
        {{{"subtitlePid", "305"}, {"videoPid", "273"}}, {video, captions}},
        {{{"videoPid", "273"}, {"subtitlePid", "8191"}}, {video}},
    };
    for (const Case& wanted : cases) {
        SCOPED_TRACE(testing::PrintToString(wanted.config));
        newController();
        mDemux.reset();
        EXPECT_EQ(mController->configure(wanted.config), 0);
        EXPECT_EQ(mController->start(), 0);
        EXPECT_EQ(mDemux.started(), wanted.filters);
        EXPECT_EQ(mController->stop(), 0);
    }

    newController();
    EXPECT_EQ(mController->configure({}), 0);
    mTrace.take();
    EXPECT_EQ(mController->start(), 0x11002);
    EXPECT_TRUE(isTraced("start: Error starting module TS Receiver"));
}

TEST_F(MainControllerTest, ChangesTheAudioPIDWhilePlaying) {
    EXPECT_EQ(mController->setAudioPID(275), 1);
    ASSERT_EQ(mController->configure(LIVE), 0);
    ASSERT_EQ(mController->start(), 0);
    EXPECT_EQ(mController->setAudioPID(275), 0);
    EXPECT_EQ(mDemux.started().back(), (FakeDemux::Started{275, DEMUX_FILTER_PES}));
    EXPECT_EQ(mController->setAudioPID(276), 0);  // from the one set before
    mDemux.refuse(277);
    EXPECT_EQ(mController->setAudioPID(277), 1);
}

// Nothing is heard until the first of both has been rendered.
TEST_F(MainControllerTest, OpensTheOutputsTogether) {
    ASSERT_EQ(mController->configure(LIVE), 0);
    ASSERT_EQ(mController->start(), 0);
    mController->onFrameRendered(1920, 1080, 90000);
    EXPECT_EQ(mAudio.volume(), 0.0f);
    mController->onAudioRendered();
    EXPECT_EQ(mAudio.volume(), 1.0f);
    EXPECT_EQ(mTimers.armedFor(PLAYBACK_TIMER), std::nullopt);

    EXPECT_EQ(mController->setAudioEnable(0), 0);
    EXPECT_EQ(mAudio.volume(), 0.0f);
    EXPECT_EQ(mController->stop(), 0);

    // The next run begins shut again, and remembers that sound is off.
    ASSERT_EQ(mController->start(), 0);
    renderBoth();
    EXPECT_EQ(mAudio.volume(), 0.0f);
    EXPECT_EQ(mController->setAudioEnable(1), 0);
    EXPECT_EQ(mAudio.volume(), 1.0f);
}

TEST_F(MainControllerTest, TheTimerOpensTheOutputsOnlyWhilePlaying) {
    ASSERT_EQ(mController->configure(LIVE), 0);
    ASSERT_EQ(mController->start(), 0);
    mTimers.fire(PLAYBACK_TIMER);
    EXPECT_EQ(mAudio.volume(), 1.0f);
    EXPECT_TRUE(
        isTraced("playbackTimerCallback: Playback timer timeout. Enabling audio and video."));
    ASSERT_EQ(mController->stop(), 0);

    EXPECT_EQ(mTimers.armedFor(PLAYBACK_TIMER), std::nullopt);
    mTimers.fire(PLAYBACK_TIMER);  // one that was on its way
    ASSERT_EQ(mController->start(), 0);
    EXPECT_EQ(mAudio.volume(), 0.0f);
    ASSERT_EQ(mController->stop(), 0);
    mAudio.setVolume(0.25f);
    mController = nullptr;
    mTimers.fire(PLAYBACK_TIMER);  // and one that comes much too late
    EXPECT_EQ(mAudio.volume(), 0.25f);
}

TEST_F(MainControllerTest, PlaysWithoutATimer) {
    ASSERT_EQ(mController->configure(LIVE), 0);
    mTimers.failSetting(EINVAL);
    EXPECT_EQ(mController->start(), 0);
    EXPECT_TRUE(isTraced("start: Error enabling playack timer (22)"));
    renderBoth();
    EXPECT_TRUE(isTraced("checkEnableOutputs: Error disabling playack timer (22)"));
    EXPECT_EQ(mAudio.volume(), 1.0f);

    mTimers.failCreation(EAGAIN);
    sp<MainController> timeless = new MainController;
    EXPECT_TRUE(isTraced("MainController: Error creating timer (11)"));
    EXPECT_EQ(timeless->configure(LIVE), 0);
    mDemux.reset();
    EXPECT_EQ(timeless->start(), 0);
    EXPECT_EQ(timeless->stop(), 0);
}

// A second stop ends at the first module that is not started and changes nothing.
TEST_F(MainControllerTest, StopsTwiceAndStartsAgain) {
    ASSERT_EQ(mController->configure(LIVE), 0);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(mController->start(), 0);
        EXPECT_EQ(mController->stop(), 0);
        mTrace.take();
        EXPECT_EQ(mController->stop(), 1);
        EXPECT_TRUE(isTraced("stop: Error stopping module VideoDecoder"));
    }
}

// A recorded source has shorter times, and the recorder service is told of the sound of its own.
TEST_F(MainControllerTest, KnowsTheKindsOfSources) {
    struct {
        const char* type;
        int timeoutS;
        const char* firstTime;  // 90,000 less the delay
        std::vector<unsigned long> reported;
    } const cases[] = {
        {"0", 17, "8589844592", {}}, {"1", 10, "45000", {}}, {"2", 10, "45000", {1000}}};
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.type);
        newController();
        ASSERT_EQ(mController->configure(recorded(wanted.type)), 0);
        const std::string empty = ringBuffers();
        ASSERT_EQ(mController->start(), 0);
        EXPECT_EQ(mTimers.armedFor(PLAYBACK_TIMER), wanted.timeoutS);
        mTrace.take();
        mDemux.feed(274, broadcast(274, 0xC0, 2));
        mDemux.feed(273, broadcast(273, 0xE0, 2));
        EXPECT_TRUE(orvtest::await([&] { return mController->getPCRValue() != 0; }));
        EXPECT_NE(ringBuffers(), empty);
        ASSERT_EQ(mController->stop(), 0);
        EXPECT_EQ(ringBuffers(), empty);  // nothing is left for the next run
        for (const std::string& line : mTrace.take()) {
            if (line.starts_with("setBasePCR: Setting PCR: ")) {
                EXPECT_TRUE(line.starts_with(std::string("setBasePCR: Setting PCR: ") +
                                             wanted.firstTime + " "))
                    << line;
            }
        }
        EXPECT_EQ(mService.takeAudioTimes(), wanted.reported);
    }
}

// In the order of their construction.
constexpr char MODULES[] =
    "TS Receiver TS Parser TS Parser VideoDecoder VideoRenderer TS Parser AudioDecoder "
    "AudioRenderer TS Parser ClosedCaptionDecoder ClosedCaptionRenderer";

// The names in a report, in order, with blanks between.
std::string namesIn(const std::string& report, const std::string& before) {
    std::string names;
    for (size_t at = 0; (at = report.find(before, at)) != std::string::npos;) {
        at += before.size();
        names += (names.empty() ? "" : " ") + report.substr(at, report.find('\n', at) - at);
    }
    return names;
}

// Deliberate: the spelling of the first line.
TEST_F(MainControllerTest, ReportsItsParts) {
    ASSERT_EQ(mController->configure(LIVE), 0);
    EXPECT_EQ(mController->dump(nullptr, {}, 1), 0);
    const std::string text = report(1);
    EXPECT_TRUE(text.starts_with("\tMainControler:\n\t+ Ring Buffers:\n")) << text;
    EXPECT_EQ(namesIn(text, "\t\t\t - RingBuffer "),
              "PCRTS VideoTS VideoPES VideoRaw AudioTS AudioPES AudioRaw CCTS CCPES CCRaw");
    EXPECT_EQ(namesIn(text, "\t\t\t - Module Name: "), MODULES);
    const size_t modules = text.find("\n\t+ Modules:\n\t\t\t - Module Name: TS Receiver\n");
    const size_t clock =
        text.find("\n\t+ Synchronization:\n\t\t\t - Current PCR generated by: None\n");
    EXPECT_LT(text.find("CCRaw"), modules);
    EXPECT_LT(text.find("ClosedCaptionRenderer"), clock);
    EXPECT_LT(clock, text.size());
}

TEST_F(MainControllerTest, ChangesOrAddsTheCaptionPID) {
    const auto last = [this] { return mDemux.started().back().pid; };
    EXPECT_EQ(mController->setCaptionSync(100), 0);
    for (const bool configured : {false, true}) {
        SCOPED_TRACE(configured);
        newController();
        mDemux.reset();
        Config config = LIVE;
        if (configured) {
            config["subtitlePid"] = "304";
        }
        ASSERT_EQ(mController->configure(config), 0);
        ASSERT_EQ(mController->start(), 0);
        mDemux.refuse(300);
        if (!configured) {
            EXPECT_EQ(mController->setCCPID(300), 1);  // and no output is left behind
        }
        mTrace.take();
        EXPECT_EQ(mController->setCCPID(305), 0);
        EXPECT_EQ(isTraced("setCCPID setCCPID: 304 -> 305"), configured);
        EXPECT_EQ(last(), 305);
        EXPECT_EQ(mController->setCCPID(306), 0);
        EXPECT_TRUE(isTraced("setCCPID setCCPID: 305 -> 306"));
        EXPECT_EQ(last(), 306);
        EXPECT_EQ(mDemux.running(), 4u);
        ASSERT_EQ(mController->stop(), 0);
        ASSERT_EQ(mController->start(), 0);  // as many outputs as PIDs
        EXPECT_EQ(last(), 306);
        EXPECT_EQ(mController->setCCPID(300), 1);
    }
}

// In whatever state it is, with garbage and first pictures coming in all the time: no command
// hangs, breaks something or leaves something behind.
TEST_F(MainControllerTest, TakesAnyCommandAtAnyTime) {
    std::mt19937 random(20);
    Config config;
    const std::unique_ptr<Uri> target(Uri::parse("MTV://a/b"));
    const auto number = [&] { return static_cast<int>(random()) >> random() % 32; };
    const std::function<void()> commands[] = {
        [&] { mController->start(); },
        [&] { mController->stop(); },
        [&] { mController->pause(); },
        [&] { mController->resume(); },
        [&] { mController->configure(config); },
        [&] { mController->stopTSReceiver(); },
        [&] { mController->setAudioPID(274 + number() % 2); },
        [&] { mController->setCCPID(300 + number() % 4); },
        [&] { mController->setCaptionSync(number()); },
        [&] { mController->seek(number()); },
        [&] { mController->startRecord(target.get()); },
        [&] { mController->stopRecord(true); },
        [&] { mService.recorderEvent(number()); },
        [&] { mService.playerEvent(number()); },
        [&] { mController->onAudioReady(number()); },
        [&] { mController->setAudioEnable(number() % 2); },
        [&] { mController->setAVSync(number()); },
        [&] { mController->setCropRect(number(), number(), number(), number(), number() % 2); },
        [&] { mController->getFrame(number(), number()); },
        [&] { mController->dump(mNowhere, {}, 0); },
        [&] { mTimers.fire(PLAYBACK_TIMER); },
        [&] {
            orvtest::Bytes garbage(188 * 50);
            for (size_t i = 0; i < garbage.size(); ++i) {
                garbage[i] = static_cast<uint8_t>(i % 188 == 0 ? 0x47 : random());
            }
            mDemux.feed(static_cast<unsigned short>(273 + random() % 2), garbage);
        },
    };
    for (const Config& source : {LIVE, recorded("2")}) {
        config = source;
        newController();
        const size_t before = threads();
        std::atomic<bool> done{false};
        std::thread rendering([&] {
            while (!done) {
                renderBoth();
            }
        });
        for (int i = 0; i < 200; ++i) {
            commands[random() % std::size(commands)]();
        }
        done = true;
        rendering.join();
        mController = nullptr;
        EXPECT_TRUE(orvtest::await([&] { return threads() <= before; })) << threads();
    }
}

TEST_F(MainControllerTest, StopsQuicklyInTheMiddleOfAStreamAndLeavesNoThread) {
    const orvtest::Bytes video = broadcast(273, 0xE0, 200);
    const orvtest::Bytes audio = broadcast(274, 0xC0, 50);
    size_t before = 0;
    for (int round = 0; round < 5; ++round) {
        mController = nullptr;
        mDemux.reset();
        if (round == 1) {
            before = threads();  // what libraries keep is there after the first round
        }
        newController();
        ASSERT_EQ(mController->configure(LIVE), 0);
        for (int run = 0; run < 2; ++run) {
            ASSERT_EQ(mController->start(), 0);
            mDemux.feed(273, video);
            mDemux.feed(274, audio);
            EXPECT_EQ(mController->pause(), 0);
            EXPECT_EQ(mController->resume(), 0);
            orvtest::await([&] { return mDemux.waiting(273) <= video.size() / 2; });
            const auto stopping = steady_clock::now();
            if (run == 0) {
                EXPECT_EQ(mController->stop(), 0);
            } else {
                mController = nullptr;  // destroyed while it plays
            }
            const std::chrono::duration<double, std::milli> took = steady_clock::now() - stopping;
            RecordProperty("StopMs", std::to_string(took.count()));
            EXPECT_LT(took.count(), 2000);
        }
    }
    // A thread that has been joined may be listed a moment longer, now or then.
    EXPECT_TRUE(orvtest::await([&] { return threads() <= before; })) << threads() << " threads";
}

}  // namespace
