#include "renderer/ClosedCaptionRenderer.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "common/PresentationLog.h"
#include "common/Trace.h"

namespace OrvPlayer {

namespace {

constexpr uint32_t HEADER = ClosedCaptionFragmentData::FIXED_SIZE;
constexpr int64_t TICKS_PER_MS = 90;
constexpr int64_t LONGEST_WAIT_MS = 2999;

}  // namespace

// Joined before the renderer goes, hence the plain pointer.
class ClosedCaptionRenderer::WorkerThread : public android::Thread {
public:
    explicit WorkerThread(ClosedCaptionRenderer* renderer)
        : android::Thread(true), mRenderer(renderer) {}

private:
    bool threadLoop() override {
        if (exitPending()) {
            return false;
        }
        mRenderer->renderFrame();
        return true;
    }

    ClosedCaptionRenderer* const mRenderer;
};

ClosedCaptionRenderer::ClosedCaptionRenderer(android::sp<Synchronization> sync)
    : Module("ClosedCaptionRenderer"), mSync(std::move(sync)) {}

ClosedCaptionRenderer::~ClosedCaptionRenderer() {
    ClosedCaptionRenderer::stop();
}

int ClosedCaptionRenderer::start() {
    std::lock_guard<std::mutex> guard(mStartStopLock);
    if (mInput == nullptr) {
        ORV_LOGV("%s NULL parameter!", __func__);
        return 1;
    }
    if (mWorker != nullptr && !mExitRequested) {
        return 0;
    }
    join();
    mExitRequested = false;
    mWorker = new WorkerThread(this);
    if (mWorker->run("CCWorkerThreadRenderer") != android::OK) {
        ORV_LOGE("%s: could not start thread!\n", __func__);
        mWorker = nullptr;
        return 1;
    }
    return 0;
}

int ClosedCaptionRenderer::stop() {
    requestExit();
    std::lock_guard<std::mutex> guard(mStartStopLock);
    join();
    return 0;
}

void ClosedCaptionRenderer::requestExit() {
    std::lock_guard<std::mutex> guard(mStartStopLock);
    if (mWorker == nullptr) {
        return;
    }
    // Before the sleep is ended: each caption that is taken after that would be presented.
    mWorker->requestExit();
    {
        std::lock_guard<std::mutex> sleeping(mRenderLock);
        mExitRequested = true;
    }
    mRenderCondition.notify_all();
    mInput->wakeReaders();
    mInput->wakeWriters();
}

// After requestExit(), with mStartStopLock held.
void ClosedCaptionRenderer::join() {
    if (mWorker != nullptr) {
        mWorker->requestExitAndWait();
        mWorker = nullptr;
    }
}

void ClosedCaptionRenderer::setCaptionSync(int offsetMs) {
    ORV_LOGV("%s: ClosedCaptionRenderer::setCaptionSync %d", __func__, offsetMs);
    mCaptionSyncOffset = offsetMs;
}

void ClosedCaptionRenderer::renderFrame() {
    unsigned char* block = mInput->read(HEADER, RingBuffer::BLOCKING);
    if (block == nullptr) {
        return;
    }
    const uint32_t size =
        std::max(reinterpret_cast<ClosedCaptionFragmentData*>(block)->mSize, HEADER);
    mInput->readAdvance(0);
    block = mInput->read(size, RingBuffer::BLOCKING);
    if (block == nullptr) {
        ORV_LOGE("%s: m_pInputRingBuffer read failed to get Closed Caption String", __func__);
        return;
    }
    const Uint33 pts = reinterpret_cast<ClosedCaptionFragmentData*>(block)->mPTS;
    const int64_t waitMs = waitTimeMs(pts);
    // Deliberate: a caption that does not wait takes no notice of the offset. See
    // ClosedCaptionRendererTest.PresentsWhenDue.
    if (waitMs >= 1 && waitMs <= LONGEST_WAIT_MS) {
        sleepUntilDue(waitMs + mCaptionSyncOffset);
    }
    ClosedCaptionListener* const listener = mCaptionListener;
    const bool isShown = listener != nullptr && mOutputEnabled;
    note(pts, waitMs, isShown);
    if (isShown) {
        listener->onClosedCaptionReceived(block + HEADER, static_cast<int>(size - HEADER));
    }
    mInput->readAdvance(size);
}

void ClosedCaptionRenderer::note(Uint33 pts, int64_t waitMs, bool isShown) {
    PresentationLog& log = PresentationLog::instance();
    if (!log.isOn()) {
        return;
    }
    PresentationRecord record;
    record.kind = PresentationRecord::CAPTION;
    record.outcome = isShown ? PresentationRecord::SHOWN : PresentationRecord::SHUT;
    record.pts = pts;
    record.waitMs = static_cast<int32_t>(waitMs);
    mSync->getActualDefinedPCR(&record.clock);
    log.add(record);
}

// 0 without a presentation time.
int64_t ClosedCaptionRenderer::waitTimeMs(Uint33 pts) {
    Uint33 now = 0;
    return mSync->getActualDefinedPCR(&now) ? uint33Difference(pts, now) / TICKS_PER_MS : 0;
}

void ClosedCaptionRenderer::sleepUntilDue(int64_t waitMs) {
    std::unique_lock<std::mutex> guard(mRenderLock);
    mRenderCondition.wait_for(guard, std::chrono::milliseconds(waitMs),
                              [this] { return mExitRequested; });
}

}  // namespace OrvPlayer
