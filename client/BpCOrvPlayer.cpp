#include "BpCOrvPlayer.h"

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;

namespace orvclient {

namespace wire {

// Never destroyed: binder threads may look at them while the process ends.
const String16& playerDescriptor() {
    static const String16& name = *new String16("OrvPlayer");
    return name;
}

const String16& clientDescriptor() {
    static const String16& name = *new String16("OrvPlayerClient");
    return name;
}

}  // namespace wire

namespace {

String16 wide(const std::string& utf8) {
    return String16(utf8.data(), utf8.size());
}

}  // namespace

status_t BpCOrvPlayer::registerClient(const sp<IBinder>& client) {
    Parcel data;
    data.writeInterfaceToken(wire::playerDescriptor());
    data.writeStrongBinder(client);
    return transact(wire::REGISTER_CLIENT, data, nullptr);
}

status_t BpCOrvPlayer::openUri(wire::OpenType type, const std::string& uri) {
    Parcel data;
    data.writeInterfaceToken(wire::playerDescriptor());
    data.writeInt32(type);
    data.writeString16(wide(uri));
    return transact(wire::OPEN_URI, data, nullptr);
}

status_t BpCOrvPlayer::setSurface(const sp<IBinder>& producer, int32_t* result) {
    Parcel data;
    data.writeInterfaceToken(wire::playerDescriptor());
    data.writeString16(String16());
    data.writeString16(String16());
    data.writeInt32(0);
    data.writeUint32(0);
    data.writeStrongBinder(producer);
    return transact(wire::SET_SURFACE, data, result);
}

status_t BpCOrvPlayer::startRecorder(const std::string& uri, int32_t* result) {
    Parcel data;
    data.writeInterfaceToken(wire::playerDescriptor());
    data.writeString16(wide(uri));
    return transact(wire::START_RECORDER, data, result);
}

status_t BpCOrvPlayer::getPCRValue(int64_t* result) {
    Parcel data;
    data.writeInterfaceToken(wire::playerDescriptor());
    Parcel reply;
    const status_t status = mRemote->transact(wire::GET_PCR_VALUE, data, &reply);
    return status != android::OK ? status : reply.readInt64(result);
}

status_t BpCOrvPlayer::command(wire::Transaction code, Numbers fields) {
    return ask(code, fields, nullptr);
}

status_t BpCOrvPlayer::ask(wire::Transaction code, Numbers fields, int32_t* result) {
    Parcel data;
    data.writeInterfaceToken(wire::playerDescriptor());
    for (const int32_t field : fields) {
        data.writeInt32(field);
    }
    return transact(code, data, result);
}

status_t BpCOrvPlayer::transact(wire::Transaction code, const Parcel& data, int32_t* result) {
    Parcel reply;
    const status_t status = mRemote->transact(code, data, &reply);
    return status != android::OK || result == nullptr ? status : reply.readInt32(result);
}

}  // namespace orvclient
