#pragma once

#include <binder/Parcel.h>

#include <vector>

namespace orvhost {

// What the transports need of a parcel beyond its values: its bytes with the places of its binders
// and descriptors, and the way back.
//
// In a parcel the value word of an object is 0; only a message carries numbers there, which the
// transports choose (the id of a binder, the index of a descriptor among those passed along):
//
//   sender    bytes = copy of data(); for each of objects(): put(bytes, type, value)
//   receiver  inspect(bytes, offsets) -> what stands at each place; the transport looks up the
//             binder or takes the descriptor of each; build() -> the parcel
//
// No state: any thread, as far as the parcel itself is not in use by another.
class ParcelAccess {
public:
    static constexpr size_t OBJECT_BYTES = 24;
    static constexpr size_t MAX_BYTES = 16 * 1024 * 1024;  // of one parcel

    enum Type : uint32_t {
        BINDER = 0x73622a85,  // an object of the sender
        HANDLE = 0x73682a85,  // a proxy at the sender
        DESCRIPTOR = 0x66642a85,
    };

    // One binder or descriptor of a parcel that is to be sent. Both stay the parcel's.
    struct Object {
        size_t offset;
        Type type;
        android::sp<android::IBinder> binder;  // null for a descriptor
        int fd;                                // -1 for a binder
    };

    // One of a message that arrived. Owns its descriptor.
    struct Received {
        Received(size_t place, Type what, uint64_t number)
            : offset(place), type(what), value(number) {}
        Received(Received&& other) noexcept;
        Received& operator=(Received&&) = delete;
        ~Received();

        const size_t offset;
        const Type type;
        const uint64_t value;
        // The transport sets one of the two.
        android::sp<android::IBinder> binder;
        int fd = -1;
    };

    ParcelAccess() = delete;

    // By offset, ascending.
    static std::vector<Object> objects(const android::Parcel& parcel);

    // Writes an object's words into a copy of the parcel's bytes.
    static void put(uint8_t* bytes, size_t offset, Type type, uint64_t value);

    // What a message says about its objects. False, and nothing in *objects, when the message is
    // too long, or an offset is not a multiple of 4, not ascending by a whole object at least, not
    // inside, or no object's type stands there: such a message is refused whole.
    static bool inspect(const uint8_t* bytes, size_t size, const uint32_t* offsets, size_t count,
                        std::vector<Received>* objects);

    // Makes *parcel that of a message, its position at 0: `objects` are those of inspect(), each
    // with its binder or descriptor. BAD_VALUE, and an empty parcel, when one lacks it. Takes the
    // descriptors, on failure too.
    static android::status_t build(const uint8_t* bytes, size_t size, std::vector<Received> objects,
                                   android::Parcel* parcel);

    // Makes *to the same as `from`, its position at 0, with duplicates of the descriptors. An
    // error, and an empty parcel, when there are no descriptors left.
    static android::status_t copy(const android::Parcel& from, android::Parcel* to);
};

}  // namespace orvhost
