#include "renderer/ClosedCaptionRenderer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "support/Await.h"
#include "support/MonotonicClock.h"
#include "support/Report.h"
#include "support/TraceCapture.h"
#include "trace/OneSegPGL.h"

namespace {

using namespace OrvPlayer;
using orvtest::await;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::chrono::seconds LIMIT{5};
constexpr Uint33 START = 900'000;
constexpr int64_t MS = 90;
constexpr uint32_t HEADER = ClosedCaptionFragmentData::FIXED_SIZE;
// Far ahead of the real clock, so that only a wake-up ends a timed wait of the ring buffers.
constexpr uint64_t NOW_MS = 1'000'000'000'000;

// The texts that came and when the last one did.
class Captions : public ClosedCaptionListener {
public:
    void onClosedCaptionReceived(unsigned char* text, int length) override {
        std::lock_guard<std::mutex> guard(mLock);
        mTexts.emplace_back(reinterpret_cast<char*>(text), static_cast<size_t>(length));
        mLastTime = steady_clock::now();
        mChanged.notify_all();
    }
    std::vector<std::string> await(size_t count) {
        std::unique_lock<std::mutex> guard(mLock);
        mChanged.wait_for(guard, LIMIT, [&] { return mTexts.size() >= count; });
        return mTexts;
    }
    steady_clock::time_point lastTime() {
        std::lock_guard<std::mutex> guard(mLock);
        return mLastTime;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<std::string> mTexts;
    steady_clock::time_point mLastTime;
};

class ClosedCaptionRendererTest : public testing::Test {
protected:
    void SetUp() override {
        OneSegPGL_InitializeDebug();
        ASSERT_EQ(mRing->configure("captions", 12), 0);
        mRenderer->setInput(mRing);
        mRenderer->registerListener(&mCaptions);
        mRenderer->setOutputEnabled(true);
    }
    void TearDown() override { EXPECT_EQ(mRenderer->stop(), 0); }

    // The stream time is `pts` and stands: the clock is moved by nobody.
    void setClock(Uint33 pts) {
        mSync->resetPCR();
        mSync->setBasePCR(pts & UINT33_MASK, Synchronization::REAL_PCR);
    }

    // `committed` bytes of the record; the whole of it unless told.
    void push(Uint33 pts, const std::string& text, uint32_t committed = UINT_MAX) {
        const auto size = static_cast<uint32_t>(HEADER + text.size());
        unsigned char* block = mRing->write(size, RingBuffer::NON_BLOCKING);
        ASSERT_NE(block, nullptr);
        auto* record = new (block) ClosedCaptionFragmentData;
        record->mType = Data::CLOSED_CAPTION;
        record->mSize = size;
        record->mPTS = pts & UINT33_MASK;
        memcpy(block + HEADER, text.data(), text.size());
        mRing->writeAdvance(std::min(size, committed));
    }

    bool ringIsRead() {
        return await([&] { return mRing->getDataSize() == 0; });
    }

