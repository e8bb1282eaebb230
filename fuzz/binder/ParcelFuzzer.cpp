// A message as a hostile process may send it, and what an object may do with its parcel.
//
//   byte 0   objects that the message lists, at most 15
//   byte 1   steps of the script
//   then     the script: an operation and its argument each, one byte both
//   then     2 bytes, an offset, for each object
//   rest     the bytes of the parcel
//
// Beside memory, it is checked that a read which fails stays where it is, that objects keep apart
// from each other, that what was built can be sent on, and that every descriptor is closed.

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <fcntl.h>
#include <unistd.h>
#include <utils/String8.h>

#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "binder/ParcelAccess.h"

using android::BBinder;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::Vector;
using orvhost::ParcelAccess;

namespace {

void check(bool holds) {
    if (!holds) {
        abort();
    }
}

class Target : public BBinder {
public:
    status_t dump(int fd, const Vector<String16>& args) override {
        check(fcntl(fd, F_GETFD) >= 0);
        for (const String16& argument : args) {
            mBytes += String8(argument).size();
        }
        return OK;
    }

    size_t mBytes = 0;
};

int lowestFreeDescriptor() {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}

struct Input {
    const uint8_t* data;
    size_t size;

    uint8_t next() {
        if (size == 0) {
            return 0;
        }
        --size;
        return *data++;
    }
};

// The transports' part: each object gets what its number stands for, or nothing.
void resolve(std::vector<ParcelAccess::Received>& objects, const sp<IBinder>& binder) {
    for (auto& object : objects) {
        if (object.value % 5 == 4) {
            continue;
        }
        if (object.type == ParcelAccess::DESCRIPTOR) {
            object.fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        } else {
            object.binder = binder;
        }
    }
}

status_t receive(const std::vector<uint8_t>& bytes, const std::vector<uint32_t>& offsets,
                 const sp<IBinder>& binder, Parcel* parcel) {
    std::vector<ParcelAccess::Received> objects;
    if (!ParcelAccess::inspect(bytes.data(), bytes.size(), offsets.data(), offsets.size(),
                               &objects)) {
        check(objects.empty());
        return android::BAD_VALUE;
    }
    resolve(objects, binder);
    return ParcelAccess::build(bytes.data(), bytes.size(), std::move(objects), parcel);
}

status_t readText(const Parcel& parcel, size_t* bytes) {
    String16 text;
    const status_t status = parcel.readString16(&text);
    *bytes += String8(text).size();
    // A null string is a value: it was read.
    return status == android::UNEXPECTED_NULL ? OK : status;
}

// One read; it must stay where it is when it fails.
void readStep(const Parcel& parcel, unsigned operation, size_t argument, Target& target) {
    const size_t before = parcel.dataPosition();
    status_t status = OK;
    int32_t word = 0;
    int64_t value = 0;
    sp<IBinder> binder;
    uint8_t bytes[256];
    switch (operation) {
        case 0:
            status = parcel.readInt32(&word);
            break;
        case 1:
            status = parcel.readInt64(&value);
            break;
        case 2:
            status = readText(parcel, &target.mBytes);
            break;
        case 3:
            status = parcel.readStrongBinder(&binder);
            break;
        case 4:
            word = parcel.readFileDescriptor();
            status = word < 0 ? word : OK;
            check(status != OK || fcntl(word, F_GETFD) >= 0);
            break;
        case 5:
            status = parcel.read(bytes, argument);
            break;
        case 6:
            // Lengths up to the highest there is.
            status = parcel.readInplace(argument << (argument % 64)) != nullptr ? OK : -1;
            break;
        default:
            status = parcel.enforceInterface(String16("OrvPlayer")) ? OK : -1;
            break;
    }
    check(status == OK || parcel.dataPosition() == before);
}

void writeStep(Parcel& parcel, unsigned operation, size_t argument, const sp<Target>& target) {
    uint8_t bytes[256] = {};
    switch (operation) {
        case 8:
            parcel.setDataPosition(argument << (argument % 64));
            break;
        case 9:
            parcel.setDataPosition(argument);
            break;
        case 10:
            parcel.write(bytes, argument);
            break;
        case 11:
            parcel.writeString16(String16("text"));
            break;
        case 12:
            parcel.writeStrongBinder(argument % 2 != 0 ? target : nullptr);
            break;
        case 13:
            parcel.writeFileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC), true);
            break;
        case 14:
            parcel.setDataSize(argument);
            break;
        default:
            // The platform's own codes, of which one reads the parcel.
            static constexpr uint32_t CODES[] = {IBinder::PING_TRANSACTION,
                                                 IBinder::INTERFACE_TRANSACTION,
                                                 IBinder::DUMP_TRANSACTION, 1};
            target->transact(CODES[argument % 4], parcel, nullptr);
            break;
    }
}

// What was built, read and written over must be a parcel that the next process takes.
void sendOn(const Parcel& parcel, const sp<IBinder>& binder) {
    std::vector<uint8_t> bytes(parcel.data(), parcel.data() + parcel.dataSize());
    std::vector<uint32_t> offsets;
    for (const auto& object : ParcelAccess::objects(parcel)) {
        check(object.offset + ParcelAccess::OBJECT_BYTES <= bytes.size());
        check((object.type == ParcelAccess::DESCRIPTOR) == (object.binder == nullptr));
        ParcelAccess::put(bytes.data(), object.offset, object.type, 0);
        offsets.push_back(static_cast<uint32_t>(object.offset));
    }
    Parcel received;
    check(receive(bytes, offsets, binder, &received) == OK);
    check(received.objectsCount() == offsets.size());
    Parcel copied;
    check(ParcelAccess::copy(parcel, &copied) == OK);
    check(copied.dataSize() == bytes.size() && copied.objectsCount() == offsets.size());
}

void run(Input input) {
    const unsigned count = input.next() % 16;
    std::vector<std::pair<uint8_t, uint8_t>> script(input.next());
    for (auto& step : script) {
        step.first = input.next() % 16;
        step.second = input.next();
    }
    std::vector<uint32_t> offsets(count);
    for (uint32_t& offset : offsets) {
        offset = input.next();
        offset |= static_cast<uint32_t>(input.next()) << 8;
    }
    const sp<Target> target = new Target;
    const std::vector<uint8_t> bytes(input.data, input.data + input.size);
    Parcel parcel;
    if (receive(bytes, offsets, target, &parcel) != OK) {
        check(parcel.dataSize() == 0 && parcel.objectsCount() == 0);
        return;
    }
    for (const auto& [operation, argument] : script) {
        if (operation < 8) {
            readStep(parcel, operation, argument, *target);
        } else {
            writeStep(parcel, operation, argument, target);
        }
        check(parcel.dataPosition() <= parcel.dataSize());
    }
    sendOn(parcel, target);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int before = lowestFreeDescriptor();
    run({data, size});
    check(lowestFreeDescriptor() == before);
    return 0;
}
