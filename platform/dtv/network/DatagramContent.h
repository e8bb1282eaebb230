#pragma once

#include <cstddef>
#include <cstdint>

namespace orvhost {

// What a datagram is, by its first bytes: RTP (RFC 3550 5.1, payload as in RFC 2250), RTCP on the
// same port (RFC 5761), or anything else, which may be packets alone.
struct DatagramContent {
    enum class Kind { Bare, Rtp, Control };

    Kind kind = Kind::Bare;
    uint32_t ssrc = 0;    // RTP's
    uint16_t number = 0;  // its sequence number
    // The payload: behind header, CSRC list and extension, before the padding.
    size_t begin = 0;
    size_t size = 0;

    // A header that says more than there is makes a datagram Bare.
    static DatagramContent of(const uint8_t* bytes, size_t size);
};

// Leaves the transport stream packets of a payload, 188 bytes each, at its start and tells their
// number: 0 when there are none. They may stand there with 16 bytes of parity behind each (204) or
// 4 bytes of time stamp before it (192). Where most begin as they should, the others are left out.
size_t compactPackets(uint8_t* payload, size_t size);

// Whether compactPackets() would find any.
bool hasPackets(const uint8_t* payload, size_t size);

}  // namespace orvhost
