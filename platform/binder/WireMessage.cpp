#include "binder/WireMessage.h"

#include <string.h>

#include <memory>

namespace orvhost::wire {

bool isCall(sd_bus_message* message, const char* member, const char* signature) {
    return sd_bus_message_is_method_call(message, INTERFACE, member) > 0 &&
           sd_bus_message_has_signature(message, signature) > 0;
}

std::optional<size_t> payloadOf(sd_bus_message* message) {
    size_t size = 0;
    if (isCall(message, TRANSACT, TRANSACT_SIGNATURE)) {
        const void* bytes = nullptr;
        const void* offsets = nullptr;
        size_t offsetBytes = 0;
        if (sd_bus_message_skip(message, "tuu") < 0 ||
            sd_bus_message_read_array(message, 'y', &bytes, &size) < 0 ||
            sd_bus_message_read_array(message, 'u', &offsets, &offsetBytes) < 0) {
            return std::nullopt;
        }
        size += offsetBytes;
    } else if (isCall(message, GET_SERVICE, GET_SERVICE_SIGNATURE)) {
        const char* name = "";
        sd_bus_message_read(message, GET_SERVICE_SIGNATURE, &name);
        size = strlen(name);
    } else if (!isCall(message, RELEASE, RELEASE_SIGNATURE) &&
               !isCall(message, HELLO, HELLO_SIGNATURE)) {
        return std::nullopt;
    }
    sd_bus_message_rewind(message, 1);
    return size;
}

bool appendParcel(sd_bus_message* message, const uint8_t* bytes, size_t size,
                  const std::vector<Reference>& references) {
    void* space = nullptr;
    if (sd_bus_message_append_array_space(message, 'y', size, &space) < 0) {
        return false;
    }
    if (size > 0) {
        memcpy(space, bytes, size);
    }
    std::vector<uint32_t> offsets;
    uint64_t index = 0;
    for (const Reference& one : references) {
        const uint64_t value = one.type == ParcelAccess::DESCRIPTOR ? index++ : one.value;
        ParcelAccess::put(static_cast<uint8_t*>(space), one.offset, one.type, value);
        offsets.push_back(static_cast<uint32_t>(one.offset));
    }
    if (sd_bus_message_append_array(message, 'u', offsets.data(),
                                    offsets.size() * sizeof(uint32_t)) < 0 ||
        sd_bus_message_open_container(message, 'a', "h") < 0) {
        return false;
    }
    for (const Reference& one : references) {
        if (one.type == ParcelAccess::DESCRIPTOR &&
            sd_bus_message_append_basic(message, 'h', &one.fd) < 0) {
            return false;
        }
    }
    return sd_bus_message_close_container(message) >= 0;
}

bool readParcel(sd_bus_message* message, ReceivedParcel* parcel) {
    const void* bytes = nullptr;
    const void* offsets = nullptr;
    size_t offsetBytes = 0;
    if (sd_bus_message_read_array(message, 'y', &bytes, &parcel->size) < 0 ||
        sd_bus_message_read_array(message, 'u', &offsets, &offsetBytes) < 0 ||
        sd_bus_message_enter_container(message, 'a', "h") < 0) {
        return false;
    }
    int fd = -1;
    int more = 0;
    while ((more = sd_bus_message_read_basic(message, 'h', &fd)) > 0) {
        parcel->descriptors.push_back(fd);
    }
    const size_t count = offsetBytes / sizeof(uint32_t);
    if (more < 0 || count > MAX_OBJECTS) {
        return false;
    }
    parcel->bytes = static_cast<const uint8_t*>(bytes);
    if (!ParcelAccess::inspect(parcel->bytes, parcel->size, static_cast<const uint32_t*>(offsets),
                               count, &parcel->objects)) {
        return false;
    }
    uint64_t index = 0;
    for (const ParcelAccess::Received& object : parcel->objects) {
        if (object.type == ParcelAccess::DESCRIPTOR && object.value != index++) {
            return false;
        }
    }
    return index <= parcel->descriptors.size();
}

}  // namespace orvhost::wire
