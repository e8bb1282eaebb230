// Stills of the player against pictures that libavcodec decodes.

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/frame.h>
}

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "MonotonicTime.h"
#include "PlayerSession.h"
#include "Still.h"
#include "StreamSelection.h"
#include "audio/AudioOutput.h"
#include "dtv/Tuner.h"
#include "pattern/TestPattern.h"
#include "programs/Program.h"
#include "support/Await.h"
#include "tools/SampleDecoder.h"

namespace orvtest {
namespace {

const std::string SAMPLE = ORV_SAMPLES_DIR "/hd.ts";
constexpr int STILLS = 10;
constexpr int EVERY_MS = 200;
constexpr uint32_t FRAMES_IN_100_MS = 3;
constexpr double LEAST_PSNR = 38;

int level(int value) {
    return std::clamp(value, 0, 255);
}

// Blue, green and red of a pixel, in 10 bits of fraction.
std::array<int, 3> colourOf(const AVFrame& frame, int x, int y) {
    const int luma = frame.data[0][y * frame.linesize[0] + x];
    const int u = frame.data[1][y / 2 * frame.linesize[1] + x / 2] - 128;
    const int v = frame.data[2][y / 2 * frame.linesize[2] + x / 2] - 128;
    return {level(luma + ((u * 1814) >> 10)), level(luma - ((u * 352 + v * 731) >> 10)),
            level(luma + ((v * 1435) >> 10))};
}

double psnr(const orvplay::Still& still, const AVFrame& frame) {
    double squares = 0;
    const uint8_t* pixel = still.pixels.data();
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x, pixel += 4) {
            const std::array<int, 3> colour = colourOf(frame, x, y);
            for (size_t i = 0; i < 3; ++i) {
                const int difference = pixel[i] - colour[i];
                squares += difference * difference;
            }
        }
    }
    const double mean = squares / (3.0 * frame.width * frame.height);
    return mean == 0 ? 100 : 10 * std::log10(255 * 255 / mean);
}

std::optional<uint32_t> numberOf(const orvplay::Still& still) {
    std::vector<uint8_t> green;
    for (size_t i = 1; i < still.pixels.size(); i += 4) {
        green.push_back(still.pixels[i]);
    }
    const auto width = static_cast<int>(still.width);
    return readFrameNumber(green.data(), width, width, static_cast<int>(still.height));
}

// The window: takes down which picture it got last.
class Screen {
public:
    Screen() {
        orvhost::BufferQueue::create(&producer, &consumer);
        mThread = std::thread([this] {
            while (!mEnd) {
                orvhost::AcquiredBuffer picture;
                if (consumer->acquire(&picture, 50) == android::OK) {
                    look(*picture.buffer);
                    consumer->release(picture.slot);
                }
            }
        });
    }
    ~Screen() {
        mEnd = true;
        mThread.join();
    }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    android::sp<android::IGraphicBufferProducer> producer;
    android::sp<orvhost::BufferQueue::Consumer> consumer;
    std::atomic<uint32_t> lastNumber{0};
    std::atomic<uint64_t> shown{0};

private:
    void look(android::GraphicBuffer& buffer) {
        void* luma = nullptr;
        buffer.lock(android::GraphicBuffer::USAGE_SW_READ_OFTEN, &luma);
        lastNumber = readFrameNumber(
                         static_cast<const uint8_t*>(luma), static_cast<int>(buffer.getStride()),
                         static_cast<int>(buffer.getWidth()), static_cast<int>(buffer.getHeight()))
                         .value_or(0);
        buffer.unlock();
        ++shown;
    }

    std::atomic<bool> mEnd{false};
    std::thread mThread;
};

struct Service {
    const char* number;
    uint32_t width;
    uint32_t height;
};

class StillsTest : public testing::TestWithParam<Service> {
protected:
    void SetUp() override {
        setenv("ORV_TRACE", "error", 0);
        orvhost::setAudioOutput(orvhost::AudioOutput::SILENT);
        orvhost::Tuner& tuner = orvhost::Tuner::instance();
        ASSERT_TRUE(tuner.tune(SAMPLE, {}).ok());
        orvplay::PlayOptions options;
        options.service = GetParam().number;
        std::string error;
        ASSERT_TRUE(
            orvplay::selectStreams(tuner.services(5000).services, options, &mSelection, &error))
            << error;
    }
    void TearDown() override { orvhost::Tuner::instance().untune(); }

