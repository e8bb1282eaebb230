#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "service/MainController.h"
#include "support/Await.h"
#include "support/EventLog.h"
#include "support/FakeAudio.h"
#include "support/FakeDemux.h"
#include "support/FakeRecPlayer.h"
#include "support/FakeTimers.h"
#include "support/ProcessUsage.h"
#include "support/TraceCapture.h"
#include "support/TsBuilder.h"
#include "trace/OneSegPGL.h"

namespace orvtest {

// A controller between a demultiplexer that serves what the test feeds, a recorder service that
// does what the test says, a silent output, and timers that fire when the test says so.
class ControllerTest : public testing::Test {
protected:
    using Config = std::map<std::string, std::string>;

    static constexpr size_t PLAYBACK_TIMER = 1;  // the first is the audio renderer's

    static Config live() { return {{"pcrPid", "256"}, {"videoPid", "273"}, {"audioPid", "274"}}; }
    static Config recorded(const char* type) {
        Config config = live();
        config["sourceType"] = type;
        config["filePath"] = "/rec/1";
        return config;
    }

    static size_t threads() { return ProcessUsage::now().threads; }

    // Bytes that look like a broadcast, as far as the codecs.
    static Bytes broadcast(unsigned pid, uint8_t streamId, int pictures,
                           const Bytes& payload = Bytes(3000, 0x21)) {
        TsBuilder stream;
        for (int i = 0; i < pictures; ++i) {
            stream.pes(pid, streamId, 90'000 + i * 3003, payload, i * 900'900);
        }
        return stream.build();
    }

    void SetUp() override {
        OneSegPGL_InitializeDebug();
        mDemux.reset();
        mAudio.reset();
        mAudio.open();
        mService.reset();
        newController();
    }
    void TearDown() override {
        mController = nullptr;
        EXPECT_EQ(mDemux.running(), 0u);
        EXPECT_EQ(mAudio.living(), 0u);
    }

    void newController() {
        mController = nullptr;
        mTimers.reset();
        mController = new OrvPlayer::MainController;
        mController->setServiceControllerListener(&mEvents);
    }

    bool isTraced(const std::string& wanted) {
        const std::vector<std::string> lines = mTrace.take();
        return std::find(lines.begin(), lines.end(), wanted) != lines.end();
    }

    void renderBoth() {
        mController->onFrameRendered(1920, 1080, 90000);
        mController->onAudioRendered();
    }

    std::string report(int indent) {
        char* text = nullptr;
        size_t size = 0;
        FILE* memory = open_memstream(&text, &size);
        mController->dump(memory, {}, indent);
        fclose(memory);
        std::string report(text, size);
        free(text);
        return report;
    }

    FakeDemux& mDemux = FakeDemux::instance();
    FakeAudio& mAudio = FakeAudio::instance();
    FakeTimers& mTimers = FakeTimers::instance();
    FakeRecPlayer& mService = FakeRecPlayer::instance();
    TraceCapture mTrace;
    EventLog mEvents;
    android::sp<OrvPlayer::MainController> mController;
};

}  // namespace orvtest
