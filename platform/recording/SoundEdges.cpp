#include "recording/SoundEdges.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "dtv/TsPacket.h"

namespace orvhost {

namespace {

constexpr size_t PES_FIXED_BYTES = 9;
constexpr size_t FRAME_HEADER_BYTES = 7;  // of ADTS, the longer one
constexpr int FRAMES_IN_A_ROW = 4;        // tell where frames begin

// One PES packet.
struct Pes {
    uint8_t* packet = nullptr;  // in which it starts
    size_t headerBytes = 0;
    size_t begin = 0;  // its payload in the elementary stream
};

// Where a byte of the elementary stream lies.
struct Place {
    uint8_t* packet = nullptr;
    size_t at = 0;
};

size_t payloadOffset(const uint8_t* packet) {
    const bool hasField = (packet[3] & 0x20) != 0;
    return std::min<size_t>(hasField ? 5u + packet[4] : 4u, TS_PACKET_BYTES);
}

// 0 where none begins.
size_t loasFrameBytes(const uint8_t* data) {
    const bool isFrame = data[0] == 0x56 && (data[1] & 0xE0) == 0xE0;
    return isFrame ? 3u + ((data[1] & 0x1Fu) << 8 | data[2]) : 0;
}

size_t adtsFrameBytes(const uint8_t* data) {
    if (data[0] != 0xFF || (data[1] & 0xF6) != 0xF0) {
        return 0;
    }
    const size_t size = (data[3] & 3u) << 11 | data[4] << 3 | data[5] >> 5;
    return size >= FRAME_HEADER_BYTES ? size : 0;
}

// MPEG audio, layer II (ISO/IEC 11172-3 2.4.2.3, ISO/IEC 13818-3 for the low sampling frequencies).
size_t layer2FrameBytes(const uint8_t* data) {
    constexpr uint16_t KBITS[2][16] = {
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0}};
    constexpr uint16_t HZ[2][4] = {{22050, 24000, 16000, 0}, {44100, 48000, 32000, 0}};
    if (data[0] != 0xFF || (data[1] & 0xF6) != 0xF4) {
        return 0;
    }
    const size_t isMpeg1 = data[1] >> 3 & 1;
    const size_t bits = KBITS[isMpeg1][data[2] >> 4] * 1000u;
    const size_t hz = HZ[isMpeg1][data[2] >> 2 & 3];
    return bits == 0 || hz == 0 ? 0 : 144 * bits / hz + (data[2] >> 1 & 1);
}

// The elementary stream of one PID in a stretch of packets, from its first PES packet on.
class Sound {
public:
    // False when it is not understood.
    bool read(uint8_t* packets, size_t count, uint16_t pid) {
        for (size_t i = 0; i < count; ++i) {
            uint8_t* packet = packets + i * TS_PACKET_BYTES;
            if (pidOf(packet) == pid && hasPayload(packet) && !add(packet)) {
                return false;
            }
        }
        return findFrames();
    }

    const std::vector<Pes>& pes() const { return mPes; }
    // Where frames begin, from the first one that is sure on; the last may be the start of what is
    // not there.
    const std::vector<size_t>& frames() const { return mFrames; }
    size_t size() const { return mStream.size(); }
    bool endsWithFrame() const { return mEndsWithFrame; }
    const std::vector<uint8_t*>& packets() const { return mPackets; }

    Place placeOf(size_t at) const {
        const auto next = std::upper_bound(mBegins.begin(), mBegins.end(), at);
        const auto index = static_cast<size_t>(next - mBegins.begin()) - 1;
        uint8_t* packet = mPackets[index];
        const size_t end = index + 1 < mBegins.size() ? mBegins[index + 1] : mStream.size();
        return {packet, TS_PACKET_BYTES - (end - at)};
    }

private:
    bool add(uint8_t* packet) {
        if (isScrambled(packet) || hasTransportError(packet)) {
            return false;
        }
        size_t at = payloadOffset(packet);
        if (startsUnit(packet)) {
            const uint8_t* pes = packet + at;
            const size_t here = TS_PACKET_BYTES - at;
            if (here < PES_FIXED_BYTES || pes[0] != 0 || pes[1] != 0 || pes[2] != 1 ||
                here < PES_FIXED_BYTES + pes[8]) {
                return false;
            }
            mPes.push_back({packet, PES_FIXED_BYTES + pes[8], mStream.size()});
            at += mPes.back().headerBytes;
        } else if (mPes.empty()) {
            return true;
        } else if (continuityCounterOf(packet) != ((mCounter + 1) & 0x0F)) {
            return false;
        }
        mCounter = continuityCounterOf(packet);
        mPackets.push_back(packet);
        mBegins.push_back(mStream.size());
        mStream.insert(mStream.end(), packet + at, packet + TS_PACKET_BYTES);
        return true;
    }

    bool findFrames() {
        return findFrames(loasFrameBytes) || findFrames(adtsFrameBytes) ||
               findFrames(layer2FrameBytes);
    }

    bool findFrames(size_t (*frameBytes)(const uint8_t*)) {
        for (size_t start = 0; start + FRAME_HEADER_BYTES <= mStream.size(); ++start) {
            mFrames.clear();
            size_t at = start;
            size_t bytes = 1;
            while (at + FRAME_HEADER_BYTES <= mStream.size() && bytes > 0) {
                bytes = frameBytes(mStream.data() + at);
                if (bytes > 0) {
                    mFrames.push_back(at);
                    at += bytes;
                }
            }
            if (bytes > 0 && mFrames.size() >= FRAMES_IN_A_ROW) {
                mEndsWithFrame = at == mStream.size();
                if (at < mStream.size()) {
                    mFrames.push_back(at);  // too little of it to tell
                }
                return true;
            }
        }
        return false;
    }

