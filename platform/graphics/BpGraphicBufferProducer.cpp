#include "graphics/BpGraphicBufferProducer.h"

#include <binder/Parcel.h>
#include <sys/random.h>

#include <map>

#include "graphics/ProducerWire.h"

namespace android {

namespace wire = orvhost::producerwire;

namespace {

// A queue that has no buffer for so long is asked once more: it may have lacked memory, or its
// credits were lost with a full transport.
constexpr auto ASK_AGAIN = std::chrono::milliseconds(500);

bool isForReading(uint64_t usage) {
    return (usage & GraphicBuffer::USAGE_SW_READ_MASK) != 0 &&
           (usage & GraphicBuffer::USAGE_SW_WRITE_MASK) == 0;
}

int64_t drawSession() {
    int64_t session = 0;
    while (session == 0) {
        if (getrandom(&session, sizeof(session), 0) < 0) {
            session = std::chrono::steady_clock::now().time_since_epoch().count();
        }
    }
    return session;
}

// Which proxy of a queue is connected.
class Connections {
public:
    static Connections& get() {
        static Connections& connections = *new Connections;  // threads outlive exit()
        return connections;
    }
    bool claim(const IBinder* queue, const BpGraphicBufferProducer* proxy) {
        std::lock_guard<std::mutex> lock(mLock);
        return mProxies.emplace(queue, proxy).first->second == proxy;
    }
    void release(const IBinder* queue, const BpGraphicBufferProducer* proxy) {
        std::lock_guard<std::mutex> lock(mLock);
        const auto entry = mProxies.find(queue);
        if (entry != mProxies.end() && entry->second == proxy) {
            mProxies.erase(entry);
        }
    }

private:
    std::mutex mLock;
    std::map<const IBinder*, const BpGraphicBufferProducer*> mProxies;
};

}  // namespace

sp<IGraphicBufferProducer> BpGraphicBufferProducer::create(const sp<IBinder>& queue) {
    const sp<BpGraphicBufferProducer> proxy = new BpGraphicBufferProducer(queue);
    if (queue->linkToDeath(proxy->mLink) == DEAD_OBJECT) {
        proxy->mLink->die();
    }
    return proxy;
}

BpGraphicBufferProducer::BpGraphicBufferProducer(const sp<IBinder>& queue)
    : BpInterface<IGraphicBufferProducer>(queue), mLink(new orvhost::ProducerLink) {}

BpGraphicBufferProducer::~BpGraphicBufferProducer() {
    if (mApi != 0) {
        disconnect(mApi);
    }
    Connections::get().release(remote(), this);
    remote()->unlinkToDeath(mLink);
    mLink->die();
}

status_t BpGraphicBufferProducer::send(uint32_t code, const Parcel& data) {
    const status_t status = remote()->transact(code, data, nullptr, IBinder::FLAG_ONEWAY);
    if (status == DEAD_OBJECT) {
        mLink->die();
        return NO_INIT;
    }
    return status;
}

// What the queue has not been told yet.
status_t BpGraphicBufferProducer::tell() {
    if (const status_t status = tellConnection(); status != OK) {
        return status;
    }
    return mRequestTold ? OK : tellRequest();
}

status_t BpGraphicBufferProducer::tellConnection() {
    if (mConnectionTold || mApi == 0) {
        return OK;
    }
    Parcel data;
    data.writeInterfaceToken(descriptor);
    data.writeInt64(mSession);
    data.writeInt32(mApi);
    data.writeStrongBinder(mLink);
    const status_t status = send(wire::CONNECT, data);
    mConnectionTold = status == OK;
    return status;
}

status_t BpGraphicBufferProducer::tellRequest() {
    const orvhost::ProducerLink::Request request = mLink->request();
    if (request.generation == 0) {
        return OK;
    }
    Parcel data;
    data.writeInterfaceToken(descriptor);
    data.writeInt64(mSession);
    data.writeUint32(request.generation);
    data.writeUint32(request.width);
    data.writeUint32(request.height);
    data.writeInt32(request.format);
    data.writeUint32(request.kept);
    const status_t status = send(wire::REQUEST_BUFFERS, data);
    mRequestTold = status == OK;
    mRequestTime = std::chrono::steady_clock::now();
    return status;
}

// A queue that does not hear of it takes the next session of this process in its place.
void BpGraphicBufferProducer::tellEnd(int64_t session) {
    Parcel data;
    data.writeInterfaceToken(descriptor);
    data.writeInt64(session);
    send(wire::DISCONNECT, data);
}

status_t BpGraphicBufferProducer::connect(int api) {
    std::lock_guard<std::mutex> lock(mSendLock);
    if (!Connections::get().claim(remote(), this)) {
        return BAD_VALUE;
    }
    const int64_t session = drawSession();
    if (const status_t status = mLink->begin(api, session); status != OK) {
        if (mApi == 0) {
            Connections::get().release(remote(), this);
        }
        return status;
    }
    mApi = api;
    mSession = session;
    mConnectionTold = false;
    mRequestTold = false;
    mDropped = 0;
    return tell() == NO_INIT ? NO_INIT : OK;
}

status_t BpGraphicBufferProducer::disconnect(int api) {
    std::lock_guard<std::mutex> lock(mSendLock);
    int64_t session = 0;
    const status_t status = mLink->end(api, &session);
    if (status != BAD_VALUE) {
        mApi = 0;
        Connections::get().release(remote(), this);
    }
    if (status == OK && mConnectionTold) {
        tellEnd(session);
    }
    return status;
}

status_t BpGraphicBufferProducer::requestBuffer(int slot, sp<GraphicBuffer>* buffer) {
    return mLink->bufferOf(slot, buffer);
}

status_t BpGraphicBufferProducer::dequeueBuffer(int* slot, uint32_t width, uint32_t height,
                                                PixelFormat format, uint64_t usage) {
    if (isForReading(usage)) {
        return dequeueForReading(slot);
    }
    {
        std::lock_guard<std::mutex> lock(mSendLock);
        if (GraphicBuffer::byteSizeOf(width, height, format) == 0) {
            return mApi == 0 ? NO_INIT : BAD_VALUE;
        }
        bool changed = false;
        if (const status_t status = mLink->setSize(width, height, format, &changed); status != OK) {
            return status;
        }
        mRequestTold = mRequestTold && !changed;
        if (tell() == NO_INIT) {
            return NO_INIT;
        }
    }
    const status_t status = mLink->take(width, height, slot);
    if (status == WOULD_BLOCK) {
        std::lock_guard<std::mutex> lock(mSendLock);
        ++mDropped;
        if (mRequestTold && std::chrono::steady_clock::now() - mRequestTime > ASK_AGAIN) {
            tellRequest();
        }
    }
    return status;
}

status_t BpGraphicBufferProducer::dequeueForReading(int* slot) {
    std::lock_guard<std::mutex> lock(mSendLock);
    const status_t result = mLink->lend(slot);
    if (result >= 0 && !mReadTold) {
        Parcel data;
        data.writeInterfaceToken(descriptor);
        data.writeInt64(mSession);
        data.writeInt32(*slot);
        mReadTold = send(wire::PICTURE_READ, data) == OK;
    }
    return result;
}

status_t BpGraphicBufferProducer::queueBuffer(int slot, const QueueBufferInput& input) {
    std::lock_guard<std::mutex> lock(mSendLock);
    if (const status_t status = mLink->taken(slot); status != OK) {
        return status;
    }
    Parcel data;
    data.writeInterfaceToken(descriptor);
    data.writeInt64(mSession);
    data.writeInt32(slot);
    data.writeUint32(mDropped);
    wire::writeInput(input, &data);
    const status_t status = send(wire::QUEUE, data);
    if (status == OK) {
        mLink->queued(slot);
        mReadTold = false;
        mDropped = 0;
        return OK;
    }
    ++mDropped;
    bool returned = false;
    mLink->cancel(slot, &returned);
    mRequestTold = mRequestTold && !returned;
    return status;
}

status_t BpGraphicBufferProducer::cancelBuffer(int slot) {
    std::lock_guard<std::mutex> lock(mSendLock);
    bool returned = false;
    const status_t status = mLink->cancel(slot, &returned);
    if (returned) {
        mRequestTold = false;
        tell();
    }
    return status;
}

status_t BpGraphicBufferProducer::query(int what, int* value) {
    return mLink->query(what, value);
}

}  // namespace android
