#include "dtv/network/DatagramContent.h"

#include <cstring>

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

constexpr size_t RTP_HEADER_BYTES = 12;

struct Layout {
    size_t period;
    size_t syncAt;
};

constexpr Layout LAYOUTS[] = {{188, 0}, {204, 0}, {192, 4}};

uint16_t be16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

// Where the payload begins and how long it is; false when the header does not hold together.
bool findPayload(const uint8_t* bytes, size_t size, DatagramContent* content) {
    size_t begin = RTP_HEADER_BYTES + 4u * (bytes[0] & 0x0F);  // CSRC list
    if ((bytes[0] & 0x10) != 0) {
        if (begin + 4 > size) {
            return false;
        }
        begin += 4 + 4u * be16(bytes + begin + 2);  // extension
    }
    if (begin > size) {
        return false;
    }
    size_t end = size;
    if ((bytes[0] & 0x20) != 0) {
        const size_t padding = bytes[size - 1];
        if (padding == 0 || padding > end - begin) {
            return false;
        }
        end -= padding;
    }
    content->begin = begin;
    content->size = end - begin;
    return true;
}

// The layout of most packets of the payload, null without any.
const Layout* layoutOf(const uint8_t* payload, size_t size) {
    for (const Layout& layout : LAYOUTS) {
        if (size == 0 || size % layout.period != 0) {
            continue;
        }
        size_t good = 0;
        for (size_t at = layout.syncAt; at < size; at += layout.period) {
            good += payload[at] == TS_SYNC_BYTE ? 1 : 0;
        }
        if (good * 2 > size / layout.period) {
            return &layout;
        }
    }
    return nullptr;
}

}  // namespace

DatagramContent DatagramContent::of(const uint8_t* bytes, size_t size) {
    DatagramContent content;
    content.size = size;
    if (size < RTP_HEADER_BYTES || (bytes[0] & 0xC0) != 0x80) {
        return content;  // not RTP's version 2
    }
    if (bytes[1] >= 192 && bytes[1] <= 223) {
        content.kind = Kind::Control;
    } else if (findPayload(bytes, size, &content)) {
        content.kind = Kind::Rtp;
        content.number = be16(bytes + 2);
        content.ssrc = static_cast<uint32_t>(be16(bytes + 8)) << 16 | be16(bytes + 10);
    }
    return content;
}

bool hasPackets(const uint8_t* payload, size_t size) {
    return layoutOf(payload, size) != nullptr;
}

size_t compactPackets(uint8_t* payload, size_t size) {
    const Layout* const layout = layoutOf(payload, size);
    if (layout == nullptr) {
        return 0;
    }
    size_t count = 0;
    for (size_t at = layout->syncAt; at < size; at += layout->period) {
        if (payload[at] != TS_SYNC_BYTE) {
            continue;
        }
        uint8_t* const to = payload + count * TS_PACKET_BYTES;
        if (to != payload + at) {
            std::memmove(to, payload + at, TS_PACKET_BYTES);
        }
        ++count;
    }
    return count;
}

}  // namespace orvhost