    std::vector<uint8_t> mStream;
    std::vector<Pes> mPes;
    std::vector<uint8_t*> mPackets;  // with payload in mStream ...
    std::vector<size_t> mBegins;     // ... which begins there
    std::vector<size_t> mFrames;
    uint8_t mCounter = 0;
    bool mEndsWithFrame = false;
};

// PES_packet_length; 0 tells nothing.
bool shorten(uint8_t* pes, size_t bytes) {
    const size_t length = static_cast<size_t>(pes[4]) << 8 | pes[5];
    if (length == 0) {
        return true;
    }
    if (length <= bytes) {
        return false;
    }
    pes[4] = static_cast<uint8_t>((length - bytes) >> 8);
    pes[5] = static_cast<uint8_t>(length - bytes);
    return true;
}

// Replaces the payload; the adaptation field grows by stuffing. False when there is no room.
bool setPayload(uint8_t* packet, const uint8_t* payload, size_t size) {
    const bool hasField = (packet[3] & 0x20) != 0;
    size_t used = hasField ? 5u + packet[4] : 4u;
    if (used + size > TS_PACKET_BYTES) {
        return false;
    }
    const size_t begin = TS_PACKET_BYTES - size;
    std::memmove(packet + begin, payload, size);
    if (begin == 4) {
        return true;
    }
    packet[3] |= 0x20;
    packet[4] = static_cast<uint8_t>(begin - 5);
    if (begin > 5 && used <= 5) {
        packet[5] = 0;  // no flags
        used = 6;
    }
    for (size_t at = std::max<size_t>(used, 5); at < begin; ++at) {
        packet[at] = 0xFF;
    }
    return true;
}

// Lets this PES packet begin with its first frame, and tells the packet that it starts in then.
// Null when it cannot.
uint8_t* cutFront(const Sound& sound, const Pes& pes, size_t frame) {
    const Place place = sound.placeOf(frame);
    std::array<uint8_t, TS_PACKET_BYTES> payload;  // the header, and in its packet what is left
    size_t size = pes.headerBytes;
    std::memcpy(payload.data(), pes.packet + payloadOffset(pes.packet), size);
    uint8_t* start = pes.packet;
    if (place.packet == pes.packet) {
        std::memcpy(payload.data() + size, place.packet + place.at, TS_PACKET_BYTES - place.at);
        size += TS_PACKET_BYTES - place.at;
    } else {
        const auto& packets = sound.packets();
        start = *(std::lower_bound(packets.begin(), packets.end(), place.packet) - 1);
    }
    if (!shorten(payload.data(), frame - pes.begin) || !setPayload(start, payload.data(), size)) {
        return nullptr;
    }
    if (start != place.packet) {
        setPayload(place.packet, place.packet + place.at, TS_PACKET_BYTES - place.at);
    }
    start[1] |= 0x40;
    return start;
}

}  // namespace

void makeNull(uint8_t* packet) {
    packet[0] = TS_SYNC_BYTE;
    packet[1] = 0x1F;
    packet[2] = 0xFF;
    packet[3] = 0x10;
}

void beginWithFrame(uint8_t* packets, size_t count, uint16_t pid) {
    Sound sound;
    if (!sound.read(packets, count, pid)) {
        return;
    }
    for (size_t i = 0; i + 1 < sound.pes().size(); ++i) {
        const Pes& pes = sound.pes()[i];
        const auto frame =
            std::lower_bound(sound.frames().begin(), sound.frames().end(), pes.begin);
        if (frame == sound.frames().end() || *frame >= sound.pes()[i + 1].begin) {
            continue;
        }
        const uint8_t* first = *frame == pes.begin ? pes.packet : cutFront(sound, pes, *frame);
        if (first == nullptr) {
            return;
        }
        for (uint8_t* packet : sound.packets()) {
            if (packet < first && !hasPcr(packet)) {
                makeNull(packet);
            }
        }
        return;
    }
}

void endWithFrame(uint8_t* packets, size_t count, uint16_t pid) {
    Sound sound;
    if (!sound.read(packets, count, pid) || sound.endsWithFrame()) {
        return;
    }
    const size_t end = sound.frames().back();
    const auto next = std::upper_bound(sound.pes().begin(), sound.pes().end(), end,
                                       [](size_t at, const Pes& pes) { return at < pes.begin; });
    const Pes& pes = *(next - 1);
    const size_t pesEnd = next == sound.pes().end() ? sound.size() : next->begin;
    const Place place = sound.placeOf(end);
    const uint8_t* from = place.packet;  // goes, and what follows
    if (end == pes.begin) {
        from = pes.packet;  // nothing is left of it
    } else if (!shorten(pes.packet + payloadOffset(pes.packet), pesEnd - end)) {
        return;
    } else if (const size_t start = payloadOffset(place.packet); place.at > start) {
        setPayload(place.packet, place.packet + start, place.at - start);
        from += TS_PACKET_BYTES;
    }
    for (uint8_t* packet : sound.packets()) {
        if (packet >= from) {
            makeNull(packet);
        }
    }
}

}  // namespace orvhost
