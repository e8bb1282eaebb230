#include <binder/Parcel.h>

#include "binder/ParcelAccess.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace android {

using orvhost::ParcelAccess;

namespace {

constexpr int32_t NULL_STRING = -1;
constexpr int32_t NO_POLICY = 0;
constexpr int32_t NO_WORK_SOURCE = -1;
constexpr size_t FIRST_BYTES = 128;  // most calls have fewer

constexpr size_t padded(size_t length) {
    return (length + 3) & ~size_t{3};
}

}  // namespace

Parcel::Parcel() = default;

Parcel::~Parcel() {
    freeData();
}

const uint8_t* Parcel::data() const {
    return mData.data();
}

size_t Parcel::dataSize() const {
    return mData.size();
}

size_t Parcel::dataAvail() const {
    return mData.size() - mPosition;
}

size_t Parcel::dataPosition() const {
    return mPosition;
}

// Values begin at multiples of 4; the end alone may be none, where nothing can be read.
void Parcel::setDataPosition(size_t position) const {
    mPosition = position < mData.size() ? std::min(padded(position), mData.size()) : mData.size();
}

status_t Parcel::setDataSize(size_t size) {
    if (size > ParcelAccess::MAX_BYTES) {
        return NO_MEMORY;
    }
    dropObjects(size, ParcelAccess::MAX_BYTES);
    mData.resize(size);
    setDataPosition(mPosition);
    return OK;
}

status_t Parcel::setData(const uint8_t* buffer, size_t length) {
    if (length > ParcelAccess::MAX_BYTES) {
        return NO_MEMORY;
    }
    freeData();
    if (length > 0) {
        mData.assign(buffer, buffer + length);
    }
    return OK;
}

void Parcel::freeData() {
    dropObjects(0, ParcelAccess::MAX_BYTES);
    mData.clear();
    mPosition = 0;
}

size_t Parcel::objectsCount() const {
    return mObjects.size();
}

// Forgets the objects that have a byte in [begin, end), closing what the parcel owns.
void Parcel::dropObjects(size_t begin, size_t end) {
    const auto first =
        std::find_if(mObjects.begin(), mObjects.end(), [begin](const Object& object) {
            return object.offset + ParcelAccess::OBJECT_BYTES > begin;
        });
    const auto last = std::find_if(first, mObjects.end(),
                                   [end](const Object& object) { return object.offset >= end; });
    for (auto object = first; object != last; ++object) {
        if (object->ownsFd) {
            close(object->fd);
        }
    }
    mObjects.erase(first, last);
}

status_t Parcel::writeInterfaceToken(const String16& interface) {
    const size_t begin = mPosition;
    status_t status = writeInt32(NO_POLICY);
    if (status == OK) {
        status = writeInt32(NO_WORK_SOURCE);
    }
    if (status == OK) {
        status = writeString16(interface);
    }
    if (status != OK) {
        mPosition = begin;
    }
    return status;
}

status_t Parcel::readToken(String16* interface) const {
    const size_t begin = mPosition;
    int32_t policy = 0;
    int32_t workSource = 0;
    status_t status = readInt32(&policy);
    if (status == OK) {
        status = readInt32(&workSource);
    }
    if (status == OK) {
        status = readString16(interface);
    }
    if (status != OK) {
        mPosition = begin;
    }
    return status;
}

bool Parcel::enforceInterface(const String16& interface) const {
    const size_t begin = mPosition;
    String16 found;
    if (readToken(&found) != OK) {
        return false;
    }
    // Not operator==: the lengths count, whatever 0 units are in between.
    if (found.size() != interface.size() ||
        memcmp(found.string(), interface.string(), found.size() * sizeof(char16_t)) != 0) {
        mPosition = begin;
        return false;
    }
    return true;
}

bool Parcel::checkInterface(IBinder* binder) const {
    return enforceInterface(binder->getInterfaceDescriptor());
}

// Writing.

