#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "dtv/StreamClock.h"
#include "dtv/Tuner.h"
#include "platform/recording/RecordingBuilder.h"
#include "recording/RecordingPlayer.h"
#include "support/ManualClock.h"
#include "support/TempFile.h"

namespace {

// From here on no file can be read.
std::atomic<off_t> unreadableFrom{INT64_MAX};

}  // namespace

// In the place of the library's: a disk that fails.
extern "C" ssize_t pread(int fd, void* data, size_t size, off_t offset) {
    if (offset >= unreadableFrom) {
        errno = EIO;
        return -1;
    }
    return syscall(SYS_pread64, fd, data,
                   std::min<size_t>(size, static_cast<size_t>(unreadableFrom - offset)), offset);
}

namespace {

using namespace orvtest;
using namespace orvhost;

constexpr int64_t MS = 1'000'000;
constexpr int LEAD_PICTURES = 1600 / PICTURE_MS;

struct Events {
    static void take(int event, void* userData) {
        auto* events = static_cast<Events*>(userData);
        events->last = event;
        ++events->count;
    }
    std::atomic<int> last{0};
    std::atomic<int> count{0};
};

class RecordingFeedTest : public testing::Test {
public:
    ~RecordingFeedTest() override { stop(); }

    void tune(const std::string& path) {
        TuneOptions options;
        options.recorded = true;
        ASSERT_TRUE(mTuner.tune(path, options).ok());
        ASSERT_EQ(mTuner.services(5000).services.size(), 1u);
    }

    // What a controller does: the player begins, then the filters.
    void start() {
        EXPECT_TRUE(mPlayer.begin(Events::take, &mEvents));
        mClockHandle = mTuner.demultiplexer().startFiltering(REC_PCR, DEMUX_FILTER_PCR);
        mHandle = mTuner.demultiplexer().startFiltering(REC_VIDEO, DEMUX_FILTER_VIDEO);
        waitForData();
    }

    void waitForData() {
        DemuxBinder_HandleSet set{};
        DemuxBinder_HandleSET(mHandle, &set);
        EXPECT_EQ(mTuner.demultiplexer().select(&set, 5000), 1);
    }

    void stop() {
        if (mHandle >= 0) {
            mTuner.demultiplexer().stopFiltering(mClockHandle);
            mTuner.demultiplexer().stopFiltering(mHandle.exchange(-1));
        }
    }

    void seek(int64_t ms) {
        stop();
        ASSERT_TRUE(mPlayer.seek(ms));
        start();
    }

