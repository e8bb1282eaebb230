#include "renderer/VideoRenderer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "support/MonotonicClock.h"
#include "support/TraceCapture.h"
#include "trace/OneSegPGL.h"

namespace {

using namespace OrvPlayer;
using std::chrono::steady_clock;

constexpr std::chrono::seconds LIMIT{5};
constexpr uint64_t WRAP = uint64_t{1} << 33;
constexpr Uint33 START = 900'000;
constexpr int64_t FRAME = 3003;
// Far ahead of the real clock, so that only a wake-up ends a timed wait of the ring buffers.
constexpr uint64_t NOW_MS = 1'000'000'000'000;

// The decoder behind the renderer, the listener before it, and the one for its failures.
class Frames : public VideoFrameData::VideoListener,
               public VideoRenderer::FrameRenderedListener,
               public CaptureFrameListener,
               public ErrorListener {
public:
    // 'S' shown and told of, 'H' told of but not shown, 'D' dropped.
    bool renderFrame(bool render, VideoFrameData& frame) override {
        std::lock_guard<std::mutex> guard(mLock);
        mFates += render ? 's' : 'D';
        mLastPTS = frame.mPTS;
        mChanged.notify_all();
        return true;
    }
    void onFrameRendered(int width, int height, Uint33 pts) override {
        std::lock_guard<std::mutex> guard(mLock);
        EXPECT_EQ(width, 1920);
        EXPECT_EQ(height, 1080);
        EXPECT_EQ(pts, mLastPTS);
        mFates.back() = mFates.back() == 's' ? 'S' : 'H';
        mChanged.notify_all();
    }
    bool captureFrame(VideoFrameData&, CaptureFrameListener* listener) override {
        std::lock_guard<std::mutex> guard(mLock);
        EXPECT_EQ(listener, this);
        ++mCaptures;
        return mCaptureWorks;
    }
    void onCaptureFrame(unsigned char*, unsigned int, unsigned int, bool) override {}
    void onError(unsigned int code, const Module*) const override {
        std::lock_guard<std::mutex> guard(mLock);
        mErrors.push_back(code);
        mChanged.notify_all();
    }

    // The fates of `count` frames and of whatever else came, once they are there.
    std::string await(size_t count) {
        std::unique_lock<std::mutex> guard(mLock);
        mChanged.wait_for(guard, LIMIT, [&] {
            return mFates.size() >= count && (mFates.empty() || mFates.back() != 's');
        });
        return mFates;
    }
    // The same for frames that are not shown: until the call that tells of one.
    std::string awaitHidden() {
        std::unique_lock<std::mutex> guard(mLock);
        mChanged.wait_for(guard, LIMIT, [&] { return mFates.find('H') != std::string::npos; });
        return mFates;
    }
    void forget() {
        std::lock_guard<std::mutex> guard(mLock);
        mFates.clear();
    }
    unsigned int awaitError() {
        std::unique_lock<std::mutex> guard(mLock);
        mChanged.wait_for(guard, LIMIT, [&] { return !mErrors.empty(); });
        return mErrors.empty() ? 0 : mErrors.back();
    }
    int captures() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mCaptures;
    }
    void setCaptureWorks(bool works) {
        std::lock_guard<std::mutex> guard(mLock);
        mCaptureWorks = works;
    }

private:
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::string mFates;
    Uint33 mLastPTS = 0;
    int mCaptures = 0;
    bool mCaptureWorks = true;
    mutable std::vector<unsigned int> mErrors;
};

class VideoRendererTest : public testing::Test {
protected:
    void SetUp() override {
        OneSegPGL_InitializeDebug();  // the level asked for, which the capture does not read
        ASSERT_EQ(mRing->configure("raw", 13), 0);
        makeRenderer();
    }
    void TearDown() override { EXPECT_EQ(mRenderer->stop(), 0); }

    void makeRenderer() {
        mRenderer = new VideoRenderer(mSync);
        mRenderer->setInput(mRing);
        mRenderer->setFrameRenderedListener(&mFrames);
        mRenderer->setCaptureFrameListener(&mFrames);
        mRenderer->addErrorListener(mFrames);
        mRenderer->setOutputEnabled(true);
    }

    // The stream time is `pts` now.
    void setClock(Uint33 pts) { mSync->setBasePCR(pts, Synchronization::REAL_PCR); }