status_t Parcel::write(const void* bytes, size_t length) {
    void* const place = writeInplace(length);
    if (place == nullptr) {
        return NO_MEMORY;
    }
    if (length > 0) {
        memcpy(place, bytes, length);
    }
    return OK;
}

void* Parcel::writeInplace(size_t length) {
    // The bound first: no sum below can overflow.
    if (length > ParcelAccess::MAX_BYTES) {
        return nullptr;
    }
    const size_t begin = padded(mPosition);  // after odd data set from outside
    const size_t end = begin + padded(length);
    if (end > ParcelAccess::MAX_BYTES) {
        return nullptr;
    }
    dropObjects(mPosition, end);
    if (mData.capacity() == 0) {
        mData.reserve(FIRST_BYTES);  // even nothing is written somewhere
    }
    if (mData.size() < end) {
        mData.resize(end);
    }
    memset(mData.data() + begin + length, 0, end - begin - length);
    mPosition = end;
    return mData.data() + begin;
}

status_t Parcel::writeInt32(int32_t value) {
    return write(&value, sizeof(value));
}

status_t Parcel::writeUint32(uint32_t value) {
    return write(&value, sizeof(value));
}

status_t Parcel::writeInt64(int64_t value) {
    return write(&value, sizeof(value));
}

status_t Parcel::writeString16(const String16& text) {
    return writeString16(text.string(), text.size());
}

status_t Parcel::writeString16(const char16_t* text, size_t length) {
    if (text == nullptr) {
        return writeInt32(NULL_STRING);
    }
    if (length > ParcelAccess::MAX_BYTES / sizeof(char16_t)) {
        return NO_MEMORY;
    }
    const size_t bytes = length * sizeof(char16_t);
    auto* const place =
        static_cast<uint8_t*>(writeInplace(sizeof(int32_t) + bytes + sizeof(char16_t)));
    if (place == nullptr) {
        return NO_MEMORY;
    }
    const auto count = static_cast<int32_t>(length);
    memcpy(place, &count, sizeof(count));
    memcpy(place + sizeof(count), text, bytes);
    memset(place + sizeof(count) + bytes, 0, sizeof(char16_t));
    return OK;
}

status_t Parcel::writeObject(uint32_t type, Object object) {
    auto* const place = static_cast<uint8_t*>(writeInplace(ParcelAccess::OBJECT_BYTES));
    if (place == nullptr) {
        if (object.ownsFd) {
            close(object.fd);
        }
        return NO_MEMORY;
    }
    ParcelAccess::put(place, 0, static_cast<ParcelAccess::Type>(type), 0);
    object.offset = static_cast<size_t>(place - mData.data());
    const auto next =
        std::find_if(mObjects.begin(), mObjects.end(),
                     [&object](const Object& other) { return other.offset > object.offset; });
    mObjects.insert(next, std::move(object));
    return OK;
}

status_t Parcel::writeStrongBinder(const sp<IBinder>& binder) {
    if (binder == nullptr) {
        auto* const place = static_cast<uint8_t*>(writeInplace(ParcelAccess::OBJECT_BYTES));
        if (place == nullptr) {
            return NO_MEMORY;
        }
        ParcelAccess::put(place, 0, ParcelAccess::BINDER, 0);
        return OK;
    }
    Object object;
    object.binder = binder;
    return writeObject(
        binder->localBinder() != nullptr ? ParcelAccess::BINDER : ParcelAccess::HANDLE,
        std::move(object));
}

status_t Parcel::writeFileDescriptor(int fd, bool takeOwnership) {
    if (fd < 0) {
        return BAD_VALUE;
    }
    Object object;
    object.fd = fd;
    object.ownsFd = takeOwnership;
    return writeObject(ParcelAccess::DESCRIPTOR, std::move(object));
}

status_t Parcel::writeDupFileDescriptor(int fd) {
    const int duplicate = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    return duplicate < 0 ? -errno : writeFileDescriptor(duplicate, true);
}

// Reading.

