#pragma once

#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

// An object with one operation for each thing that a transport has to carry.
class TestObject : public android::BBinder {
public:
    enum : uint32_t {
        ECHO = FIRST_CALL_TRANSACTION,  // the request's values come back
        COUNT,                          // int32: kept in `counted()`, in the order of execution
        CALL_BACK,                      // binder, int32 depth: calls that one with depth - 1
        HOLD,                           // binder: kept until the next one
        WAIT,                           // answers with a new object when opened
        CALLER,                         // int32 pid, int32 uid
        COUNTED,                        // answers int32: how many COUNT there were
        EXIT,                           // int32: exit() with it
    };

    const android::String16& getInterfaceDescriptor() const override { return mDescriptor; }

    std::vector<int32_t> counted() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mCounted;
    }
    android::sp<android::IBinder> held() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mHeld;
    }
    int waiting() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mWaiting;
    }
    void open() {
        std::lock_guard<std::mutex> guard(mLock);
        mIsOpen = true;
        mOpened.notify_all();
    }
    void shut() {
        std::lock_guard<std::mutex> guard(mLock);
        mIsOpen = false;
    }

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    android::status_t callBack(const android::Parcel& data, android::Parcel* reply);

    const android::String16 mDescriptor{"orv.test"};
    mutable std::mutex mLock;
    std::condition_variable mOpened;
    // With the lock.
    std::vector<int32_t> mCounted;
    android::sp<android::IBinder> mHeld;
    int mWaiting = 0;
    bool mIsOpen = false;
};
