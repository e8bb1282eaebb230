#include <binder/Parcel.h>
#include <cutils/ashmem.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "service/ICOrvPlayerClient.h"

using android::IBinder;
using android::Parcel;

namespace OrvPlayer {

IMPLEMENT_META_INTERFACE(COrvPlayerClient, "OrvPlayerClient")

namespace {

// A client that does not take its calls loses these first, and hears how its commands ended.
constexpr uint32_t RESULT = IBinder::FLAG_ONEWAY;
constexpr uint32_t PERIODIC = RESULT | IBinder::FLAG_EXPENDABLE;

// Shared memory that is written here and can only be read by who gets its descriptor.
class FrameMemory {
public:
    explicit FrameMemory(size_t size) : mSize(size) {
        mFd = ashmem_create_region("Frame Pixels", size);
        if (mFd < 0 || ashmem_set_prot_region(mFd, PROT_READ | PROT_WRITE) != 0) {
            return;
        }
        void* const mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, mFd, 0);
        if (mapping == MAP_FAILED) {
            return;
        }
        mMapping = mapping;
        mUsable = ashmem_set_prot_region(mFd, PROT_READ) == 0;
    }
    FrameMemory(const FrameMemory&) = delete;  // owns a mapping
    FrameMemory& operator=(const FrameMemory&) = delete;
    ~FrameMemory() {
        if (mMapping != nullptr) {
            munmap(mMapping, mSize);
        }
        if (mFd >= 0) {
            close(mFd);
        }
    }

    bool isUsable() const { return mUsable; }
    void* bytes() const { return mMapping; }
    // The descriptor is the caller's from then on.
    int takeDescriptor() {
        const int fd = mFd;
        mFd = -1;
        return fd;
    }

private:
    const size_t mSize;
    int mFd = -1;
    void* mMapping = nullptr;
    bool mUsable = false;
};

}  // namespace

void BpCOrvPlayerClient::send(Transaction code, std::initializer_list<int32_t> numbers) {
    Parcel data;
    data.writeInterfaceToken(descriptor);
    for (const int32_t number : numbers) {
        data.writeInt32(number);
    }
    const bool isPeriodic = code == ON_BUFFERING || code == ON_TIME_UPDATE;
    remote()->transact(code, data, nullptr, isPeriodic ? PERIODIC : RESULT);
}

void BpCOrvPlayerClient::onCaptureFrame(unsigned char* pixels, unsigned int width,
                                        unsigned int height, bool twoBytesPerPixel) {
    Parcel data;
    data.writeInterfaceToken(descriptor);
    data.writeUint32(width);
    data.writeUint32(height);
    data.writeInt32(twoBytesPerPixel ? 1 : 0);
    // Of 32 bits, so never more than there are pixels.
    const uint32_t size = width * height * (twoBytesPerPixel ? 2U : 4U);
    if (pixels == nullptr || size == 0) {
        return;
    }
    FrameMemory memory(size);
    if (!memory.isUsable() ||
        data.writeFileDescriptor(memory.takeDescriptor(), true) != android::OK) {
        return;
    }
    memcpy(memory.bytes(), pixels, size);
    remote()->transact(ON_CAPTURE_FRAME, data, nullptr, PERIODIC);
}

void BpCOrvPlayerClient::closedCaptionText(unsigned char* text, int length) {
    if (length < 0 || (text == nullptr && length > 0)) {
        return;
    }
    Parcel data;
    data.writeInterfaceToken(descriptor);
    data.writeInt32(length);
    data.writeInt32(length);  // deliberate: twice
    data.write(text, static_cast<size_t>(length));
    remote()->transact(CLOSED_CAPTION_TEXT, data, nullptr, PERIODIC);
}

void BpCOrvPlayerClient::openUriComplete(int result) {
    send(OPEN_URI_COMPLETE, {result});
}

void BpCOrvPlayerClient::startComplete(int result) {
    send(START_COMPLETE, {result});
}

void BpCOrvPlayerClient::onSignalStatusChanged(unsigned int previous, unsigned int current) {
    send(ON_SIGNAL_STATUS_CHANGED, {static_cast<int32_t>(previous), static_cast<int32_t>(current)});
}

void BpCOrvPlayerClient::onStopComplete(int result) {
    send(ON_STOP_COMPLETE, {result});
}

void BpCOrvPlayerClient::onError(int code) {
    send(ON_ERROR, {code});
}

void BpCOrvPlayerClient::onBufferingBegin() {
    send(ON_BUFFERING_BEGIN, {});
}

void BpCOrvPlayerClient::onBufferingEnd() {
    send(ON_BUFFERING_END, {});
}

void BpCOrvPlayerClient::onBuffering(int progress) {
    send(ON_BUFFERING, {progress});
}

void BpCOrvPlayerClient::onAudioSessionId(int id) {
    send(ON_AUDIO_SESSION_ID, {id});
}

void BpCOrvPlayerClient::onStartVideoTask(int width, int height) {
    send(ON_START_VIDEO_TASK, {width, height});
}

void BpCOrvPlayerClient::onTimeUpdate(int elapsedSeconds) {
    send(ON_TIME_UPDATE, {elapsedSeconds});
}

void BpCOrvPlayerClient::onEndOfContent() {
    send(ON_END_OF_CONTENT, {});
}

void BpCOrvPlayerClient::onRecorderStarted(int result) {
    send(ON_RECORDER_STARTED, {result});
}

void BpCOrvPlayerClient::onRecorderStopped(int result) {
    send(ON_RECORDER_STOPPED, {result});
}

void BpCOrvPlayerClient::onPaused(int result) {
    send(ON_PAUSED, {result});
}

void BpCOrvPlayerClient::onResumed(int result) {
    send(ON_RESUMED, {result});
}

void BpCOrvPlayerClient::onSeeked(int positionMs) {
    send(ON_SEEKED, {positionMs});
}

}  // namespace OrvPlayer
