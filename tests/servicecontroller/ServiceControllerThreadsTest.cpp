#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "servicecontroller/ServiceController.h"
#include "support/Await.h"
#include "support/EventLog.h"
#include "support/MonotonicClock.h"
#include "support/ProcessUsage.h"

namespace {

using namespace OrvPlayer;
using android::sp;
using orvtest::await;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

size_t threads() {
    return orvtest::ProcessUsage::now().threads;
}

class ServiceControllerThreadsTest : public testing::Test {
protected:
    ServiceControllerThreadsTest() { mMonitor->setListener(&mLog); }

    void startAll() {
        mMonitor->startBuffering();
        mMonitor->startCheckSignal();
        mMonitor->startCheckFrameRate();
        mMonitor->startCheckEndOfContent();
    }

    const size_t mBefore = threads();
    orvtest::EventLog mLog;
    sp<ServiceController> mMonitor = new ServiceController;
};

// Each check at work on its own thread; the 3 s of a weak signal are driven.
TEST_F(ServiceControllerThreadsTest, ChecksByItself) {
    {
        orvtest::MonotonicClock clock(1'000'000);
        mMonitor->startCheckSignal();
        clock.advance(3'000);
        EXPECT_TRUE(await([&] { return mLog.count() > 0; }));
        mMonitor->stopCheckSignal();
    }
    EXPECT_EQ(mLog.take(), "0:0,1");

    mMonitor->onAudioReady(100);
    mMonitor->startBuffering();  // and what was before does not count
    mMonitor->onAudioReady(200);
    EXPECT_TRUE(await([&] { return mLog.count() > 1; }));
    mMonitor->stopBuffering();
    EXPECT_EQ(mLog.take(), "0:1,0 3:25,0 2:0,0");

    mMonitor->startCheckFrameRate();
    mMonitor->onFrameRendered(320, 240, 0);
    EXPECT_TRUE(await([&] { return mMonitor->getFrameRate() == 1; }));
    mMonitor->stopCheckFrameRate();
    EXPECT_EQ(mLog.take(), "4:320,240");

    mMonitor->onFrameRendered(320, 240, 0);
    mMonitor->startCheckEndOfContent();
    EXPECT_TRUE(await([&] { return mLog.count() > 0; }));
    EXPECT_TRUE(await([&] { return threads() <= mBefore; }));  // it ends with the end
    mMonitor->startCheckEndOfContent();                        // a new look
    EXPECT_TRUE(await([&] { return mLog.count() > 1; }));
    mMonitor->stopCheckEndOfContent();
    EXPECT_EQ(mLog.take(), "5:0,0 5:0,0");
}

TEST_F(ServiceControllerThreadsTest, StopsWhatRunsAndNothingElse) {
    mMonitor->stopBuffering();
    mMonitor->stopAll();
    EXPECT_EQ(mLog.take(), "");
    for (int round = 0; round < 3; ++round) {
        startAll();
        startAll();  // leaves no thread of the first behind
        mLog.take();
        mMonitor->stopAll();
        EXPECT_EQ(mLog.take(), "2:0,0");
        EXPECT_TRUE(await([&] { return threads() <= mBefore; })) << threads();
    }
    startAll();
    mLog.take();
    mMonitor = nullptr;  // destroyed while it runs: nothing is told any more
    EXPECT_TRUE(await([&] { return threads() <= mBefore; })) << threads();
    EXPECT_EQ(mLog.take(), "");
}

// A request that comes just before the thread waits is not lost: it would cost a period, a second.
TEST_F(ServiceControllerThreadsTest, StopsAtOnceWheneverItIsAsked) {
    for (int round = 0; round < 200; ++round) {
        mMonitor->startCheckFrameRate();
        std::this_thread::sleep_for(std::chrono::microseconds(round % 20 * 10));
        const auto asked = steady_clock::now();
        mMonitor->stopCheckFrameRate();
        ASSERT_LT(steady_clock::now() - asked, milliseconds(500)) << "round " << round;
    }
}

// Drops what it was given when the content ends.
struct Dropper : ServiceController::ServiceControllerListener {
    void onServiceControllerEvent(ServiceController::event_t event, unsigned int,
                                  unsigned int) override {
        if (event == ServiceController::EOC_EVENT) {
            await([this] { return given.load(); });
            monitor = nullptr;
            dropped = true;
        }
    }
    sp<ServiceController> monitor;
    std::atomic<bool> given{false};
    std::atomic<bool> dropped{false};
};

TEST_F(ServiceControllerThreadsTest, MayGoDuringItsOwnEvent) {
    Dropper dropper;
    mMonitor->setListener(&dropper);
    startAll();
    dropper.monitor = std::move(mMonitor);
    dropper.given = true;
    EXPECT_TRUE(await([&] { return dropper.dropped.load(); }));
    EXPECT_TRUE(await([&] { return threads() <= mBefore; })) << threads();
}

// Each change that is told starts from the status that was told before, whatever thread tells it.
struct ChainChecker : ServiceController::ServiceControllerListener {
    void onServiceControllerEvent(ServiceController::event_t event, unsigned int from,
                                  unsigned int to) override {
        if (event == ServiceController::SIGNAL_UPDATE_EVENT) {
            inOrder = inOrder && from == status.exchange(to);
            ++changes;
        }
    }
    std::atomic<unsigned int> status{0};
    std::atomic<bool> inOrder{true};
    std::atomic<int> changes{0};
};

TEST_F(ServiceControllerThreadsTest, TellsChangesInTheirOrder) {
    ChainChecker checker;
    mMonitor->setListener(&checker);
    orvtest::MonotonicClock clock(1'000'000);
    clock.advanceAtEachReading(1'700);
    std::atomic<bool> done{false};
    std::thread pictures([&] {
        while (!done) {
            mMonitor->onFrameRendered(1920, 1080, 0);
            mMonitor->updateFrameRate();
        }
    });
    std::thread sound([&] {
        while (!done) {
            mMonitor->onAudioReady(100);
            mMonitor->bufferingProcess();
        }
    });
    EXPECT_TRUE(await([&] {
        for (int i = 0; i < 20; ++i) {
            mMonitor->checkSignalStrength();
        }
        return checker.changes >= 1'000;
    }));
    done = true;
    pictures.join();
    sound.join();
    EXPECT_TRUE(checker.inOrder);
    mMonitor->setListener(nullptr);
}

}  // namespace