    void push(Uint33 pts, uint8_t flags = 0, uint32_t type = Data::VIDEO_FRAME) {
        unsigned char* block = mRing->write(VideoFrameData::FIXED_SIZE, RingBuffer::NON_BLOCKING);
        ASSERT_NE(block, nullptr);
        auto* record = new (block) VideoFrameData;
        record->mType = type;
        record->mSize = VideoFrameData::FIXED_SIZE;
        record->mPTS = pts & UINT33_MASK;
        record->mListener = &mFrames;
        record->mFlags = flags;
        record->mWidth = 1920;
        record->mHeight = 1080;
        mRing->writeAdvance(VideoFrameData::FIXED_SIZE);
    }

    struct Frame {
        int64_t pts;  // from START
        uint8_t flags = 0;
    };

    // Shows the frames one by one, each when the clock has just reached it.
    std::string play(const std::vector<Frame>& frames, Uint33 start = START) {
        setClock(start & UINT33_MASK);
        mRenderer->start();
        std::string fates;
        for (size_t i = 0; i < frames.size(); ++i) {
            const int64_t dueMs = (frames[i].pts + 89) / 90;
            if (dueMs > mElapsedMs) {
                mClock.advance(static_cast<uint64_t>(dueMs - mElapsedMs));
                mElapsedMs = dueMs;
            }
            push(start + static_cast<uint64_t>(frames[i].pts), frames[i].flags);
            fates = mFrames.await(i + 1);
        }
        return fates;
    }

    bool isTraced(const std::string& part) {
        const std::vector<std::string> lines = mTrace.take();
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.find(part) != std::string::npos;
        });
    }

    orvtest::MonotonicClock mClock{NOW_MS};
    orvtest::TraceCapture mTrace;
    Frames mFrames;
    android::sp<Synchronization> mSync = new Synchronization;
    android::sp<RingBuffer> mRing = new RingBuffer;
    android::sp<VideoRenderer> mRenderer;
    int64_t mElapsedMs = 0;
};

struct WaitCase {
    int64_t earlyTicks;
    int offsetMs;
    char fate;
    bool resets;
};

constexpr int64_t MS = 90;

TEST_F(VideoRendererTest, DropsFramesOfAbsurdTime) {
    const WaitCase cases[] = {
        {0, 0, 'S', false},
        {20 * MS, 0, 'S', false},
        {-500 * MS, 0, 'S', false},
        {-999 * MS - 89, 0, 'S', false},  // whole milliseconds count, cut towards zero
        {-1000 * MS, 0, 'D', false},
        {-10'000 * MS, 0, 'D', false},
        {-10'001 * MS, 0, 'D', true},
        {10'001 * MS, 0, 'D', true},
        {12'000 * MS, 0, 'D', true},
        {-1200 * MS, 300, 'S', false},  // a delay of the pictures counts
        {0, -1000, 'D', false},
        {1 * MS, INT_MAX, 'D', true},  // and any number is harmless
        {-1 * MS, INT_MIN, 'D', true},
    };
    std::string expected;
    for (const WaitCase& wanted : cases) {
        SCOPED_TRACE(testing::Message() << wanted.earlyTicks << " + " << wanted.offsetMs);
        mRenderer->stop();  // each for itself: no steps of the PTS
        mSync->resetPCR();
        setClock(START * 2);
        mRenderer->setAVSyncOffset(wanted.offsetMs);
        mRenderer->start();
        mTrace.take();
        push(START * 2 + static_cast<uint64_t>(wanted.earlyTicks));
        expected += wanted.fate;
        EXPECT_EQ(mFrames.await(expected.size()), expected);
        mRenderer->stop();
        EXPECT_EQ(isTraced("PCR resynchronization forced due to huge difference in wait interaval"),
                  wanted.resets);
    }
}

// After a huge gap the clock takes the next value that it is offered, however near it is.
TEST_F(VideoRendererTest, AHugeGapResetsTheClock) {
    setClock(START);
    mRenderer->start();
    push(START + 12'000 * MS);
    EXPECT_EQ(mFrames.await(1), "D");
    mClock.advance(100);
    setClock(START + 150 * MS);
    EXPECT_EQ(mSync->getPCRValue(), START + 150 * MS);
}

TEST_F(VideoRendererTest, WithoutAClockEveryFrameIsDroppedAndNothingReset) {
    mRenderer->start();
    push(START);
    EXPECT_EQ(mFrames.await(1), "D");
    mRenderer->stop();
    const std::vector<std::string> lines = mTrace.take();
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "render: discarding frame due to bad rendering time: -1000"),
              1);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.find("forced") < 99; }),
              0);
}