    // The pictures that the filter holds, by their time stamps in milliseconds.
    void take() {
        Bytes buffer(188 * 8192);
        for (;;) {
            const int got = mTuner.demultiplexer().readData(mHandle, buffer.data(),
                                                            static_cast<int>(buffer.size()));
            for (int at = 0; at < got; at += 188) {
                const int64_t stamp = presentationTimeOf(buffer.data() + at);
                if (stamp >= 0) {
                    mPictures.push_back(stamp / 27'000);
                }
            }
            if (got <= 0) {
                return;
            }
        }
    }

    // Steps the clock so far, and through what is due then.
    void play(int64_t ms) {
        const int64_t until = mClock.nowNs() + ms * MS;
        int idle = 0;  // it may end at any time, and then sleeps no more
        while (!mTuner.atEnd() && idle < 100) {
            if (!mClock.waitForSleeper(std::chrono::milliseconds(50))) {
                ++idle;
                continue;
            }
            take();
            if (mClock.nowNs() >= until) {
                return;
            }
            mClock.step();
        }
        take();
    }

    size_t takenPictures() { return std::exchange(mPictures, {}).size(); }

    bool waitForEvent(int count) {
        for (int i = 0; i < 500 && mEvents.count < count; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return mEvents.count == count;
    }

    ManualClock mClock;
    Tuner mTuner{mClock};
    RecordingPlayer mPlayer{mTuner};
    Events mEvents;
    std::atomic<int> mHandle{-1};  // a callback may stop it, too
    int mClockHandle = -1;
    std::vector<int64_t> mPictures;
};

struct Shape {
    const char* name;
    RecordingShape recording;
};
constexpr int64_t WRAP_MS = (int64_t{1} << 33) / 90;
constexpr int PICTURES = 250;  // 10 s
const Shape SHAPES[] = {
    {"Plain", {.pictures = PICTURES}},
    {"Wrap", {.pictures = PICTURES, .firstPcrMs = WRAP_MS - 3000}},
    {"JumpAhead", {.pictures = PICTURES, .jumpAtPicture = 90, .jumpMs = 3'600'000}},
    {"JumpBack",
     {.pictures = PICTURES, .firstPcrMs = 9'000'000, .jumpAtPicture = 90, .jumpMs = -3'600'000}},
    {"TimeStampsAlone", {.pictures = PICTURES, .pcr = false}},
};

class RecordingShapeTest : public RecordingFeedTest, public testing::WithParamInterface<Shape> {
protected:
    // The position in milliseconds of a picture by its stamp, whatever its time base.
    int64_t positionOf(int64_t stampMs) const {
        const RecordingShape& shape = GetParam().recording;
        for (int i = 0; i < shape.pictures; ++i) {
            const bool jumped = shape.jumpAtPicture >= 0 && i >= shape.jumpAtPicture;
            const int64_t ms = shape.firstPcrMs + i * PICTURE_MS + (jumped ? shape.jumpMs : 0);
            if ((ms % WRAP_MS + shape.leadMs) % WRAP_MS / PICTURE_MS == stampMs / PICTURE_MS) {
                return i * PICTURE_MS;
            }
        }
        return -1;
    }
    TempFile mFile{makeRecording(GetParam().recording)};
};

TEST_P(RecordingShapeTest, BeginsAtOnceThenKeepsPaceUntilItsEnd) {
    tune(mFile.path());
    const int64_t startNs = mClock.nowNs();
    start();
    play(0);
    const size_t atOnce = takenPictures();
    EXPECT_NEAR(static_cast<double>(atOnce), LEAD_PICTURES, 2);
    play(2000);
    const size_t inTwoSeconds = takenPictures();
    EXPECT_NEAR(static_cast<double>(inTwoSeconds), 2000 / PICTURE_MS, 3);
    while (!mTuner.atEnd() && mClock.nowNs() < startNs + 20'000 * MS) {
        play(100);
    }
    EXPECT_NEAR(static_cast<double>(mClock.nowNs() - startNs) / MS, PICTURES * PICTURE_MS, 150);
    ASSERT_TRUE(waitForEvent(1));
    EXPECT_EQ(mEvents.last, PLAYER_EVENT_END_OF_CONTENT);
    EXPECT_EQ(atOnce + inTwoSeconds + mPictures.size(), static_cast<size_t>(PICTURES));
}

TEST_P(RecordingShapeTest, SeeksGoToTheLastPointBeforeTheTarget) {
    tune(mFile.path());
    start();
    play(300);
    for (const int64_t target : {5000, 479, 480, 8900, 0, 3999}) {
        SCOPED_TRACE(target);
        seek(target);
        mPictures.clear();
        play(100);
        ASSERT_FALSE(mPictures.empty());
        const int64_t first = positionOf(mPictures.front());
        EXPECT_EQ(first % (GROUP_PICTURES * PICTURE_MS), 0);
        EXPECT_LE(first, target);
        EXPECT_GT(first, target - GROUP_PICTURES * PICTURE_MS - PICTURE_MS);
    }
    EXPECT_EQ(mEvents.count, 0);
}

INSTANTIATE_TEST_SUITE_P(Recordings, RecordingShapeTest, testing::ValuesIn(SHAPES),
                         [](const auto& made) { return std::string(made.param.name); });

TEST_F(RecordingFeedTest, APauseStopsTheFeedAndShiftsItsPace) {
    TempFile file(makeRecording({.pictures = PICTURES}));
    tune(file.path());
    start();
    play(1000);
    ASSERT_TRUE(mPlayer.setPaused(true));
    take();
    takenPictures();
    mClock.advance(60'000 * MS);
    ASSERT_TRUE(mPlayer.setPaused(true));
    take();
    EXPECT_EQ(takenPictures(), 0u);
    ASSERT_TRUE(mPlayer.setPaused(false));
    play(1000);
    EXPECT_NEAR(static_cast<double>(takenPictures()), 1000 / PICTURE_MS, 4);  // no burst
    EXPECT_EQ(mEvents.count, 0);

    // A seek keeps it paused: the place is shown, by the clock of what it begins with otherwise,
    // and goes on later.
    ASSERT_TRUE(mPlayer.setPaused(true));
    seek(4000);
    mPlayer.setPaused(true);
    take();
    const size_t shown = takenPictures();
    EXPECT_NEAR(static_cast<double>(shown), 500 / PICTURE_MS, 2);
    Bytes references(188 * 1000);
    const int size = static_cast<int>(references.size());
    ASSERT_EQ(mTuner.demultiplexer().readData(mClockHandle, references.data(), size), 188);
    const int64_t clockMs = pcrOf(references.data()) / 27'000 - 1000;
    EXPECT_NEAR(static_cast<double>(clockMs), 8 * GROUP_PICTURES * PICTURE_MS + 1600, PICTURE_MS);
    mClock.advance(60'000 * MS);
    mPlayer.setPaused(true);
    take();
    EXPECT_EQ(takenPictures(), 0u);
    mPlayer.setPaused(false);
    waitForData();
    play(0);
    EXPECT_NEAR(static_cast<double>(shown + takenPictures()), LEAD_PICTURES, 2);
    play(1000);
    EXPECT_NEAR(static_cast<double>(takenPictures()), 1000 / PICTURE_MS, 4);
}

// Stopped and started, without a seek: from where the player was, not from where the feed was.
TEST_F(RecordingFeedTest, AStartGoesBackToWhereThePlayerWas) {
    TempFile file(makeRecording({.pictures = PICTURES}));
    tune(file.path());
    start();
    play(3000);
    mPlayer.setPosition(2000);
    mPlayer.setPaused(true);
    stop();
    start();
    mPictures.clear();
    play(0);
    ASSERT_FALSE(mPictures.empty());
    EXPECT_EQ(mPictures.front(), 1000 + 700 + 4 * GROUP_PICTURES * PICTURE_MS);
}

TEST_F(RecordingFeedTest, AFileThatGrowsIsFollowed) {
    const Bytes whole = makeRecording({.pictures = PICTURES});
    const auto middle =
        whole.begin() + 188 * (static_cast<std::ptrdiff_t>(whole.size()) / 376) + 77;
    TempFile file(Bytes(whole.begin(), middle));
    tune(file.path());
    start();
    play(4000);  // all there is was handed over; it ends at 5,000
    std::ofstream(file.path(), std::ios::app | std::ios::binary)
        .write(reinterpret_cast<const char*>(&*middle), whole.end() - middle);
    mEvents.count = 0;
    while (!mTuner.atEnd()) {
        play(100);
    }
    EXPECT_EQ(mPictures.size(), static_cast<size_t>(PICTURES));
    EXPECT_TRUE(waitForEvent(1));
}

// What could be read is played before it is told why there is no more.
TEST_F(RecordingFeedTest, WhatEndsARecordingIsTold) {
    struct Case {
        const char* name;
        std::function<void(const TempFile&, off_t middle)> fault;
        int event;
        size_t pictures;
    } const cases[] = {
        {"junk",
         [](const TempFile& file, off_t middle) {
             std::filesystem::resize_file(file.path(), static_cast<uintmax_t>(middle));
             std::filesystem::resize_file(file.path(), static_cast<uintmax_t>(middle) + (6 << 20));
         },
         PLAYER_EVENT_BAD_RECORDING, PICTURES / 2},
        {"unreadable", [](const TempFile&, off_t middle) { unreadableFrom = middle; },
         PLAYER_EVENT_READ_FAILED, PICTURES / 2},
        {"truncated",
         [](const TempFile& file, off_t middle) {
             std::filesystem::resize_file(file.path(), static_cast<uintmax_t>(middle));
         },
         PLAYER_EVENT_END_OF_CONTENT, PICTURES / 2},
        {"removed", [](const TempFile& file, off_t) { std::filesystem::remove(file.path()); },
         PLAYER_EVENT_END_OF_CONTENT, PICTURES},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        const Bytes whole = makeRecording({.pictures = PICTURES, .bytesPerPicture = 4000});
        const TempFile file(whole);
        mEvents.count = 0;
        tune(file.path());
        start();
        play(1000);
        EXPECT_EQ(mEvents.count, 0);
        test.fault(file, static_cast<off_t>(whole.size() / 376 * 188));
        for (int i = 0; i < 200 && !mTuner.atEnd(); ++i) {
            play(100);
        }
        unreadableFrom = INT64_MAX;
        EXPECT_TRUE(waitForEvent(1));
        EXPECT_EQ(mEvents.last, test.event);
        EXPECT_NEAR(static_cast<double>(takenPictures()), static_cast<double>(test.pictures), 2);
        stop();
        mTuner.untune();
    }
}

TEST_F(RecordingFeedTest, EventsEndWithTheLastFilter) {
    TempFile file(makeRecording({.pictures = 50}));
    struct Callback {
        RecordingFeedTest* test;
        enum { STOPS, WAITS_FOR_OTHER, RUNS } kind;
        std::atomic<bool> entered{false};
        std::atomic<bool> done{false};
        static void run(int, void* userData) {
            auto* self = static_cast<Callback*>(userData);
            self->entered = true;
            if (self->kind == STOPS) {
                self->test->stop();
            } else if (self->kind == WAITS_FOR_OTHER) {
                std::thread([self] { self->test->stop(); }).join();
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
            self->done = true;
        }
    };
    for (const auto kind : {Callback::STOPS, Callback::WAITS_FOR_OTHER, Callback::RUNS}) {
        SCOPED_TRACE(kind);
        tune(file.path());
        Callback callback{this, kind};
        start();
        mPlayer.begin(Callback::run, &callback);
        while (!mTuner.atEnd()) {
            play(100);
        }
        for (int i = 0; i < 500 && !callback.entered; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_TRUE(callback.entered);
        if (kind == Callback::RUNS) {
            stop();
            EXPECT_TRUE(callback.done);  // the stop has waited
        }
        for (int i = 0; i < 500 && !callback.done; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_TRUE(callback.done);
        mTuner.untune();
    }
}

TEST_F(RecordingFeedTest, DetailsComeFromTheTunedFileOrFromThePath) {
    TempFile file(makeRecording({.pictures = PICTURES}));
    RecordingDetails details;
    ASSERT_TRUE(mPlayer.details(file.path(), &details));  // nothing is tuned
    EXPECT_NEAR(static_cast<double>(details.durationMs), PICTURES * PICTURE_MS, 50);
    EXPECT_EQ(details.videoPid, static_cast<int>(REC_VIDEO));
    EXPECT_EQ(details.audioPid, static_cast<int>(REC_AUDIO));
    EXPECT_EQ(details.audioFraming, 1);
    EXPECT_EQ(details.stationName, "Um");
    EXPECT_FALSE(mPlayer.details("/nonexistent/x.ts", &details));
    EXPECT_FALSE(mPlayer.canSeek());
    EXPECT_FALSE(mPlayer.seek(0));
    EXPECT_FALSE(mPlayer.setPaused(true));

    // By the name that a client gave it, which is none that this process could open.
    const int fd = open(file.path().c_str(), O_RDONLY);
    TuneOptions options;
    options.recorded = true;
    ASSERT_TRUE(mTuner.tune(fd, options, "/elsewhere/news.ts").ok());
    close(fd);
    ASSERT_TRUE(mPlayer.details("/elsewhere/news.ts", &details));
    EXPECT_NEAR(static_cast<double>(details.durationMs), PICTURES * PICTURE_MS, 50);
    EXPECT_TRUE(mPlayer.canSeek());
}

}  // namespace
