#include "platform/binder/TestObject.h"

#include <stdlib.h>

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;

namespace {

// What EchoedValues() writes, in its order.
status_t echo(const Parcel& data, Parcel* reply) {
    reply->writeInt32(data.readInt32());
    reply->writeInt64(data.readInt64());
    reply->writeString16(data.readString16());
    const int32_t size = data.readInt32();
    const void* blob = data.readInplace(static_cast<size_t>(size));
    if (blob == nullptr) {
        return android::BAD_VALUE;
    }
    reply->writeInt32(size);
    reply->write(blob, static_cast<size_t>(size));
    reply->writeStrongBinder(data.readStrongBinder());
    const int fd = data.readFileDescriptor();
    return fd >= 0 ? reply->writeDupFileDescriptor(fd) : android::OK;
}

}  // namespace

status_t TestObject::callBack(const Parcel& data, Parcel* reply) {
    const sp<IBinder> other = data.readStrongBinder();
    const int32_t depth = data.readInt32();
    if (other == nullptr || depth == 0) {
        return reply->writeInt32(0);
    }
    Parcel request;
    Parcel answer;
    request.writeStrongBinder(this);
    request.writeInt32(depth - 1);
    const status_t status = other->transact(CALL_BACK, request, &answer);
    return status == android::OK ? reply->writeInt32(answer.readInt32() + 1) : status;
}

status_t TestObject::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    switch (code) {
        case ECHO:
            return echo(data, reply);
        case COUNT: {
            std::lock_guard<std::mutex> guard(mLock);
            mCounted.push_back(data.readInt32());
            return android::OK;
        }
        case CALL_BACK:
            return callBack(data, reply);
        case HOLD: {
            sp<IBinder> binder = data.readStrongBinder();
            std::lock_guard<std::mutex> guard(mLock);
            std::swap(binder, mHeld);
            return android::OK;
        }
        case WAIT: {
            std::unique_lock<std::mutex> guard(mLock);
            ++mWaiting;
            mOpened.wait(guard, [this] { return mIsOpen; });
            --mWaiting;
            return reply->writeStrongBinder(new TestObject);
        }
        case CALLER:
            reply->writeInt32(android::IPCThreadState::self()->getCallingPid());
            return reply->writeInt32(
                static_cast<int32_t>(android::IPCThreadState::self()->getCallingUid()));
        case COUNTED:
            return reply->writeInt32(static_cast<int32_t>(counted().size()));
        case EXIT:
            exit(data.readInt32());
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}
