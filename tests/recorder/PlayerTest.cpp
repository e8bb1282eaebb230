#include "recorder/Player.h"

#include <gtest/gtest.h>
#include <trace/OneSegPGL.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/FakeRecPlayer.h"
#include "support/RecordingsLog.h"
#include "support/TraceCapture.h"

namespace {

// The file that names the storage card, where the test wants one.
struct CardFile {
    int exists = 0;
    std::string text;
    long readable = 1000;
};
CardFile gCard;

}  // namespace

extern "C" {

int __wrap_OneSegPGL_CheckFile(const char* path) {
    return strcmp(path, "/data/one-seg/extSdCard") == 0 ? gCard.exists : 0;
}

long __wrap_OneSegPGL_GetFileSize(const char*) {
    return static_cast<long>(gCard.text.size());
}

long __wrap_OneSegPGL_ReadFile(const char*, void* buffer, long size) {
    const long count = std::min({size, gCard.readable, static_cast<long>(gCard.text.size())});
    memcpy(buffer, gCard.text.data(), static_cast<size_t>(count));
    return count;
}

}  // extern "C"

namespace {

using namespace OrvPlayer;
using orvtest::FakeRecPlayer;
using Lines = std::vector<std::string>;

constexpr Uint33 SECOND = 90'000;
constexpr const char* CARD_PROPERTY = "ORV_PROPERTY_oneseg_extSdCard_path";

class PlayerTest : public testing::Test {
protected:
    void SetUp() override {
        OneSegPGL_InitializeDebug();
        mService.reset();
        gCard = CardFile();
        unsetenv(CARD_PROPERTY);
        mPlayer->setListener(&mTold);
        mPlayer->setFilePath("/rec/card/1.ts");
    }
    void TearDown() override { mPlayer = nullptr; }

    void start(uint32_t durationMs) {
        mService.setClip(durationMs);
        mPlayer->start();
        mService.take();
    }
    void show(std::initializer_list<Uint33> times) {
        for (const Uint33 pts : times) {
            mPlayer->updateCurTime(pts);
        }
    }
    long traced(const std::string& line) {
        const Lines lines = mTrace.take();
        return std::count(lines.begin(), lines.end(), line);
    }

    FakeRecPlayer& mService = FakeRecPlayer::instance();
    orvtest::TraceCapture mTrace;
    orvtest::RecordingsLog mTold;
    android::sp<Player> mPlayer = new Player;
};

// The service is told whether the recording lies outside the storage card.
TEST_F(PlayerTest, FindsTheStorageCard) {
    const struct {
        CardFile file;
        const char* property;
        std::string card;
        const char* flag;
    } cases[] = {
        {{0, "", 0}, nullptr, "", "0"},
        {{0, "/rec/card", 9}, "/other", "/other", "1"},
        {{0, "", 0}, "card", "card", "0"},  // wherever it stands in the path
        {{1, "/rec/card", 9}, "/other", "/rec/card", "0"},
        {{1, "/rec/card", 8}, "/other", "/other", "1"},  // not read whole
        {{1, "", 0}, "/rec", "/rec", "0"},
        {{1, "/other", 9}, nullptr, "/other", "1"},
        {{2, "/other", 9}, nullptr, "", "0"},
        {{1, std::string(5000, 'x'), 5000}, nullptr, std::string(91, 'x'), "1"},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.card);
        gCard = wanted.file;
        if (wanted.property != nullptr) {
            setenv(CARD_PROPERTY, wanted.property, 1);
        } else {
            unsetenv(CARD_PROPERTY);
        }
        mTrace.take();
        mPlayer->start();
        EXPECT_EQ(mService.take(), std::string("active clip(/rec/card/1.ts,") + wanted.flag + ")");
        EXPECT_EQ(traced("start external sdcard path = " + wanted.card), 1);
    }
    EXPECT_EQ(mService.playerUserData(), static_cast<IPlayerListener*>(&mTold));
}

