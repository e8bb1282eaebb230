#include "platform/media/player/PlayerDriver.h"

#include <algorithm>

#include "pattern/TestPattern.h"
#include "support/Await.h"

namespace orvtest {

using android::GraphicBuffer;

namespace {

void lookAt(const android_ycbcr& planes, int x, int y, int* sample) {
    const auto* luma = static_cast<const uint8_t*>(planes.y);
    const auto* chroma = static_cast<const uint8_t*>(planes.cb);
    sample[0] = luma[static_cast<size_t>(y) * planes.ystride + static_cast<size_t>(x)];
    const size_t at = static_cast<size_t>(y / 2) * planes.cstride + static_cast<size_t>(x / 2 * 2);
    sample[1] = chroma[at];
    sample[2] = chroma[at + 1];
}

SeenPicture lookAt(const orvhost::AcquiredBuffer& acquired) {
    SeenPicture seen;
    seen.width = static_cast<int>(acquired.buffer->getWidth());
    seen.height = static_cast<int>(acquired.buffer->getHeight());
    seen.input = acquired.input;
    android_ycbcr planes = {};
    acquired.buffer->lockYCbCr(GraphicBuffer::USAGE_SW_READ_OFTEN, &planes);
    const auto number = readFrameNumber(static_cast<const uint8_t*>(planes.y),
                                        static_cast<int>(planes.ystride), seen.width, seen.height);
    seen.number = number ? static_cast<int>(*number) : -1;
    lookAt(planes, seen.width / 4, seen.height * 7 / 8, seen.left);
    lookAt(planes, seen.width * 3 / 4, seen.height * 7 / 8, seen.right);
    acquired.buffer->unlock();
    return seen;
}

}  // namespace

TestWindow::TestWindow() {
    orvhost::BufferQueue::create(&mProducer, &mConsumer);
    mThread = std::thread([this] { run(); });
}

TestWindow::~TestWindow() {
    mExit = true;
    mThread.join();
}

void TestWindow::run() {
    while (!mExit) {
        orvhost::AcquiredBuffer acquired;
        if (mFrozen || mConsumer->acquire(&acquired, 10) != android::OK) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        const SeenPicture seen = lookAt(acquired);
        mConsumer->release(acquired.slot);
        const std::lock_guard guard(mLock);
        mPictures.push_back(seen);
    }
}

std::vector<SeenPicture> TestWindow::pictures() const {
    const std::lock_guard guard(mLock);
    return mPictures;
}

bool TestWindow::awaitCount(size_t count) const {
    return await([&] {
        const std::lock_guard guard(mLock);
        return mPictures.size() >= count;
    });
}

int TestWindow::lastNumber() const {
    const std::lock_guard guard(mLock);
    return mPictures.empty() ? -1 : mPictures.back().number;
}

int TestWindow::awaitLast(int number) const {
    await([&] { return lastNumber() == number; });
    return lastNumber();
}

void NotificationLog::notify(int msg, int ext1, int ext2, const android::Parcel* /*obj*/) {
    const std::string text =
        msg == android::MEDIA_PLAYBACK_COMPLETE ? "complete"
        : msg == android::MEDIA_SET_VIDEO_SIZE
            ? "size " + std::to_string(ext1) + "x" + std::to_string(ext2)
        : msg == android::MEDIA_ERROR ? "error " + std::to_string(ext2)
        : msg == android::MEDIA_INFO && ext1 == android::MEDIA_INFO_RENDERING_START ? "start"
                                                                                    : "";
    const std::lock_guard guard(mLock);
    if (!text.empty()) {
        mEvents.push_back(text);
    }
}

std::vector<std::string> NotificationLog::events() const {
    const std::lock_guard guard(mLock);
    return mEvents;
}

size_t NotificationLog::count(const std::string& event) const {
    const auto all = events();
    return static_cast<size_t>(std::count(all.begin(), all.end(), event));
}

bool NotificationLog::await(const std::string& event, size_t times) const {
    return orvtest::await([&] { return count(event) >= times; }, std::chrono::seconds(30));
}

}  // namespace orvtest
