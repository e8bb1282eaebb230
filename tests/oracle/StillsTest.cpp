// Stills of the player against pictures that libavcodec decodes.

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/frame.h>
}
#include <orvclient/PictureQueue.h>
#include <orvclient/Player.h>

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

#include "Still.h"
#include "StreamSelection.h"
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
        mThread = std::thread([this] {
            while (!mEnd) {
                orvclient::Picture picture;
                if (queue.acquire(&picture, 50)) {
                    lastNumber = readFrameNumber(picture.luma, static_cast<int>(picture.stride),
                                                 static_cast<int>(picture.width),
                                                 static_cast<int>(picture.height))
                                     .value_or(0);
                    ++shown;
                    queue.release(picture);
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

    orvclient::PictureQueue queue;
    std::atomic<uint32_t> lastNumber{0};
    std::atomic<uint64_t> shown{0};

private:
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
        orvclient::Callbacks callbacks;
        callbacks.onError = [](int code) { ADD_FAILURE() << code; };
        callbacks.onStill = [this](const orvclient::StillView& still) {
            const uint32_t onScreen = mScreen.lastNumber;
            mTray.put(still);
            mOnScreen.push_back(onScreen);
        };
        std::string error;
        mPlayer = orvclient::Player::create({}, callbacks, &error);
        ASSERT_NE(mPlayer, nullptr) << error;
        ASSERT_TRUE(mPlayer->tuner().tune(SAMPLE, {}).ok());
        orvplay::PlayOptions options;
        options.service = GetParam().number;
        orvplay::StreamSelection selection;
        ASSERT_TRUE(orvplay::selectStreams(mPlayer->tuner().services(5000).services, options,
                                           &selection, &error))
            << error;
        ASSERT_TRUE(mPlayer->setSurface(&mScreen.queue).ok());
        ASSERT_TRUE(mPlayer->open(selection.liveSource()).ok());
        ASSERT_TRUE(mPlayer->start().ok());
    }
    void TearDown() override { mPlayer = nullptr; }

    // What the player hands out for two requests at the same time, of which it takes the first.
    std::vector<orvplay::Still> takeStills() {
        EXPECT_TRUE(await([&] { return mScreen.shown > 2; }, std::chrono::seconds(30)));
        mPlayer->requestStills(STILLS, std::chrono::milliseconds(EVERY_MS));
        mPlayer->requestStills(1, std::chrono::milliseconds(0));
        std::vector<orvplay::Still> stills(STILLS);
        for (orvplay::Still& still : stills) {
            EXPECT_TRUE(mTray.take(&still, std::chrono::seconds(10)));
        }
        const uint64_t then = mScreen.shown;
        EXPECT_TRUE(await([&] { return mScreen.shown > then + 10; }));
        orvplay::Still more;
        EXPECT_FALSE(mTray.take(&more, std::chrono::milliseconds(0))) << "refused, not put off";
        EXPECT_TRUE(mPlayer->stop().ok());
        return stills;
    }

    Screen mScreen;
    orvplay::StillTray mTray{2 * STILLS};
    std::vector<uint32_t> mOnScreen;  // when a still came; callback thread
    std::unique_ptr<orvclient::Player> mPlayer;
};

TEST_P(StillsTest, AreThePicturesOnTheScreen) {
    const std::vector<orvplay::Still> stills = takeStills();
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
