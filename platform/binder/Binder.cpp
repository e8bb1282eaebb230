#include <binder/Binder.h>
#include <binder/IInterface.h>
#include <binder/Parcel.h>

#include "binder/LocalOneWay.h"
#include "binder/ParcelAccess.h"

#include <memory>

namespace android {

namespace {

// Arguments of a dump are few words of a command line.
constexpr int32_t MAX_DUMP_ARGUMENTS = 1024;

}  // namespace

sp<IInterface> IBinder::queryLocalInterface(const String16& /*descriptor*/) {
    return nullptr;
}

const String16& BBinder::getInterfaceDescriptor() const {
    // Needs no memory of its own, and so stays good while the process exits.
    static const String16 NONE(String16::kEmptyString);
    return NONE;
}

status_t BBinder::dump(int /*fd*/, const Vector<String16>& /*args*/) {
    return OK;
}

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if ((flags & FLAG_ONEWAY) != 0) {
        return postOneWay(code, data, flags);
    }
    // An object may count on a parcel for its answer, whatever the caller wants of it.
    Parcel unread;
    Parcel* const answer = reply != nullptr ? reply : &unread;
    answer->freeData();
    data.setDataPosition(0);
    const status_t status = onTransact(code, data, answer, flags);
    answer->setDataPosition(0);
    return status;
}

status_t BBinder::postOneWay(uint32_t code, const Parcel& data, uint32_t flags) {
    const auto twin = std::make_shared<Parcel>();
    const status_t status = orvhost::ParcelAccess::copy(data, twin.get());
    if (status != OK) {
        return status;
    }
    const sp<BBinder> self(this);
    return orvhost::LocalOneWay::instance().post(
        [self, code, twin, flags] {
            Parcel unread;
            self->onTransact(code, *twin, &unread, flags);
        },
        twin->dataSize());
}

status_t BBinder::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t /*flags*/) {
    switch (code) {
        case PING_TRANSACTION:
            return pingBinder();
        case INTERFACE_TRANSACTION:
            return reply->writeString16(getInterfaceDescriptor());
        case DUMP_TRANSACTION:
            return onDump(data);
        default:
            return UNKNOWN_TRANSACTION;
    }
}

status_t BBinder::onDump(const Parcel& data) {
    const int fd = data.readFileDescriptor();
    if (fd < 0) {
        return fd;
    }
    int32_t count = 0;
    if (data.readInt32(&count) != OK || count < 0 || count > MAX_DUMP_ARGUMENTS) {
        return BAD_VALUE;
    }
    Vector<String16> args;
    for (int32_t i = 0; i < count; ++i) {
        String16 argument;
        const status_t status = data.readString16(&argument);
        if (status != OK) {
            return status;
        }
        args.add(argument);
    }
    return dump(fd, args);
}

status_t BBinder::linkToDeath(const sp<DeathRecipient>& /*recipient*/, void* /*cookie*/,
                              uint32_t /*flags*/) {
    return INVALID_OPERATION;
}

status_t BBinder::unlinkToDeath(const wp<DeathRecipient>& /*recipient*/, void* /*cookie*/,
                                uint32_t /*flags*/, wp<DeathRecipient>* /*outRecipient*/) {
    return NAME_NOT_FOUND;
}

}  // namespace android
