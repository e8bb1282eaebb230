#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>
#include <utils/Vector.h>

#include <cstdint>

namespace android {

class BBinder;
class BpBinder;
class IInterface;
class Parcel;

// One object that can be called from another process: the object itself (BBinder) where it lives,
// a proxy of it (BpBinder) everywhere else. Two strong pointers to one object of another process
// hold the same proxy, so binders may be compared by address. Every operation may be called from
// any thread.
class IBinder : public virtual RefBase {
public:
    enum {
        FIRST_CALL_TRANSACTION = 0x00000001,
        LAST_CALL_TRANSACTION = 0x00ffffff,

        // Codes of the platform itself; the object need not know them.
        PING_TRANSACTION = 0x5f504e47,       // '_PNG'
        DUMP_TRANSACTION = 0x5f444d50,       // '_DMP'
        INTERFACE_TRANSACTION = 0x5f4e5446,  // '_NTF'

        FLAG_ONEWAY = 0x00000001,
        // Of a one-way call that is made again and again, and may be lost: refused when half as
        // much waits as makes others be refused, so that it leaves room for those. Not told to the
        // other side.
        FLAG_EXPENDABLE = 0x40000000,
    };

    // Told once, on a thread of the binder pool, that the process of a linked object has ended or
    // its connection is gone. `who` is the proxy that was linked.
    class DeathRecipient : public virtual RefBase {
    public:
        virtual void binderDied(const wp<IBinder>& who) = 0;
    };

    // The descriptor of the object's interface; empty when its process is gone.
    virtual const String16& getInterfaceDescriptor() const = 0;
    virtual bool isBinderAlive() const = 0;
    virtual status_t pingBinder() = 0;
    // Asks the object to report its state to a descriptor, which stays the caller's.
    virtual status_t dump(int fd, const Vector<String16>& args) = 0;

    // Calls the object: `data` is read from its beginning, `reply` (may be null) gets the answer
    // with its position at 0. Waits for the answer, unless FLAG_ONEWAY is set: then it returns at
    // once, whatever the other side does, and nothing is answered. One-way calls of one process to
    // another are executed one after the other, in the order in which they were made.
    //
    // 0 or what the object's onTransact() returned; DEAD_OBJECT when its process is gone,
    // FAILED_TRANSACTION when the call was too large, or too many one-way calls wait for a process
    // that does not take them.
    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                              uint32_t flags = 0) = 0;

    // Registers for the death of a remote object. INVALID_OPERATION for a local one (it cannot die
    // without us), DEAD_OBJECT when that has happened already.
    virtual status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                                 uint32_t flags = 0) = 0;
    // NAME_NOT_FOUND when it is not linked.
    virtual status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                                   uint32_t flags = 0,
                                   wp<DeathRecipient>* outRecipient = nullptr) = 0;

    // The local object, or null for a proxy.
    virtual BBinder* localBinder() { return nullptr; }
    virtual BpBinder* remoteBinder() { return nullptr; }

    // The interface that a local object implements, when the descriptor is that of it.
    virtual sp<IInterface> queryLocalInterface(const String16& descriptor);

protected:
    ~IBinder() override = default;
};

}  // namespace android
