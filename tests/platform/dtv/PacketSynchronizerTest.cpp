#include "dtv/PacketSynchronizer.h"

#include <gtest/gtest.h>

#include "support/TsBuilder.h"

namespace {

using namespace orvtest;
using orvhost::PacketSynchronizer;

// Payload byte 0 of a packet is its letter; the rest holds no sync byte.
Bytes packet(char letter) {
    Bytes payload(184, 0xA5);
    payload[0] = static_cast<uint8_t>(letter);
    return TsBuilder().packet(0x100, payload).build();
}

Bytes packets(std::string_view letters) {
    Bytes all;
    for (char letter : letters) {
        all = all + packet(letter);
    }
    return all;
}

// Feeds `input` in slices, as a reader would, and returns the letters of the packets found.
std::string align(PacketSynchronizer& sync, const Bytes& input, size_t slice) {
    std::string letters;
    Bytes buffer;
    for (size_t at = 0; at <= input.size(); at += slice) {
        const size_t n = std::min(slice, input.size() - at);
        const auto begin = input.begin() + static_cast<std::ptrdiff_t>(at);
        buffer.insert(buffer.end(), begin, begin + static_cast<std::ptrdiff_t>(n));
        const bool last = at + slice > input.size();
        const auto result = sync.align(buffer.data(), buffer.size(), last);
        for (size_t i = 0; i < result.packets; ++i) {
            EXPECT_EQ(buffer[i * 188], 0x47);
            letters.push_back(static_cast<char>(buffer[i * 188 + 4]));
        }
        buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(result.consumed));
        EXPECT_LE(buffer.size(), PacketSynchronizer::MAX_LEFT_OVER);
    }
    return letters;
}

struct Case {
    const char* name;
    Bytes input;
    const char* letters;
    uint64_t losses;
    size_t period;
};

Bytes padded(std::string_view letters, size_t before, size_t after) {
    Bytes all;
    for (char letter : letters) {
        all = all + Bytes(before, 0x11) + packet(letter) + Bytes(after, 0x22);
    }
    return all;
}

Bytes withHit(Bytes bytes, size_t at) {
    bytes[at] ^= 0x10;
    return bytes;
}

Bytes cut(Bytes bytes, size_t at, size_t count) {
    const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    bytes.erase(from, from + static_cast<std::ptrdiff_t>(count));
    return bytes;
}

class PacketSynchronizerTest : public testing::TestWithParam<size_t> {};

TEST_P(PacketSynchronizerTest, FindsTheWholePacketsAndCountsTheRest) {
    const Case cases[] = {
        {"clean", packets("ABCDEFGH"), "ABCDEFGH", 0, 188},
        {"one packet", packets("A"), "A", 0, 188},
        {"garbage first", Bytes(500, 0x11) + Bytes{0x47} + Bytes(3, 0) + packets("ABCDEFGH"),
         "ABCDEFGH", 0, 188},
        {"time stamps", padded("ABCDEFGH", 4, 0), "ABCDEFGH", 0, 192},
        {"parity", padded("ABCDEFGH", 0, 16), "ABCDEFGH", 0, 204},
        {"bytes lost", cut(packets("ABCDEFGHIJKLMNO"), 188 * 6 + 50, 60), "ABCDEFHIJKLMNO", 1, 188},
        {"a byte lost", cut(packets("ABCDEFGHIJKLMNO"), 188 * 6 + 50, 1), "ABCDEFHIJKLMNO", 1, 188},
        {"bytes added", packets("ABCDEFG") + Bytes(100, 0xA5) + packets("HIJKLMNO"),
         "ABCDEFHIJKLMNO", 1, 188},
        {"a packet of noise", packets("ABCDEFG") + Bytes(188, 0xA5) + packets("HIJKLMNO"),
         "ABCDEFGHIJKLMNO", 1, 188},
        {"sync byte hit", withHit(packets("ABCDEFGH"), 188 * 5), "ABCDEGH", 1, 188},
        {"cut at the end", cut(packets("ABCDEFGH"), 188 * 8 - 20, 20), "ABCDEFG", 0, 188},
        {"no stream", Bytes(5000, 0x20), "", 0, 0},
        {"text with a G near its end", Bytes(5000, 0x20) + bytesOf("G") + Bytes(250, 0x20), "", 0,
         0},
        {"nothing", {}, "", 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        PacketSynchronizer sync;
        EXPECT_EQ(align(sync, c.input, GetParam()), c.letters);
        EXPECT_EQ(sync.syncLosses(), c.losses);
        EXPECT_EQ(sync.period(), c.period);
    }
}

INSTANTIATE_TEST_SUITE_P(BytesPerRead, PacketSynchronizerTest,
                         testing::Values(1u, 187u, 188u, 189u, 1000u, 100'000u));

}  // namespace
