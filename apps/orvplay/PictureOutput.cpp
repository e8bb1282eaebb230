#include "PictureOutput.h"

#include <future>
#include <utility>

#include "MonotonicTime.h"
#include "PictureView.h"
#include "pattern/TestPattern.h"

namespace orvplay {

namespace {

constexpr size_t REQUESTS_MAX = 64;  // keys held while the player's thread is busy

struct Marks {
    std::optional<uint32_t> number;
    bool flash = false;
};

Marks readMarks(const orvhost::AcquiredBuffer& picture) {
    Marks marks;
    void* luma = nullptr;
    if (picture.buffer->lock(android::GraphicBuffer::USAGE_SW_READ_OFTEN, &luma) != android::OK) {
        return marks;
    }
    const auto* pixels = static_cast<const uint8_t*>(luma);
    const auto stride = static_cast<int>(picture.buffer->getStride());
    const auto width = static_cast<int>(picture.buffer->getWidth());
    const auto height = static_cast<int>(picture.buffer->getHeight());
    marks.number = orvtest::readFrameNumber(pixels, stride, width, height);
    marks.flash = marks.number.has_value() && orvtest::isFlash(pixels, stride, width, height);
    picture.buffer->unlock();
    return marks;
}

}  // namespace

PictureOutput::PictureOutput(const android::sp<orvhost::BufferQueue::Consumer>& consumer,
                             std::unique_ptr<Display> display, SyncMeter& sync)
    : mConsumer(consumer),
      mHasDisplay(display != nullptr),
      mShowsPictures(mHasDisplay && display->takesPictures()),
      mDisplay(std::move(display)),
      mSync(sync) {}

PictureOutput::~PictureOutput() {
    stop();
}

bool PictureOutput::start() {
    if (!mShowsPictures) {
        mConsumer->setFrameAvailableListener([this] { takePicture(0); });
    }
    if (!mHasDisplay) {
        return true;
    }
    std::promise<bool> opened;
    std::future<bool> result = opened.get_future();
    mThread = std::thread([this, &opened] { run([&opened](bool ok) { opened.set_value(ok); }); });
    if (!result.get()) {
        mThread.join();
        return false;
    }
    return true;
}

void PictureOutput::stop() {
    mStopRequested = true;
    mConsumer->setFrameAvailableListener({});
    mConsumer->abandon();  // wakes the thread
    if (mThread.joinable()) {
        mThread.join();
    }
}

void PictureOutput::run(std::function<void(bool)> opened) {
    if (!mDisplay->open()) {
        opened(false);
        return;
    }
    const auto tellSize = [this] {
        if (mShowsPictures) {
            mConsumer->setDisplaySize(mDisplay->width(), mDisplay->height());
        }
    };
    tellSize();
    opened(true);
    while (!mStopRequested) {
        if (mShowsPictures) {
            takePicture(mDisplay->waitMs());
        }
        passCaption();
        passTexts();
        for (UserRequest& wanted : mDisplay->handleEvents()) {
            request(std::move(wanted));
        }
        tellSize();
    }
    mDisplay = nullptr;  // closed by the thread that opened it
}

void PictureOutput::takePicture(int timeoutMs) {
    orvhost::AcquiredBuffer picture;
    if (mConsumer->acquire(&picture, timeoutMs) == android::OK) {
        onPicture(picture);
    }
}

void PictureOutput::passCaption() {
    const auto caption = mCaption.take();
    if (!mCaptionsVisible) {
        if (std::exchange(mCaptionShown, false)) {
            mDisplay->showCaption("");
        }
    } else if (caption != nullptr) {
        mDisplay->showCaption(*caption);
        mCaptionShown = true;
    }
}

void PictureOutput::passTexts() {
    if (const auto status = mStatus.take(); status != nullptr) {
        mDisplay->showStatus(status->text, status->stays);
    }
    if (const auto channels = mChannels.take(); channels != nullptr) {
        mDisplay->showChannels(*channels);
    }
    // A banner that is asked for with a state is not to show an older one.
    const bool isBannerWanted = mBannerWanted.exchange(false);
    if (const auto state = mState.take(); state != nullptr) {
        mDisplay->showState(*state);
    }
    if (isBannerWanted) {
        mDisplay->showBanner();
    }
}

void PictureOutput::request(UserRequest request) {
    if (request.what == Request::QUIT) {
        mQuitRequested = true;
        return;
    }
    std::lock_guard<std::mutex> guard(mRequestLock);
    if (mRequests.size() < REQUESTS_MAX) {
        mRequests.push_back(std::move(request));
    }
}

std::vector<UserRequest> PictureOutput::takeRequests() {
    std::lock_guard<std::mutex> guard(mRequestLock);
    return std::exchange(mRequests, {});
}

void PictureOutput::showState(const ScreenState& state) {
    if (mHasDisplay) {
        mState.put(std::make_unique<ScreenState>(state));
    }
}

void PictureOutput::showChannels(const ChannelRows& channels) {
    if (mHasDisplay) {
        mChannels.put(std::make_unique<ChannelRows>(channels));
    }
}

void PictureOutput::showStatus(std::string utf8, bool stays) {
    if (mHasDisplay) {
        mStatus.put(std::make_unique<Status>(Status{std::move(utf8), stays}));
    }
}

void PictureOutput::showCaption(std::string utf8) {
    if (mHasDisplay) {
        mCaption.put(std::make_unique<std::string>(std::move(utf8)));
    }
}

void PictureOutput::expectBreak() {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mBreakExpected = true;
        mFigures.breakEndNs = 0;
    }
    mSync.onBreak();
}

