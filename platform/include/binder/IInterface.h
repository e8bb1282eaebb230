#pragma once

#include <binder/Binder.h>

#include <memory>
#include <utility>

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
    sp<IInterface> queryLocalInterface(const String16& name) override {
        return name == INTERFACE::descriptor ? sp<IInterface>(this) : nullptr;
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
    static std::unique_ptr<I##INTERFACE>& defaultImpl();                                      \
                                                                                              \
public:

// In one source file, in the class's (named) namespace: IMPLEMENT_META_INTERFACE(CThing,
// "descriptor") for ICThing, whose proxy is BpCThing. Nothing of it is destroyed: threads that
// still answer calls while the process exits find it whole.
#define IMPLEMENT_META_INTERFACE(INTERFACE, NAME)                           \
    ORV_META_INTERFACE_COMMON(INTERFACE, NAME)                              \
    ::android::sp<I##INTERFACE> I##INTERFACE::asInterface(                  \
        const ::android::sp<::android::IBinder>& binder) {                  \
        ::android::sp<I##INTERFACE> found = orvLocal##INTERFACE(binder);    \
        if (found == nullptr && binder != nullptr) {                        \
            found = ::android::sp<I##INTERFACE>(new Bp##INTERFACE(binder)); \
        }                                                                   \
        return found;                                                       \
    }

// The same where the proxy's class does not exist, in a program that only implements the interface:
// asInterface() finds local objects alone.
#define IMPLEMENT_META_INTERFACE_WITHOUT_PROXY(INTERFACE, NAME) \
    ORV_META_INTERFACE_COMMON(INTERFACE, NAME)                  \
    ::android::sp<I##INTERFACE> I##INTERFACE::asInterface(      \
        const ::android::sp<::android::IBinder>& binder) {      \
        return orvLocal##INTERFACE(binder);                     \
    }

#define ORV_META_INTERFACE_COMMON(INTERFACE, NAME)                                               \
    static const ::android::StaticString16 orvDescriptor##INTERFACE(u##NAME);                    \
    const ::android::String16 I##INTERFACE::descriptor(orvDescriptor##INTERFACE);                \
    const ::android::String16& I##INTERFACE::getInterfaceDescriptor() const {                    \
        return descriptor;                                                                       \
    }                                                                                            \
    I##INTERFACE::I##INTERFACE() = default;                                                      \
    I##INTERFACE::~I##INTERFACE() = default;                                                     \
    std::unique_ptr<I##INTERFACE>& I##INTERFACE::defaultImpl() {                                 \
        static auto* const impl = new std::unique_ptr<I##INTERFACE>;                             \
        return *impl;                                                                            \
    }                                                                                            \
    bool I##INTERFACE::setDefaultImpl(std::unique_ptr<I##INTERFACE> impl) {                      \
        if (defaultImpl() != nullptr || impl == nullptr) {                                       \
            /* An object that counts its references wants to end by them. */                     \
            const ::android::sp<I##INTERFACE> refused(impl.release());                           \
            return false;                                                                        \
        }                                                                                        \
        defaultImpl() = std::move(impl);                                                         \
        return true;                                                                             \
    }                                                                                            \
    const std::unique_ptr<I##INTERFACE>& I##INTERFACE::getDefaultImpl() {                        \
        return defaultImpl();                                                                    \
    }                                                                                            \
    static ::android::sp<I##INTERFACE> orvLocal##INTERFACE(                                      \
        const ::android::sp<::android::IBinder>& binder) {                                       \
        const ::android::sp<::android::IInterface> local =                                       \
            binder != nullptr ? binder->queryLocalInterface(I##INTERFACE::descriptor) : nullptr; \
        return static_cast<I##INTERFACE*>(local.get());                                          \
    }
