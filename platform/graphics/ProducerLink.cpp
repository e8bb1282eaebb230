#include "graphics/ProducerLink.h"

#include <binder/Parcel.h>
#include <fcntl.h>

#include <chrono>

#include "graphics/BufferQueueCore.h"
#include "graphics/ProducerWire.h"
#include "trace/HostLog.h"

namespace orvhost {

using android::BAD_VALUE;
using android::GraphicBuffer;
using android::IGraphicBufferProducer;
using android::NO_INIT;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::WOULD_BLOCK;

namespace {

constexpr auto BUFFER_WAIT = std::chrono::milliseconds(5);
constexpr auto FIRST_BUFFER_WAIT = std::chrono::milliseconds(100);
constexpr uint64_t USAGE = GraphicBuffer::USAGE_SW_WRITE_OFTEN | GraphicBuffer::USAGE_SW_READ_OFTEN;
// Larger than any display; whoever computes with a window's size need not fear an overflow.
constexpr int MAX_DISPLAY = 32768;

bool isSlot(int slot) {
    return slot >= 0 && slot < ProducerLink::SLOTS;
}

}  // namespace

status_t ProducerLink::check() const {
    return mEnded || mApi == 0 || mRefused ? NO_INIT : OK;
}

bool ProducerLink::isTaken(int slot) const {
    return isSlot(slot) && mSlots[slot].state == State::TAKEN;
}

bool ProducerLink::isCurrent(const sp<GraphicBuffer>& buffer) const {
    return buffer != nullptr && buffer->getWidth() == mWidth && buffer->getHeight() == mHeight &&
           buffer->getPixelFormat() == mFormat;
}

// The lowest slots go first: memory that was never written to takes no pages.
int ProducerLink::findCredit() const {
    for (int i = 0; i < SLOTS; ++i) {
        if (mSlots[i].state == State::CREDITED && i != mLentSlot) {
            return i;
        }
    }
    return -1;
}

// Whatever credits are under way are stale from here on.
void ProducerLink::nextGeneration() {
    if (++mGeneration == 0) {
        ++mGeneration;
    }
}

void ProducerLink::forgetSlots(bool takenToo) {
    for (Slot& slot : mSlots) {
        if (takenToo || slot.state != State::TAKEN) {
            slot = {};
        }
    }
}

status_t ProducerLink::begin(int api, int64_t session) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mEnded) {
        return NO_INIT;
    }
    if (mApi != 0 || (api != NATIVE_WINDOW_API_MEDIA && api != NATIVE_WINDOW_API_CPU)) {
        return BAD_VALUE;
    }
    mApi = api;
    mSession = session;
    mRefused = false;
    mAnswered = true;
    mComplained = false;
    return OK;
}

status_t ProducerLink::end(int api, int64_t* session) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mEnded || mApi == 0) {
        return mEnded ? NO_INIT : BAD_VALUE;
    }
    if (api != mApi) {
        return BAD_VALUE;
    }
    *session = mSession;
    mApi = 0;
    mSession = 0;
    mWidth = 0;
    nextGeneration();
    forgetSlots(true);
    mLentSlot = -1;
    mLent.clear();
    mChanged.notify_all();
    return OK;
}

void ProducerLink::die() {
    std::lock_guard<std::mutex> lock(mLock);
    mEnded = true;
    nextGeneration();
    forgetSlots(true);
    mLatestSlot = -1;
    mLatest.clear();
    mLentSlot = -1;
    mLent.clear();
    mChanged.notify_all();
}

void ProducerLink::binderDied(const android::wp<android::IBinder>& /*who*/) {
    die();
}

status_t ProducerLink::setSize(uint32_t width, uint32_t height, android::PixelFormat format,
                               bool* changed) {
    std::lock_guard<std::mutex> lock(mLock);
    *changed = false;
    if (const status_t status = check(); status != OK) {
        return status;
    }
    if (width == mWidth && height == mHeight && format == mFormat) {
        return OK;
    }
    *changed = true;
    mWidth = width;
    mHeight = height;
    mFormat = format;
    nextGeneration();
    forgetSlots(false);
    mSizeIsNews = true;
    mMayWaitLong = mAnswered;
    mAnswered = false;
    mChanged.notify_all();  // who waits for another size waits in vain
    return OK;
}

