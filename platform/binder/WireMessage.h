#pragma once

#include "binder/ParcelAccess.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace orvhost {

// The messages that carry calls, see docs/binder.md. Functions on sd-bus messages: to be called
// under the lock of the connection that they belong to.
namespace wire {

constexpr char PATH[] = "/";
constexpr char INTERFACE[] = "org.orvplayer.Binder";

// Calls. Transact and GetService are answered by ANSWER, the others by nothing.
constexpr char TRANSACT[] = "Transact";       // target, code, flags, parcel
constexpr char GET_SERVICE[] = "GetService";  // name; the answer holds one binder
constexpr char RELEASE[] = "Release";         // object, how often it is given back
constexpr char HELLO[] = "Hello";             // process id of who sends it

constexpr char TRANSACT_SIGNATURE[] = "tuuayauah";
constexpr char ANSWER_SIGNATURE[] = "iayauah";
constexpr char GET_SERVICE_SIGNATURE[] = "s";
constexpr char RELEASE_SIGNATURE[] = "tu";
constexpr char HELLO_SIGNATURE[] = "u";

// Of one parcel. No interface needs more, and whoever receives them has few descriptors to spare.
constexpr size_t MAX_OBJECTS = 32;

// What stands in a message for one binder or descriptor of a parcel.
struct Reference {
    size_t offset;
    ParcelAccess::Type type;
    uint64_t value;  // id of the binder; ignored for a descriptor
    int fd;
};

// True for a call of that name and signature.
bool isCall(sd_bus_message* message, const char* member, const char* signature);

// How many bytes a call of ours carries; nothing when it is none of the above.
std::optional<size_t> payloadOf(sd_bus_message* message);

// Appends "ayauah". Descriptors are duplicated. False: no memory or no descriptors left, the
// message is useless.
bool appendParcel(sd_bus_message* message, const uint8_t* bytes, size_t size,
                  const std::vector<Reference>& references);

// What a message says of a parcel; the bytes and descriptors are the message's.
struct ReceivedParcel {
    const uint8_t* bytes = nullptr;
    size_t size = 0;
    std::vector<ParcelAccess::Received> objects;
    std::vector<int> descriptors;  // by their index in the message
};

// Reads "ayauah". False when it makes no sense: too large, objects where there are none,
// descriptors missing or used twice.
bool readParcel(sd_bus_message* message, ReceivedParcel* parcel);

}  // namespace wire
}  // namespace orvhost