    orvtest::MonotonicClock mClock{NOW_MS};
    orvtest::TraceCapture mTrace;
    Captions mCaptions;
    android::sp<Synchronization> mSync = new Synchronization;
    android::sp<RingBuffer> mRing = new RingBuffer;
    android::sp<ClosedCaptionRenderer> mRenderer = new ClosedCaptionRenderer(mSync);
};

// A caption that is up to three seconds early waits, and only then does the offset count: where it
// does not, one that would never end is harmless.
TEST_F(ClosedCaptionRendererTest, PresentsWhenDue) {
    constexpr int FOREVER = INT_MAX;
    const struct {
        Uint33 clock;
        int64_t earlyTicks;
        int offsetMs;
        int waitMs;
    } cases[] = {
        {START, 120 * MS, 0, 120},
        {START, 50 * MS, 70, 120},
        {START, 1 * MS, 100, 101},
        {START, 2999 * MS + 89, -2900, 99},
        {START, 500 * MS, -501, 0},
        {START, 500 * MS, INT_MIN, 0},
        {UINT33_MASK - 10, 60 * MS, 60, 120},
        // Due, late, or too early.
        {START, 89, FOREVER, 0},
        {START, 0, FOREVER, 0},
        {START, -1 * MS, FOREVER, 0},
        {START, -3600'000 * MS, FOREVER, 0},
        {START, 3000 * MS, FOREVER, 0},
        {START, 5000 * MS, FOREVER, 0},
        {UINT33_MASK - 10, 3000 * MS, FOREVER, 0},
    };
    size_t count = 0;
    ASSERT_EQ(mRenderer->start(), 0);
    for (const auto& wanted : cases) {
        SCOPED_TRACE(testing::Message() << wanted.earlyTicks << " + " << wanted.offsetMs);
        setClock(wanted.clock);
        mRenderer->setCaptionSync(wanted.offsetMs);
        const auto begin = steady_clock::now();
        push(wanted.clock + static_cast<uint64_t>(wanted.earlyTicks), "text");
        ASSERT_EQ(mCaptions.await(++count).size(), count);
        EXPECT_GE(mCaptions.lastTime() - begin, milliseconds(wanted.waitMs));
    }
}

TEST_F(ClosedCaptionRendererTest, PresentsAtOnceWithoutAClock) {
    mRenderer->setCaptionSync(INT_MAX);
    push(START, "one");
    push(START + 1000 * MS, "");
    push(START + 2000 * MS, "three");
    ASSERT_EQ(mRenderer->start(), 0);
    EXPECT_THAT(mCaptions.await(3), ElementsAre("one", "", "three"));
    EXPECT_TRUE(ringIsRead());
}

TEST_F(ClosedCaptionRendererTest, DropsWhatNobodyShallSee) {
    ASSERT_EQ(mRenderer->start(), 0);
    mRenderer->setOutputEnabled(false);
    push(START, "unseen");
    EXPECT_TRUE(ringIsRead());
    mRenderer->setOutputEnabled(true);
    mRenderer->registerListener(nullptr);
    push(START, "unheard");
    EXPECT_TRUE(ringIsRead());
    mRenderer->registerListener(&mCaptions);
    push(START, "seen");
    EXPECT_THAT(mCaptions.await(1), ElementsAre("seen"));
}

// The caption that waits is presented, the one behind it stays for the next start.
TEST_F(ClosedCaptionRendererTest, AStopEndsTheWaitAtOnce) {
    setClock(START);
    mRenderer->setCaptionSync(INT_MAX);
    for (const char* text : {"waiting", "behind", "last"}) {
        push(START + 2000 * MS, text);
    }
    ASSERT_EQ(mRenderer->start(), 0);
    EXPECT_EQ(mRenderer->start(), 0);
    const auto taken = [&] {
        return orvtest::reportOf(*mRing).find("ReadLock: \033[01;31mLocked") != std::string::npos;
    };
    ASSERT_TRUE(await(taken));
    const auto begin = steady_clock::now();
    EXPECT_EQ(mRenderer->stop(), 0);
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_THAT(mCaptions.await(1), ElementsAre("waiting"));
    EXPECT_EQ(mRenderer->stop(), 0);

    ASSERT_EQ(mRenderer->start(), 0);
    ASSERT_TRUE(await(taken));
    mRenderer->requestExit();
    EXPECT_THAT(mCaptions.await(2), ElementsAre("waiting", "behind"));
    setClock(START + 2000 * MS);
    EXPECT_EQ(mRenderer->start(), 0);  // sees off the worker that was asked to exit
    EXPECT_THAT(mCaptions.await(3), ElementsAre("waiting", "behind", "last"));
}

TEST_F(ClosedCaptionRendererTest, KeepsARecordOfWhichThereIsOnlyAPart) {
    push(START, "in two parts", HEADER + 4);
    mTrace.take();
    ASSERT_EQ(mRenderer->start(), 0);
    std::vector<std::string> lines;
    EXPECT_TRUE(await([&] {
        mRing->wakeReaders();
        lines = mTrace.take();
        return !lines.empty();
    }));
    EXPECT_EQ(lines[0], "renderFrame: m_pInputRingBuffer read failed to get Closed Caption String");
    ASSERT_NE(mRing->write(8, RingBuffer::NON_BLOCKING), nullptr);
    mRing->writeAdvance(8);
    EXPECT_THAT(mCaptions.await(1), ElementsAre("in two parts"));
    EXPECT_TRUE(ringIsRead());
}

TEST_F(ClosedCaptionRendererTest, NeedsAnInput) {
    android::sp<ClosedCaptionRenderer> renderer = new ClosedCaptionRenderer(mSync);
    EXPECT_EQ(renderer->getModuleName(), "ClosedCaptionRenderer");
    EXPECT_EQ(renderer->start(), 1);
    EXPECT_EQ(renderer->stop(), 0);
}

}  // namespace