ProducerLink::Request ProducerLink::request() const {
    std::lock_guard<std::mutex> lock(mLock);
    Request request;
    if (check() != OK || mWidth == 0) {
        return request;
    }
    request.generation = mGeneration;
    request.width = mWidth;
    request.height = mHeight;
    request.format = mFormat;
    for (int i = 0; i < SLOTS; ++i) {
        if (mSlots[i].state != State::AWAY) {
            request.kept |= 1u << i;
        }
    }
    return request;
}

status_t ProducerLink::take(uint32_t width, uint32_t height, int* slot) {
    std::unique_lock<std::mutex> lock(mLock);
    const int64_t session = mSession;
    const auto isOver = [&] { return check() != OK || mSession != session; };
    const auto isOther = [&] { return mWidth != width || mHeight != height; };
    const auto isReady = [&] { return isOver() || isOther() || findCredit() >= 0; };
    if (!isReady()) {
        const auto wait = mMayWaitLong && !mAnswered ? FIRST_BUFFER_WAIT : BUFFER_WAIT;
        if (!mChanged.wait_until(lock, std::chrono::steady_clock::now() + wait, isReady)) {
            mMayWaitLong = false;
            return WOULD_BLOCK;
        }
    }
    if (isOver()) {
        return NO_INIT;
    }
    if (isOther()) {
        return WOULD_BLOCK;
    }
    *slot = findCredit();
    Slot& taken = mSlots[*slot];
    taken.state = State::TAKEN;
    status_t flags = taken.requested ? 0 : IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION;
    if (mSizeIsNews) {
        mSizeIsNews = false;
        flags |= IGraphicBufferProducer::RELEASE_ALL_BUFFERS;
    }
    taken.requested = true;
    return flags;
}

status_t ProducerLink::bufferOf(int slot, sp<GraphicBuffer>* buffer) const {
    std::lock_guard<std::mutex> lock(mLock);
    if (const status_t status = check(); status != OK) {
        return status;
    }
    if (isSlot(slot) && slot == mLentSlot) {
        *buffer = mLent;
        return OK;
    }
    if (!isTaken(slot)) {
        return BAD_VALUE;
    }
    *buffer = mSlots[slot].buffer;
    return OK;
}

status_t ProducerLink::taken(int slot) const {
    std::lock_guard<std::mutex> lock(mLock);
    const status_t status = check();
    return status != OK ? status : isTaken(slot) ? OK : BAD_VALUE;
}

void ProducerLink::queued(int slot) {
    std::lock_guard<std::mutex> lock(mLock);
    if (check() != OK || !isTaken(slot)) {
        return;
    }
    mSlots[slot].state = State::AWAY;
    mLatestSlot = slot;
    mLatest = mSlots[slot].buffer;
    if (!isCurrent(mLatest)) {
        mSlots[slot] = {};
    }
}

status_t ProducerLink::cancel(int slot, bool* returned) {
    std::lock_guard<std::mutex> lock(mLock);
    *returned = false;
    if (const status_t status = check(); status != OK) {
        return status;
    }
    if (isSlot(slot) && slot == mLentSlot) {
        mLentSlot = -1;
        mLent.clear();
        mChanged.notify_all();  // the slot may have been credited meanwhile
        return OK;
    }
    if (!isTaken(slot)) {
        return BAD_VALUE;
    }
    if (isCurrent(mSlots[slot].buffer)) {
        mSlots[slot].state = State::CREDITED;
        mChanged.notify_all();
    } else {
        mSlots[slot] = {};
        *returned = true;
    }
    return OK;
}

