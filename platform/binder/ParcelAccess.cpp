#include "binder/ParcelAccess.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace orvhost {

using android::BAD_VALUE;
using android::NO_MEMORY;
using android::OK;
using android::Parcel;
using android::status_t;

ParcelAccess::Received::Received(Received&& other) noexcept
    : offset(other.offset),
      type(other.type),
      value(other.value),
      binder(std::move(other.binder)),
      fd(std::exchange(other.fd, -1)) {}

ParcelAccess::Received::~Received() {
    if (fd >= 0) {
        close(fd);
    }
}

std::vector<ParcelAccess::Object> ParcelAccess::objects(const Parcel& parcel) {
    std::vector<Object> list;
    list.reserve(parcel.mObjects.size());
    for (const Parcel::Object& object : parcel.mObjects) {
        Type type = DESCRIPTOR;
        if (object.binder != nullptr) {
            type = object.binder->localBinder() != nullptr ? BINDER : HANDLE;
        }
        list.push_back({object.offset, type, object.binder, object.fd});
    }
    return list;
}

void ParcelAccess::put(uint8_t* bytes, size_t offset, Type type, uint64_t value) {
    const uint32_t words[2] = {type, 0};
    const uint64_t values[2] = {value, 0};
    memcpy(bytes + offset, words, sizeof(words));
    memcpy(bytes + offset + sizeof(words), values, sizeof(values));
}

bool ParcelAccess::inspect(const uint8_t* bytes, size_t size, const uint32_t* offsets, size_t count,
                           std::vector<Received>* objects) {
    objects->clear();
    if (size > MAX_BYTES || count > size / OBJECT_BYTES) {
        return false;
    }
    objects->reserve(count);
    size_t next = 0;  // the first place that is free
    for (size_t i = 0; i < count; ++i) {
        const size_t offset = offsets[i];
        if (offset % 4 != 0 || offset < next || offset > size - OBJECT_BYTES) {
            objects->clear();
            return false;
        }
        next = offset + OBJECT_BYTES;
        uint32_t type = 0;
        uint64_t value = 0;
        memcpy(&type, bytes + offset, sizeof(type));
        memcpy(&value, bytes + offset + 2 * sizeof(uint32_t), sizeof(value));
        if (type != BINDER && type != HANDLE && type != DESCRIPTOR) {
            objects->clear();
            return false;
        }
        objects->emplace_back(offset, static_cast<Type>(type), value);
    }
    return true;
}

status_t ParcelAccess::build(const uint8_t* bytes, size_t size, std::vector<Received> objects,
                             Parcel* parcel) {
    const status_t status = parcel->setData(bytes, size);
    if (status != OK) {
        parcel->freeData();
        return status;
    }
    for (Received& received : objects) {
        const bool isDescriptor = received.type == DESCRIPTOR;
        if (isDescriptor ? received.fd < 0 : received.binder == nullptr) {
            parcel->freeData();
            return BAD_VALUE;
        }
        Parcel::Object object;
        object.offset = received.offset;
        object.binder = received.binder;
        Type type = DESCRIPTOR;
        if (isDescriptor) {
            object.binder = nullptr;
            object.fd = std::exchange(received.fd, -1);
            object.ownsFd = true;
        } else {
            type = received.binder->localBinder() != nullptr ? BINDER : HANDLE;
        }
        put(parcel->mData.data(), received.offset, type, 0);
        parcel->mObjects.push_back(std::move(object));
    }
    return OK;
}

status_t ParcelAccess::copy(const Parcel& from, Parcel* to) {
    status_t status = to->setData(from.data(), from.dataSize());
    for (const Parcel::Object& object : from.mObjects) {
        Parcel::Object twin = object;
        if (object.binder == nullptr) {
            twin.fd = fcntl(object.fd, F_DUPFD_CLOEXEC, 0);
            twin.ownsFd = true;
            if (twin.fd < 0) {
                status = -errno;
                break;
            }
        }
        to->mObjects.push_back(std::move(twin));
    }
    if (status != OK) {
        to->freeData();
    }
    return status;
}

}  // namespace orvhost