TEST_F(PlayerTest, ForwardsCommands) {
    const struct {
        const char* function;
        unsigned char answer;
        void (Player::*command)();
        const char* call;
        const char* line;
    } cases[] = {
        {"PauseTSPlayer", 1, &Player::pause, "pause",
         "V pause RecPlayerBinder_PauseTSPlayer succeeded!"},
        {"PauseTSPlayer", 0, &Player::pause, "pause",
         "E pause RecPlayerBinder_PauseTSPlayer failed"},
        {"ResumeTSPlayer", 1, &Player::resume, "resume",
         "V resume RecPlayerBinder_ResumeTSPlayer succeeded!"},
        {"ResumeTSPlayer", 2, &Player::resume, "resume",
         "E resume RecPlayerBinder_ResumeTSPlayer failed"},
        {"", 1, &Player::stop, "", "V stop"},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.line);
        mService.answer(wanted.function, wanted.answer);
        mTrace.take();
        ((*mPlayer).*wanted.command)();
        EXPECT_EQ(mService.take(), wanted.call);
        EXPECT_EQ(mTrace.takeWithLevels(), Lines{wanted.line});
    }
    for (const unsigned char answer : {0, 1, 2}) {
        mService.answer("IsPossibleSeek", answer);
        EXPECT_EQ(mPlayer->isPossibleSeek(), answer != 0);
        EXPECT_EQ(mTrace.takeWithLevels(),
                  Lines{answer == 1 ? "V isPossibleSeek RecPlayerBinder_IsPossibleSeek succeeded!"
                                    : "E isPossibleSeek RecPlayerBinder_IsPossibleSeek failed"});
    }
}