void PictureOutput::onPicture(const orvhost::AcquiredBuffer& picture) {
    const int64_t now = monotonicNs();
    const Marks marks = readMarks(picture);
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mBreakExpected.exchange(false)) {
            mMeter.onBreak();
            mFigures.breakEndNs = now;
        }
        mMeter.onFrame(picture.input.timestamp, now, marks.number);
        ++mFigures.frames;
        if (mFigures.frames == 1) {
            mFigures.firstFrameNs = now;
            mFirst.notify_all();
        }
        mFigures.lastFrameNs = now;
        mFigures.lastTimestampNs = picture.input.timestamp;
        mFigures.width = picture.input.crop.right - picture.input.crop.left + 1;
        mFigures.height = picture.input.crop.bottom - picture.input.crop.top + 1;
        mFigures.interlaced = picture.input.interlaced;
    }
    if (mPictureListener) {
        mPictureListener(picture.input.timestamp);
    }
    // A flash that was on before the first picture did not begin with it.
    if (marks.flash && !mFlashOn && mLast.buffer != nullptr) {
        mSync.onFlash(now);
    }
    mFlashOn = marks.flash;
    if (mShowsPictures) {
        mDisplay->show(picture);
    }
    keepLast(picture);
}

void PictureOutput::keepLast(const orvhost::AcquiredBuffer& picture) {
    int former = -1;
    {
        std::lock_guard<std::mutex> guard(mLastLock);
        former = mLast.slot;
        mLast = picture;
    }
    if (former >= 0) {
        mConsumer->release(former);
    }
}

bool PictureOutput::takeStill(Still* still) const {
    std::lock_guard<std::mutex> guard(mLastLock);
    const LockedPicture picture(mLast);
    return picture.isValid() && copyPicture(picture.view(), still);
}

void PictureOutput::awaitFirst(std::chrono::nanoseconds timeout) const {
    std::unique_lock<std::mutex> guard(mLock);
    mFirst.wait_for(guard, timeout, [this] { return mFigures.frames > 0; });
}

PictureOutput::Figures PictureOutput::figures() const {
    std::lock_guard<std::mutex> guard(mLock);
    Figures figures = mFigures;
    figures.jitterP50Ms = mMeter.jitter().quantileMs(0.50);
    figures.jitterP99Ms = mMeter.jitter().quantileMs(0.99);
    figures.jitterMaxMs = mMeter.jitter().maxMs();
    figures.longestGapMs = static_cast<double>(mMeter.longestGapNs()) * 1e-6;
    figures.numbers = mMeter.numbers();
    return figures;
}

}  // namespace orvplay
