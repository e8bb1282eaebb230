#include "recording/SoundEdges.h"

#include <gtest/gtest.h>

#include "dtv/TsPacket.h"
#include "support/TsBuilder.h"

namespace {

using namespace orvtest;

constexpr unsigned SOUND = 0x112;
constexpr unsigned OTHER = 0x113;
constexpr size_t PES_HEADER = 14;

enum class Framing { Loas, Adts, LayerII };

// A frame with its number in every byte; some contain what looks like the start of another.
Bytes frame(Framing framing, uint8_t number) {
    size_t size = 150 + number * 37u % 200;
    Bytes out;
    switch (framing) {
        case Framing::Loas:
            out = {0x56, static_cast<uint8_t>(0xE0 | (size - 3) >> 8),
                   static_cast<uint8_t>(size - 3)};
            break;
        case Framing::Adts:
            out = {0xFF,
                   0xF1,
                   0x50,
                   static_cast<uint8_t>(0x80 | size >> 11),
                   static_cast<uint8_t>(size >> 3),
                   static_cast<uint8_t>(size << 5),
                   0};
            break;
        case Framing::LayerII:  // 64 kbit/s at 44.1 kHz: 208.98 bytes
            size = 208 + number % 2;
            out = {0xFF, 0xFD, static_cast<uint8_t>(number % 2 == 0 ? 0x40 : 0x42)};
            break;
    }
    out.resize(size, number);
    if (number % 3 == 0) {
        out[20] = 0x56;
        out[21] = 0xE0;
        out[60] = 0xFF;
        out[61] = 0xF1;
        out[80] = 0xFF;
        out[81] = 0xFD;
    }
    return out;
}

struct Recorded {
    Bytes packets;
    Bytes stream;                // of the sound
    std::vector<size_t> frames;  // where they begin in it, and its end when that is one's
};

// PES packets of a third stream between; the sound begins `cut` bytes into a frame.
Recorded record(Framing framing, size_t cut, size_t pesBytes, size_t pesCount) {
    Recorded made;
    Bytes all;
    std::vector<size_t> frames;
    for (uint8_t i = 0; all.size() < cut + pesBytes * pesCount; ++i) {
        frames.push_back(all.size());
        all = all + frame(framing, i);
    }
    frames.push_back(all.size());
    made.stream.assign(all.begin() + static_cast<std::ptrdiff_t>(cut),
                       all.begin() + static_cast<std::ptrdiff_t>(cut + pesBytes * pesCount));
    for (const size_t at : frames) {
        if (at >= cut && at <= cut + made.stream.size()) {
            made.frames.push_back(at - cut);
        }
    }
    TsBuilder builder;
    for (size_t i = 0; i < pesCount; ++i) {
        const auto from = made.stream.begin() + static_cast<std::ptrdiff_t>(i * pesBytes);
        builder.pes(SOUND, 0xC0, static_cast<int64_t>(i),
                    Bytes(from, from + static_cast<std::ptrdiff_t>(pesBytes)));
        builder.pes(OTHER, 0xC0, 0, Bytes(50, 0x56));
    }
    made.packets = builder.build();
    return made;
}

Bytes ofPid(const Bytes& packets, unsigned pid) {
    Bytes out;
    for (size_t at = 0; at < packets.size(); at += 188) {
        if (orvhost::pidOf(packets.data() + at) == pid) {
            out.insert(out.end(), packets.begin() + static_cast<std::ptrdiff_t>(at),
                       packets.begin() + static_cast<std::ptrdiff_t>(at) + 188);
        }
    }
    return out;
}

// What a player makes of the PID: PES packets of the length that they say, without a hole.
Bytes play(const Bytes& all) {
    const Bytes packets = ofPid(all, SOUND);
    Bytes out;
    size_t left = 0;
    for (size_t at = 0; at < packets.size(); at += 188) {
        const uint8_t* p = packets.data() + at;
        size_t start = (p[3] & 0x20) != 0 ? 5u + p[4] : 4u;
        EXPECT_TRUE(at == 0 || (p[3] & 0x0F) == ((p[3 - 188] + 1) & 0x0F)) << at / 188;
        EXPECT_LT(start, 188u);
        EXPECT_EQ((p[1] & 0x40) != 0, left == 0) << at / 188;
        if (left == 0) {
            EXPECT_EQ(Bytes(p + start, p + start + 3), (Bytes{0, 0, 1}));
            left = (static_cast<size_t>(p[start + 4]) << 8 | p[start + 5]) + 6 - PES_HEADER;
            start += PES_HEADER;
        }
        EXPECT_LE(188 - start, left);
        out.insert(out.end(), p + start, p + 188);
        left -= std::min(left, 188 - start);
    }
    EXPECT_EQ(left, 0u);
    return out;
}

// The cut lies at every place of a frame, and of a packet.
TEST(SoundEdgesTest, SoundBeginsAndEndsWithWholeFrames) {
    for (const Framing framing : {Framing::Loas, Framing::Adts, Framing::LayerII}) {
        for (size_t cut = 0; cut < 400; ++cut) {
            SCOPED_TRACE(testing::Message() << static_cast<int>(framing) << " at " << cut);
            const Recorded made = record(framing, cut, 500 + cut % 7 * 31, 12);
            Bytes packets = made.packets;
            const size_t count = packets.size() / 188;
            orvhost::beginWithFrame(packets.data(), count, SOUND);
            orvhost::endWithFrame(packets.data(), count, SOUND);
            const Bytes played = play(packets);
            const size_t begin = made.frames.front();
            const size_t end = made.frames.back();
            ASSERT_EQ(played, Bytes(made.stream.begin() + static_cast<std::ptrdiff_t>(begin),
                                    made.stream.begin() + static_cast<std::ptrdiff_t>(end)));
            EXPECT_EQ(ofPid(packets, OTHER), ofPid(made.packets, OTHER));
            EXPECT_EQ(packets == made.packets, begin == 0 && end == made.stream.size());
        }
    }
}

TEST(SoundEdgesTest, WhatIsNotUnderstoodStaysAsItIs) {
    const Bytes made = record(Framing::Loas, 100, 500, 12).packets;
    struct Case {
        const char* name;
        size_t byte;
        uint8_t mask;
    };
    const size_t second = 188;  // the sound's second packet
    for (const Case& c : {Case{"a hole", second + 3, 0x04},
                          {"scrambled", second + 3, 0x80},
                          {"damaged", second + 1, 0x80},
                          {"no PES packet", 6, 0xFF},
                          {"a long header", 12, 0xF0}}) {
        SCOPED_TRACE(c.name);
        Bytes packets = made;
        packets[c.byte] ^= c.mask;
        const Bytes before = packets;
        orvhost::beginWithFrame(packets.data(), packets.size() / 188, SOUND);
        orvhost::endWithFrame(packets.data(), packets.size() / 188, SOUND);
        EXPECT_EQ(packets, before);
    }
    Bytes none;
    orvhost::beginWithFrame(none.data(), 0, SOUND);
    orvhost::endWithFrame(none.data(), 0, SOUND);
}

}  // namespace