TEST_F(PlayerTest, TracesHowFarItIs) {
    mService.answer("IsTSPlayerActive", 0);
    mPlayer->start();
    EXPECT_EQ(mTrace.takeWithLevels(),
              (Lines{"I start", "E start RecPlayerBinder_IsTSPlayerActive failed",
                     "I start external sdcard path = ", "I start fail to get duration"}));
    mService.reset();
    mService.setClip(60'000);
    mPlayer->start();
    show({SECOND, 3 * SECOND + 9});
    mPlayer->seek(30'000);
    mService.answer("RepositioningTSPlayer", 0);
    mPlayer->seek(10'999);
    EXPECT_EQ(mTrace.takeWithLevels(),
              (Lines{"I start", "V start RecPlayerBinder_IsTSPlayerActive succeeded!",
                     "I start external sdcard path = ", "I start duration = 60000(ms)",
                     "V updateCurTime: pts =270009, m_startPTS = 90000, elapsedTimeMSec = 2000, "
                     "elapsedTimeSec = 2, m_elapsedTimeSec = 0",
                     "V updateCurTime RecPlayerBinder_SetCurrLapTime succeeded!",
                     "V seek RecPlayerBinder_RepositioningTSPlayer succeeded!",
                     "I seek: millisec 30000 - m_elapsedTimeSec 30",
                     "E seek RecPlayerBinder_RepositioningTSPlayer failed",
                     "I seek: millisec 10999 - m_elapsedTimeSec 30"}));
}

TEST_F(PlayerTest, TellsEachSecondOnce) {
    start(10'000);
    const Uint33 base = 50 * SECOND;
    show(
        {base, base + SECOND - 1, base + SECOND, base + SECOND + 3003, base + 3 * SECOND + 45'000});
    EXPECT_EQ(mTold.take(), "time:1 time:3");
    EXPECT_EQ(mService.take(), "lap(1000,51000) lap(3500,53500)");
    EXPECT_EQ(mPlayer->getCurrentTimeMs(), 3'000u);

    show({base + 2 * SECOND, base - 1, base + SECOND});  // back, then behind the start: a new base
    EXPECT_EQ(mTold.take(), "time:4");

    mPlayer->stop();
    show({base + 6 * SECOND, base - 2});
    EXPECT_EQ(mTold.take(), "");
    mService.reset();  // the next start hears of no duration: that of before holds
    mPlayer->start();
    mService.take();
    show({base + 6 * SECOND, base + 90 * SECOND, base + 91 * SECOND});
    EXPECT_EQ(mTold.take(), "time:9 time:10");  // not beyond the duration
    EXPECT_EQ(mService.take(), "lap(9000,56000) lap(93000,140000)");

    // Where none was ever known there is no such bound, and a failing service changes nothing.
    mPlayer = new Player;
    mPlayer->setListener(&mTold);
    mPlayer->start();
    mService.answer("SetCurrLapTime", 0);
    show({SECOND, 3601 * SECOND});
    EXPECT_EQ(mTold.take(), "time:3600");
}

TEST_F(PlayerTest, SeeksWithinTheRecording) {
    const struct {
        uint32_t durationMs;
        int targetMs;
        unsigned char answer;
        const char* calls;
        const char* told;
        unsigned int elapsedMs;
    } cases[] = {
        {60'000, 58'499, 1, "reposition(0,58499)", "", 58'000},
        {60'000, 58'500, 1, "", "end:0", 58'000},
        {60'000, 70'999, 1, "", "end:0", 70'000},
        {60'999, 59'498, 1, "reposition(0,59498)", "", 59'000},
        {60'000, -1, 1, "", "end:0", 0},
        {60'000, 30'000, 0, "reposition(0,30000)", "", 0},
        {1'499, 1'499, 1, "reposition(0,1499)", "", 1'000},
        {0, 2'000'000'000, 1, "reposition(0,2000000000)", "", 2'000'000'000},
        {0, 50'000'000, 1, "reposition(0,50000000)", "", 50'000'000},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.targetMs);
        mPlayer = new Player;
        mPlayer->setListener(&mTold);
        start(wanted.durationMs);
        mService.answer("RepositioningTSPlayer", wanted.answer);
        mPlayer->seek(wanted.targetMs);
        EXPECT_EQ(mService.take(), wanted.calls);
        EXPECT_EQ(mTold.take(), wanted.told);
        EXPECT_EQ(mPlayer->getCurrentTimeMs(), wanted.elapsedMs);
    }
    // Deliberate: ticks up to there are counted in 32 bits, so from 13 hours on no second is told.
    show({5'000'000'000, 5'000'000'000 + SECOND});
    EXPECT_EQ(mTold.take(), "");
}

// The first time stamp after a seek is the second that was sought, a failed one leaves all as it
// is.
TEST_F(PlayerTest, CountsOnFromWhereItWasSought) {
    start(60'000);
    mService.answer("RepositioningTSPlayer", 0);
    show({SECOND, 3 * SECOND});
    mPlayer->seek(40'000);
    show({4 * SECOND});
    EXPECT_EQ(mTold.take(), "time:2 time:3");
    mService.answer("RepositioningTSPlayer", 1);
    mPlayer->seek(30'500);
    show({100 * SECOND, 100 * SECOND + 3003, 101 * SECOND});
    EXPECT_EQ(mTold.take(), "time:31");
    mService.take();
    mPlayer->seek(5'000);
    EXPECT_EQ(mService.take(), "reposition(31,5000)");
    show({74 * SECOND, 75 * SECOND});
    EXPECT_EQ(mTold.take(), "time:6");
}

TEST_F(PlayerTest, TellsEvents) {
    start(0);
    const struct {
        int event;
        const char* told;
    } cases[] = {{6, "end:0"}, {4, "error:135169"}, {5, "error:135169"}, {3, ""}, {7, ""},
                 {-1, ""}};
    for (const auto& wanted : cases) {
        mTrace.take();
        mService.playerEvent(wanted.event);
        EXPECT_EQ(mTold.take(), wanted.told) << wanted.event;
        EXPECT_EQ(traced("playerCallback event received: " + std::to_string(wanted.event)), 1);
    }
    playerCallback(6, nullptr);
}

// Events and time stamps come while the listener is taken away, and afterwards.
TEST_F(PlayerTest, OutlivedByItsService) {
    std::atomic<bool> done{false};
    std::thread service([&] {
        while (!done) {
            mService.playerEvent(6);
        }
    });
    for (int i = 0; i < 50; ++i) {
        orvtest::RecordingsLog listener;
        mPlayer = new Player;
        mPlayer->setListener(&listener);
        start(60'000);
        std::thread pictures([&] {
            for (Uint33 second = 1; second < 30; ++second) {
                mPlayer->updateCurTime(second * SECOND);
            }
        });
        mPlayer->seek(59'000);
        mPlayer->setListener(nullptr);
        listener.take();
        mPlayer->seek(59'000);
        pictures.join();
        EXPECT_EQ(listener.take(), "");
    }
    done = true;
    service.join();
}

}  // namespace