// A forward step of 25 times the smallest one is an error, whatever the clock says.
TEST_F(VideoRendererTest, ChecksTheStepsOfThePTS) {
    const int64_t under = 25 * FRAME - 1;
    const int64_t over = 25 * FRAME;
    struct Case {
        std::vector<Frame> frames;
        const char* fates;
    };
    const Case cases[] = {
        {{{0}, {FRAME}, {2 * FRAME}, {2 * FRAME + under}}, "SSSS"},
        {{{0}, {FRAME}, {2 * FRAME}, {2 * FRAME + over}}, "SSSD"},
        // The first step is the measure even when it is a large one, a smaller one replaces it.
        {{{0}, {30 * FRAME}, {31 * FRAME}, {31 * FRAME + over}}, "SSSD"},
        // Backwards, or the same again, is no error and no measure.
        {{{FRAME}, {0}, {FRAME}, {FRAME}, {FRAME + under}}, "SSSSS"},
        // The IDR frame that ends it is shown; the measure is taken anew.
        {{{0},
          {FRAME},
          {FRAME + over},
          {2 * FRAME + over, VideoFrameData::FLAG_IDR},
          {4 * FRAME + over}},
         "SSDSS"},
        {{{0}, {FRAME}, {FRAME + over, VideoFrameData::FLAG_IDR}}, "SSS"},
        // Any step back while skipping looks like a long wait.
        {{{0}, {FRAME}, {FRAME + over}, {over - 1}}, "SSDS"},
    };
    for (const Uint33 start : {START, WRAP - FRAME - 5, WRAP - 3 * FRAME}) {
        for (const Case& wanted : cases) {
            SCOPED_TRACE(testing::Message() << "from " << start << ": " << wanted.fates);
            EXPECT_EQ(play(wanted.frames, start), wanted.fates);
            mRenderer->stop();
            mFrames.forget();
            mSync->resetPCR();
            mElapsedMs = 0;
        }
    }
}