    // What the player hands out for two requests at the same time, of which it takes the first.
    std::vector<orvplay::Still> play() {
        Screen screen;
        orvplay::StillTray tray(screen.consumer, 2 * STILLS);
        std::atomic<int> late{0};
        orvplay::PlayerSession::Events events;
        events.onError = [](unsigned int code, const std::string&) { ADD_FAILURE() << code; };
        events.onAudioSessionId = [](int) {};
        events.onAudioReady = [](long) {};
        events.onStill = [&](const unsigned char* pixels, unsigned width, unsigned height) {
            const uint32_t onScreen = screen.lastNumber;
            tray.put(pixels, width, height);
            mOnScreen.push_back(onScreen);
        };
        orvplay::PlayerSession session(screen.producer, std::move(events));
        EXPECT_EQ(session.open(mSelection.configuration()), 0);
        EXPECT_EQ(session.start(), 0);
        EXPECT_TRUE(await([&] { return screen.shown > 2; }, std::chrono::seconds(30)));
        session.requestStills(STILLS, EVERY_MS);
        session.requestStills(1, 0);
        std::vector<orvplay::Still> stills(STILLS);
        for (orvplay::Still& still : stills) {
            EXPECT_TRUE(tray.take(&still, std::chrono::seconds(10)));
        }
        const uint64_t then = screen.shown;
        EXPECT_TRUE(await([&] { return screen.shown > then + 10; }));
        orvplay::Still more;
        EXPECT_FALSE(tray.take(&more, std::chrono::milliseconds(0))) << "refused, not put off";
        EXPECT_EQ(session.stop(), 0);
        return stills;
    }

    orvplay::StreamSelection mSelection;
    std::vector<uint32_t> mOnScreen;  // when a still came; capture thread
};

TEST_P(StillsTest, AreThePicturesOnTheScreen) {
    const std::vector<orvplay::Still> stills = play();
    std::map<uint32_t, const orvplay::Still*> wanted;
    int old = 0;
    for (size_t i = 0; i < stills.size(); ++i) {
        ASSERT_EQ(stills[i].width, GetParam().width);
        ASSERT_EQ(stills[i].height, GetParam().height);
        const auto number = numberOf(stills[i]);
        ASSERT_TRUE(number.has_value());
        EXPECT_TRUE(wanted.empty() || *number > wanted.rbegin()->first);
        wanted[*number] = &stills[i];
        old += mOnScreen[i] > *number + FRAMES_IN_100_MS ? 1 : 0;
    }
    ASSERT_EQ(wanted.size(), size_t{STILLS});
    if (!SANITIZED) {
        EXPECT_LE(old, 1) << "the conversion itself may have to wait for a processor";
        const double perStill = (wanted.rbegin()->first - wanted.begin()->first) / (STILLS - 1.0);
        EXPECT_NEAR(perStill, EVERY_MS * 30 / 1001.0, 0.5);
    }
    size_t compared = 0;
    decodeService(SAMPLE, std::atoi(GetParam().number),
                  [&](const DecodedFrame& picture, const AVFrame& frame) {
                      const auto still = wanted.find(picture.number.value_or(0));
                      if (still != wanted.end()) {
                          ++compared;
                          EXPECT_GT(psnr(*still->second, frame), LEAST_PSNR) << still->first;
                          EXPECT_NEAR(static_cast<double>(still->second->pts90k),
                                      static_cast<double>(picture.ptsUs) * 0.09, 1.0);
                      }
                  });
    EXPECT_EQ(compared, size_t{STILLS});
}

INSTANTIATE_TEST_SUITE_P(Services, StillsTest,
                         testing::Values(Service{"51200", 1920, 1080}, Service{"51224", 320, 240}),
                         [](const auto& test) { return "Of" + std::to_string(test.param.width); });

}  // namespace
}  // namespace orvtest