status_t ProducerLink::lend(int* slot) {
    std::lock_guard<std::mutex> lock(mLock);
    if (const status_t status = check(); status != OK) {
        return status;
    }
    if (mLatestSlot < 0 || mLentSlot >= 0) {
        return WOULD_BLOCK;
    }
    *slot = mLentSlot = mLatestSlot;
    mLent = mLatest;
    return IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION;
}

status_t ProducerLink::query(int what, int* value) const {
    std::lock_guard<std::mutex> lock(mLock);
    if (mEnded) {
        return NO_INIT;
    }
    return BufferQueueCore::answerQuery(what, mDisplayWidth, mDisplayHeight, value);
}

status_t ProducerLink::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                  uint32_t flags) {
    if (code < producerwire::CREDIT || code > producerwire::ENDED) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    if (!data.enforceInterface(producerwire::LINK_DESCRIPTOR)) {
        return android::PERMISSION_DENIED;
    }
    switch (code) {
        case producerwire::CREDIT:
            return onCredits(data);
        case producerwire::DISPLAY_SIZE:
            return onDisplaySize(data);
        default:
            return onEnded(data);
    }
}

status_t ProducerLink::onCredits(const Parcel& data) {
    uint32_t generation = 0;
    status_t status = data.readUint32(&generation);
    while (status == OK && data.dataAvail() > 0) {
        status = onCredit(data, generation);
    }
    return status;
}

status_t ProducerLink::onCredit(const Parcel& data, uint32_t generation) {
    const int slot = data.readInt32();
    int32_t hasMemory = 0;
    const status_t status = data.readInt32(&hasMemory);
    if (status != OK || !isSlot(slot)) {
        return BAD_VALUE;
    }
    sp<GraphicBuffer> buffer;
    if (hasMemory != 0) {
        const int descriptor = data.readFileDescriptor();
        const Request asked = request();
        if (asked.generation != generation) {
            return OK;  // stale
        }
        const int ours = descriptor < 0 ? -1 : fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
        buffer = new GraphicBuffer(asked.width, asked.height, asked.format, USAGE, ours);
        if (buffer->initCheck() != OK) {
            std::lock_guard<std::mutex> lock(mLock);
            if (!mComplained) {
                mComplained = true;
                HOST_LOGW("%s: no picture fits into the window's buffer %d", __func__, slot);
            }
            return BAD_VALUE;
        }
    }
    credit(generation, slot, buffer);
    return OK;
}

void ProducerLink::credit(uint32_t generation, int slot, const sp<GraphicBuffer>& buffer) {
    std::lock_guard<std::mutex> lock(mLock);
    Slot& credited = mSlots[slot];
    if (check() != OK || generation != mGeneration || credited.state == State::TAKEN) {
        return;
    }
    if (buffer != nullptr) {
        credited.buffer = buffer;
        credited.requested = false;
    } else if (!isCurrent(credited.buffer)) {
        return;
    }
    credited.state = State::CREDITED;
    if (slot == mLatestSlot) {
        mLatest.clear();
        mLatestSlot = -1;
    }
    mAnswered = true;
    mChanged.notify_all();
}

status_t ProducerLink::onDisplaySize(const Parcel& data) {
    const int32_t width = data.readInt32();
    int32_t height = 0;
    if (data.readInt32(&height) != OK || width < 0 || height < 0 || width > MAX_DISPLAY ||
        height > MAX_DISPLAY) {
        return BAD_VALUE;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mDisplayWidth = width;
    mDisplayHeight = height;
    return OK;
}

status_t ProducerLink::onEnded(const Parcel& data) {
    const int64_t session = data.readInt64();
    int32_t why = OK;
    if (data.readInt32(&why) != OK) {
        return BAD_VALUE;
    }
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mApi == 0 || session != mSession) {
            return OK;  // stale
        }
        mRefused = true;
        mChanged.notify_all();
    }
    if (why == NO_INIT) {
        die();
    } else {
        HOST_LOGW("%s: the window is in use by another process", __func__);
    }
    return OK;
}

}  // namespace orvhost
