#pragma once

#include <binder/IBinder.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvhost {
class ParcelAccess;
}

namespace android {

// The arguments or the answer of one call: values one after the other, each padded to 4 bytes, in
// the byte order of the machine.
//
//   int32, uint32   4 bytes                     int64   8 bytes, aligned to 4 only
//   String16        int32 count of 16-bit units, the units, a 0 unit, padding; count -1 alone: null
//   blob            the bytes, padding of 0
//   binder          24 bytes: uint32 type, uint32 flags, uint64 value, uint64 0
//   descriptor      the same 24 bytes
//   interface token int32 policy, int32 work source, String16 descriptor
//
// Where binders and descriptors stand is kept beside the bytes: 24 bytes that only look like one
// are never taken for one. A null binder is 24 bytes that are not listed.
//
// Reads never pass the end: what is not there answers NOT_ENOUGH_DATA, or 0, or null, and leaves
// the position. Writes replace what stands at the position, binders and descriptors whole; beyond
// 16 MiB they answer NO_MEMORY. One thread at a time.
class Parcel {
public:
    Parcel();
    ~Parcel();
    Parcel(const Parcel&) = delete;  // owns descriptors
    Parcel& operator=(const Parcel&) = delete;

    const uint8_t* data() const;
    size_t dataSize() const;
    size_t dataAvail() const;
    size_t dataPosition() const;
    // The next multiple of 4, or the end when that lies before.
    void setDataPosition(size_t position) const;
    // Cuts, or fills up with 0.
    status_t setDataSize(size_t size);
    // Replaces everything; no objects.
    status_t setData(const uint8_t* buffer, size_t length);
    // Empties it and closes the descriptors that it owns.
    void freeData();
    size_t objectsCount() const;

    // What begins every request to an interface.
    status_t writeInterfaceToken(const String16& interface);
    // Reads the token; false when it is not that of `interface`.
    bool enforceInterface(const String16& interface) const;
    // The same through the binder that was called.
    bool checkInterface(IBinder* binder) const;

    status_t write(const void* bytes, size_t length);
    // Room for `length` bytes and their padding, to be filled by the caller; null: no memory.
    void* writeInplace(size_t length);
    status_t writeInt32(int32_t value);
    status_t writeUint32(uint32_t value);
    status_t writeInt64(int64_t value);
    status_t writeString16(const String16& text);
    status_t writeString16(const char16_t* text, size_t length);
    status_t writeStrongBinder(const sp<IBinder>& binder);
    // With takeOwnership the parcel closes the descriptor, on failure too; else it stays the
    // caller's and must stay open as long as the parcel lives.
    status_t writeFileDescriptor(int fd, bool takeOwnership = false);
    status_t writeDupFileDescriptor(int fd);

    status_t read(void* bytes, size_t length) const;
    const void* readInplace(size_t length) const;
    int32_t readInt32() const;
    status_t readInt32(int32_t* value) const;
    uint32_t readUint32() const;
    status_t readUint32(uint32_t* value) const;
    int64_t readInt64() const;
    status_t readInt64(int64_t* value) const;
    // UNEXPECTED_NULL for a null one, which has been read then; *text stays in both failures.
    String16 readString16() const;
    status_t readString16(String16* text) const;
    // The units where they stand, terminated; null for a null or broken one.
    const char16_t* readString16Inplace(size_t* length) const;
    sp<IBinder> readStrongBinder() const;
    // BAD_TYPE when no binder stands there; null is a binder.
    status_t readStrongBinder(sp<IBinder>* binder) const;
    // Stays the parcel's; BAD_TYPE (negative) when no descriptor stands there.
    int readFileDescriptor() const;

private:
    friend class orvhost::ParcelAccess;  // the transports

    struct Object {
        size_t offset = 0;
        sp<IBinder> binder;  // null: a descriptor
        int fd = -1;
        bool ownsFd = false;
    };

    const Object* objectAt(size_t offset) const;
    void dropObjects(size_t begin, size_t end);
    status_t writeObject(uint32_t type, Object object);
    status_t readToken(String16* interface) const;

    std::vector<uint8_t> mData;
    std::vector<Object> mObjects;  // by offset, ascending
    mutable size_t mPosition = 0;
};

}  // namespace android
