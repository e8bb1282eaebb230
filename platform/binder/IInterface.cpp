#include <binder/IInterface.h>

namespace android {

sp<IBinder> IInterface::asBinder(const IInterface* interface) {
    // Looking at the binder changes nothing of the interface; that its hook is not const comes from
    // what it returns.
    return interface != nullptr ? const_cast<IInterface*>(interface)->onAsBinder() : nullptr;
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& interface) {
    return asBinder(interface.get());
}

}  // namespace android