status_t Parcel::read(void* bytes, size_t length) const {
    const void* const place = readInplace(length);
    if (place == nullptr) {
        return NOT_ENOUGH_DATA;
    }
    if (length > 0) {
        memcpy(bytes, place, length);
    }
    return OK;
}

const void* Parcel::readInplace(size_t length) const {
    // The length alone first: padding must not wrap round to 0.
    if (length > dataAvail() || padded(length) > dataAvail()) {
        return nullptr;
    }
    static const uint32_t NOTHING = 0;  // an empty parcel has no address
    const void* const place = mData.empty() ? static_cast<const void*>(&NOTHING)
                                            : static_cast<const void*>(mData.data() + mPosition);
    mPosition += padded(length);
    return place;
}

status_t Parcel::readInt32(int32_t* value) const {
    return read(value, sizeof(*value));
}

int32_t Parcel::readInt32() const {
    int32_t value = 0;
    readInt32(&value);
    return value;
}

status_t Parcel::readUint32(uint32_t* value) const {
    return read(value, sizeof(*value));
}

uint32_t Parcel::readUint32() const {
    uint32_t value = 0;
    readUint32(&value);
    return value;
}

status_t Parcel::readInt64(int64_t* value) const {
    return read(value, sizeof(*value));
}

int64_t Parcel::readInt64() const {
    int64_t value = 0;
    readInt64(&value);
    return value;
}

const char16_t* Parcel::readString16Inplace(size_t* length) const {
    const size_t begin = mPosition;
    *length = 0;
    int32_t count = 0;
    if (readInt32(&count) != OK || count == NULL_STRING) {
        return nullptr;
    }
    // A negative count is a length beyond every parcel's as well.
    const size_t units = static_cast<uint32_t>(count);
    if (units <= dataAvail() / sizeof(char16_t)) {
        const auto* const text =
            static_cast<const char16_t*>(readInplace((units + 1) * sizeof(char16_t)));
        if (text != nullptr && text[units] == 0) {
            *length = units;
            return text;
        }
    }
    mPosition = begin;
    return nullptr;
}

status_t Parcel::readString16(String16* text) const {
    const size_t begin = mPosition;
    size_t length = 0;
    const char16_t* const units = readString16Inplace(&length);
    if (units == nullptr) {
        // Only a null string moves on without a text.
        return mPosition == begin ? NOT_ENOUGH_DATA : UNEXPECTED_NULL;
    }
    return text->setTo(units, length);
}

String16 Parcel::readString16() const {
    String16 text;
    readString16(&text);
    return text;
}

const Parcel::Object* Parcel::objectAt(size_t offset) const {
    const auto object =
        std::lower_bound(mObjects.begin(), mObjects.end(), offset,
                         [](const Object& each, size_t place) { return each.offset < place; });
    return object != mObjects.end() && object->offset == offset ? &*object : nullptr;
}

status_t Parcel::readStrongBinder(sp<IBinder>* binder) const {
    binder->clear();
    if (dataAvail() < ParcelAccess::OBJECT_BYTES) {
        return NOT_ENOUGH_DATA;
    }
    const Object* const object = objectAt(mPosition);
    if (object == nullptr) {
        uint8_t null[ParcelAccess::OBJECT_BYTES];
        ParcelAccess::put(null, 0, ParcelAccess::BINDER, 0);
        if (memcmp(mData.data() + mPosition, null, sizeof(null)) != 0) {
            return BAD_TYPE;
        }
    } else if (object->binder == nullptr) {
        return BAD_TYPE;
    } else {
        *binder = object->binder;
    }
    mPosition += ParcelAccess::OBJECT_BYTES;
    return OK;
}

sp<IBinder> Parcel::readStrongBinder() const {
    sp<IBinder> binder;
    readStrongBinder(&binder);
    return binder;
}

int Parcel::readFileDescriptor() const {
    const Object* const object = objectAt(mPosition);
    if (object == nullptr || object->binder != nullptr) {
        return BAD_TYPE;
    }
    mPosition += ParcelAccess::OBJECT_BYTES;
    return object->fd;
}

}  // namespace android