// The wait is counted from the first frame that was skipped, and the frame that ends it is shown.
TEST_F(VideoRendererTest, SkipsForOneSecondWithoutIDR) {
    const int64_t jump = FRAME + 90'090;
    EXPECT_EQ(play({{0}, {FRAME}, {jump}, {jump + 45'000}, {jump + 89'999}}), "SSDDD");
    mRenderer->stop();
    mFrames.forget();
    mSync->resetPCR();
    mElapsedMs = 0;
    mTrace.take();
    EXPECT_EQ(
        play({{0}, {FRAME}, {jump}, {jump + 45'000}, {jump + 90'000}, {jump + 90'000 + FRAME}}),
        "SSDDSS");
    mRenderer->stop();
    const std::vector<std::string> lines = mTrace.take();
    const auto traced = [&](const std::string& line) {
        return std::count(lines.begin(), lines.end(), line);
    };
    EXPECT_EQ(traced("checkDeltaPTSError: error detected - delta PTS = 90090; mDetectedDeltaPTS = "
                     "3003"),
              1);
    EXPECT_EQ(traced("checkDeltaPTSError: skip frame; waiting for next IDR frame"), 1);
    EXPECT_EQ(traced("checkDeltaPTSError: waited too much for IDR frame (1s); rendering available "
                     "frames)"),
              1);
    EXPECT_EQ(traced("render: discarding frame due to (delta) PTS Error"), 2);
}

TEST_F(VideoRendererTest, AStopDuringTheWaitIsQuickAndKeepsTheFrame) {
    setClock(START);
    mRenderer->start();
    push(START + 9'000 * MS);
    const auto begin = steady_clock::now();
    while (mRing->getDataSize() > 0 && steady_clock::now() - begin < LIMIT) {
        std::this_thread::yield();
    }
    const auto stopped = steady_clock::now();
    EXPECT_EQ(mRenderer->stop(), 0);
    EXPECT_LT(steady_clock::now() - stopped, std::chrono::seconds(1));
    EXPECT_EQ(mFrames.await(0), "");
    EXPECT_EQ(mRenderer->stop(), 0);

    // And it starts again, with no PTS of the run before.
    EXPECT_EQ(mRenderer->start(), 0);
    EXPECT_EQ(mRenderer->start(), 0);
    push(START);
    EXPECT_EQ(mFrames.await(1), "S");
    mRenderer->requestExit();
    EXPECT_EQ(mRenderer->start(), 0);  // sees off the thread that was asked to exit
    push(START);
    EXPECT_EQ(mFrames.await(2), "SS");
    EXPECT_EQ((android::sp<VideoRenderer>(new VideoRenderer(mSync)))->start(), 1);  // no input
}

TEST_F(VideoRendererTest, ReportsAForeignRecordAndGoesOn) {
    setClock(START);
    mRenderer->start();
    push(START, 0, Data::AUDIO_FRAGMENT);
    push(START);
    EXPECT_EQ(mFrames.awaitError(), 0x41003u);
    EXPECT_EQ(mFrames.await(1), "S");
}

TEST_F(VideoRendererTest, HandsFramesBackUnseenWhileTheOutputIsOff) {
    setClock(START);
    mRenderer->setOutputEnabled(false);
    mRenderer->start();
    push(START);
    EXPECT_EQ(mFrames.awaitHidden(), "H");
}

// Counts, intervals and tries of still frames, one frame every 40 ms.
TEST_F(VideoRendererTest, NotesWhatBecomesOfEachFrame) {
    PresentationLog& log = PresentationLog::instance();
    log.setOn(true);
    setClock(START);
    mRenderer->start();
    push(START);
    EXPECT_EQ(mFrames.await(1).substr(0, 1), "S");
    push(START - 1500 * MS);
    mFrames.await(2);
    mRenderer->setOutputEnabled(false);
    push(START + 20 * MS);
    mFrames.awaitHidden();
    mRenderer->stop();
    log.setOn(false);

    PresentationRecord records[8];
    uint64_t missed = 0;
    ASSERT_EQ(log.take(records, std::size(records), &missed), 3U);
    const std::pair<PresentationRecord::Outcome, int> expected[] = {
        {PresentationRecord::SHOWN, 0},
        {PresentationRecord::LATE, -1500},
        {PresentationRecord::SHUT, 20}};
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(records[i].kind, PresentationRecord::VIDEO);
        EXPECT_EQ(records[i].outcome, expected[i].first);
        EXPECT_EQ(records[i].waitMs, expected[i].second);
        EXPECT_EQ(records[i].clock, START);
        EXPECT_EQ(records[i].pts, uint33Sum(START, expected[i].second * MS));
    }
    EXPECT_EQ(missed, 0U);
}

TEST_F(VideoRendererTest, TakesStillsAtTheirIntervals) {
    setClock(START);
    mRenderer->start();
    size_t shown = 0;
    const auto showUntil = [&](int64_t ms) {
        for (; mElapsedMs < ms; mElapsedMs += 40) {
            push(START + static_cast<uint64_t>(mElapsedMs * MS));
            ++shown;
            ASSERT_EQ(mFrames.await(shown).size(), shown);
            mClock.advance(40);
        }
    };
    showUntil(80);
    EXPECT_EQ(mFrames.captures(), 0);

    EXPECT_EQ(mRenderer->getFrame(2, 100), 0);
    EXPECT_EQ(mRenderer->getFrame(50, 0), 0);  // passed over: two are still to come
    showUntil(120);
    EXPECT_EQ(mFrames.captures(), 1);
    showUntil(160);
    EXPECT_EQ(mFrames.captures(), 1);
    showUntil(400);
    EXPECT_EQ(mFrames.captures(), 2);

    // A frame that cannot be taken is tried three times, then given up.
    mFrames.setCaptureWorks(false);
    EXPECT_EQ(mRenderer->getFrame(2, 0), 0);
    showUntil(800);
    EXPECT_EQ(mFrames.captures(), 2 + 6);

    mFrames.setCaptureWorks(true);
    EXPECT_EQ(mRenderer->getFrame(100, 0), 0);
    EXPECT_EQ(mRenderer->cancelCaptureFrame(), 0);
    showUntil(880);
    EXPECT_EQ(mFrames.captures(), 2 + 6);

    mClock.fail();
    EXPECT_EQ(mRenderer->getFrame(1, 0), 0);
    EXPECT_TRUE(isTraced("getFrame: Error getting time: "));
}

}  // namespace
