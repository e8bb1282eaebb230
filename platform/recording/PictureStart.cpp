#include "recording/PictureStart.h"

#include <algorithm>

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

constexpr size_t PES_FIXED_BYTES = 9;

// What precedes the first slice of a picture, SEI included, takes no more than this.
constexpr int MAX_PACKETS = 8;

enum StreamType : uint8_t { MPEG1 = 0x01, MPEG2 = 0x02, H264 = 0x1B, H265 = 0x24 };

bool hasRandomAccessIndicator(const uint8_t* packet) {
    return hasAdaptationFlags(packet) && (packet[5] & 0x40) != 0;
}

size_t payloadOffsetOf(const uint8_t* packet) {
    if (!hasPayload(packet)) {
        return TS_PACKET_BYTES;
    }
    const size_t offset = (packet[3] & 0x20) != 0 ? 5u + packet[4] : 4u;
    return std::min(offset, TS_PACKET_BYTES);
}

}  // namespace

PictureStart::Verdict PictureStart::begin(const uint8_t* packet) {
    if (hasRandomAccessIndicator(packet)) {
        return Verdict::Yes;
    }
    const size_t start = payloadOffsetOf(packet);
    const uint8_t* pes = packet + start;
    const size_t size = TS_PACKET_BYTES - start;
    if (size < PES_FIXED_BYTES || pes[0] != 0 || pes[1] != 0 || pes[2] != 1) {
        return Verdict::No;
    }
    mPacketsLeft = MAX_PACKETS;
    mCode = UINT32_MAX;
    const size_t header = PES_FIXED_BYTES + pes[8];
    const size_t here = std::min(header, size);
    mHeaderLeft = header - here;
    return look(pes + here, size - here);
}

PictureStart::Verdict PictureStart::next(const uint8_t* packet) {
    const size_t start = payloadOffsetOf(packet);
    const size_t skip = std::min(mHeaderLeft, TS_PACKET_BYTES - start);
    mHeaderLeft -= skip;
    return look(packet + start + skip, TS_PACKET_BYTES - start - skip);
}

PictureStart::Verdict PictureStart::look(const uint8_t* data, size_t size) {
    for (size_t i = 0; i < size; ++i) {
        mCode = mCode << 8 | data[i];
        if ((mCode & 0xFFFFFF00) == 0x100) {
            const Verdict verdict = judge(data[i]);
            if (verdict != Verdict::Undecided) {
                return verdict;
            }
        }
    }
    return --mPacketsLeft > 0 ? Verdict::Undecided : Verdict::No;
}

PictureStart::Verdict PictureStart::judge(uint8_t startCode) const {
    bool yes = false;
    bool isPicture = false;
    if (mStreamType == MPEG1 || mStreamType == MPEG2) {
        yes = startCode == 0xB3 || startCode == 0xB8;
        isPicture = startCode == 0;
    } else if (mStreamType == H265) {
        const int type = startCode >> 1 & 0x3F;
        yes = (type >= 16 && type <= 23) || type == 32 || type == 33;
        isPicture = type < 16;
    } else {
        const int type = startCode & 0x1F;
        yes = type == 5 || type == 7;
        isPicture = type >= 1 && type <= 4;
    }
    return yes ? Verdict::Yes : isPicture ? Verdict::No : Verdict::Undecided;
}

}  // namespace orvhost
