#include "servicecontroller/ServiceController.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/EventLog.h"
#include "support/MonotonicClock.h"
#include "support/TraceCapture.h"
#include "trace/OneSegPGL.h"

namespace {

using namespace OrvPlayer;
using android::sp;

class ServiceControllerTest : public testing::Test {
protected:
    ServiceControllerTest() {
        OneSegPGL_InitializeDebug();
        mMonitor->setListener(&mLog);
        mMonitor->onAudioReady(0);  // data just came
    }

    orvtest::EventLog mLog;
    orvtest::TraceCapture mTrace;
    orvtest::MonotonicClock mClock{1'000'000};
    sp<ServiceController> mMonitor = new ServiceController;
};

TEST_F(ServiceControllerTest, TellsWhatBecomesOfTheSignal) {
    enum What { CHECK, PICTURE, SOUND };
    struct {
        int afterMs;
        What what;
        const char* events;
    } const steps[] = {
        {0, PICTURE, "4:1920,1080"},  // the size, with the first picture
        {2'999, CHECK, ""},
        {1, CHECK, "0:0,1"},
        {4'900, CHECK, ""},
        {99, CHECK, ""},
        {1, CHECK, "0:1,2"},
        {2'999, CHECK, ""},
        {1, CHECK, "0:2,2"},  // and again and again
        {3'100, CHECK, "0:2,2"},
        {50, SOUND, "0:2,0"},
        {50, PICTURE, "4:1920,1080"},  // after a loss the size comes again
        {50, PICTURE, ""},
        {3'000, CHECK, "0:0,1"},
        {4'000, PICTURE, "0:1,0"},  // none after a weak signal
        {2'500, SOUND, ""},
        {2'500, CHECK, ""},  // sound alone keeps it good
        {500, CHECK, "0:0,1"},
        {5'000, CHECK, "0:1,2"},
        {200, PICTURE, "0:2,0 4:1920,1080"},
    };
    int number = 0;
    for (const auto& step : steps) {
        SCOPED_TRACE(number++);
        mClock.advance(static_cast<uint64_t>(step.afterMs));
        if (step.what == CHECK) {
            mMonitor->checkSignalStrength();
        } else if (step.what == PICTURE) {
            mMonitor->onFrameRendered(1920, 1080, 0);
        } else {
            mMonitor->onAudioReady(0);
        }
        EXPECT_EQ(mLog.take(), step.events);
    }
}

// The time without playback is no time without a signal.
TEST_F(ServiceControllerTest, CountsFromTheStartOfTheCheck) {
    mClock.advance(60'000);
    mMonitor->startCheckSignal();
    mMonitor->stopCheckSignal();
    mMonitor->checkSignalStrength();
    EXPECT_EQ(mLog.take(), "");
    mClock.advance(3'000);
    mMonitor->checkSignalStrength();
    EXPECT_EQ(mLog.take(), "0:0,1");
}

TEST_F(ServiceControllerTest, DoesNothingWithoutAClockOrAListener) {
    mClock.advance(4'000);
    mMonitor->setListener(nullptr);
    mTrace.take();
    mMonitor->checkSignalStrength();
    EXPECT_EQ(mTrace.take(),
              std::vector<std::string>{"checkSignalStrength: Error getting system time"});
    mMonitor->setListener(&mLog);
    mMonitor->checkSignalStrength();
    EXPECT_EQ(mTrace.take(), std::vector<std::string>{
                                 "checkSignalStrength: Signal timeout: 4000 late; status = 0"});
    EXPECT_EQ(mLog.take(), "0:0,1");

    mClock.fail();
    mMonitor->checkSignalStrength();
    mMonitor->onAudioReady(0);
    EXPECT_EQ(mTrace.take(),
              (std::vector<std::string>{"checkSignalStrength: Error getting system time",
                                        "updateSignalTimer: Error getting system time."}));
    EXPECT_EQ(mLog.take(), "");
}

// The decoder's report comes as long as no picture has told the size.
TEST_F(ServiceControllerTest, TellsTheSizeEarlyWhileItIsPending) {
    mMonitor->onVideoResolution(1440, 1080);
    mMonitor->onVideoResolution(720, 480);
    EXPECT_EQ(mLog.take(), "4:1440,1080 4:720,480");
    mMonitor->onFrameRendered(720, 480, 0);
    EXPECT_EQ(mLog.take(), "4:720,480");
    mMonitor->onVideoResolution(720, 480);
    EXPECT_EQ(mLog.take(), "");
}

TEST_F(ServiceControllerTest, TellsBufferingOnlyWhileItRises) {
    struct {
        std::vector<long> waits;
        const char* events;
    } const cases[] = {
        {{200}, "3:25,0"},
        {{40}, "3:100,0"},
        {{50, 49}, "3:100,0"},
        {{51, 50}, "3:98,0 3:100,0"},
        {{0, -1, -5'000, 5'001}, ""},
        {{166, 250, 166, 165}, "3:30,0"},
        {{5'000, 2'500, 1, 0}, "3:1,0 3:2,0 3:100,0"},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(testing::PrintToString(wanted.waits));
        mMonitor = new ServiceController;
        mMonitor->setListener(&mLog);
        for (const long wait : wanted.waits) {
            mMonitor->onAudioReady(wait);
            mMonitor->bufferingProcess();
        }
        EXPECT_EQ(mLog.take(), wanted.events);
    }
}

TEST_F(ServiceControllerTest, CountsPicturesBySecond) {
    EXPECT_EQ(mMonitor->getFrameRate(), -1);
    struct {
        int frames;
        int rate;
    } const seconds[] = {{30, 30}, {29, 29}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, -1}, {0, -1},
                         {15, 15}, {0, 0},   {1, 1}, {0, 0}, {0, 0}, {0, 0}, {0, 0},  {0, -1}};
    int number = 0;
    for (const auto& second : seconds) {
        SCOPED_TRACE(number++);
        for (int i = 0; i < second.frames; ++i) {
            mMonitor->onFrameRendered(1920, 1080, 0);
        }
        mMonitor->updateFrameRate();
        EXPECT_EQ(mMonitor->getFrameRate(), second.rate);
    }
}

TEST_F(ServiceControllerTest, FindsTheEndInTheFirstSilentPeriod) {
    mMonitor->onFrameRendered(320, 240, 0);
    mLog.take();
    for (int period = 0; period < 5; ++period) {
        mMonitor->onFrameRendered(320, 240, 0);
        mMonitor->onFrameRendered(320, 240, 0);
        EXPECT_TRUE(mMonitor->checkEndOfContent());
    }
    EXPECT_EQ(mLog.take(), "");
    EXPECT_FALSE(mMonitor->checkEndOfContent());
    EXPECT_EQ(mLog.take(), "5:0,0");
}

}  // namespace
