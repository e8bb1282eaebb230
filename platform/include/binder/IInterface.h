#pragma once

#include <binder/Binder.h>

#include <memory>

namespace android {

// Base of every interface that crosses processes.
class IInterface : public virtual RefBase {
public:
    // The binder behind an interface; null for null.
    static sp<IBinder> asBinder(const IInterface* interface);
    static sp<IBinder> asBinder(const sp<IInterface>& interface);

protected:
    ~IInterface() override = default;
    virtual IBinder* onAsBinder() = 0;
};

// The interface behind a binder: the local object where it lives here, else a new proxy; null for
// null.
template <typename INTERFACE>
inline sp<INTERFACE> interface_cast(const sp<IBinder>& binder) {
    return INTERFACE::asInterface(binder);
}

// The side that implements: derive from it and override onTransact().
template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
public:
    sp<IInterface> queryLocalInterface(const String16& descriptor) override {
        return descriptor == INTERFACE::descriptor ? sp<IInterface>(this) : nullptr;
    }
    const String16& getInterfaceDescriptor() const override { return INTERFACE::descriptor; }

protected:
    IBinder* onAsBinder() override { return this; }
};

// The side that calls: builds parcels and transacts them with remote().
class BpRefBase : public virtual RefBase {
protected:
    explicit BpRefBase(const sp<IBinder>& remote) : mRemote(remote) {}
    ~BpRefBase() override = default;
    IBinder* remote() const { return mRemote.get(); }

private:
    const sp<IBinder> mRemote;
};

template <typename INTERFACE>
class BpInterface : public INTERFACE, public BpRefBase {
public:
    explicit BpInterface(const sp<IBinder>& remote) : BpRefBase(remote) {}

protected:
    IBinder* onAsBinder() override { return remote(); }
};

}  // namespace android

// In the class: what every interface offers beside its operations. asInterface() gives the local
// object or a new proxy; the default implementation, once set, is what the class's user may fall
// back on.
#define DECLARE_META_INTERFACE(INTERFACE)                                                     \
public:                                                                                       \
    static const ::android::String16 descriptor;                                              \
    static ::android::sp<I##INTERFACE> asInterface(const ::android::sp<::android::IBinder>&); \
    virtual const ::android::String16& getInterfaceDescriptor() const;                        \
    I##INTERFACE();                                                                           \
    ~I##INTERFACE() override;                                                                 \
    static bool setDefaultImpl(std::unique_ptr<I##INTERFACE> impl);                           \
    static const std::unique_ptr<I##INTERFACE>& getDefaultImpl();                             \
                                                                                              \
private:                                                                                      \
    static std::unique_ptr<I##INTERFACE> sDefaultImpl;                                        \
                                                                                              \
public:
