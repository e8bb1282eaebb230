#include "decoder/BitInterface.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

namespace OrvPlayer {
namespace {

// An exactly sized copy on the heap, so that the address sanitizer sees the end.
class Buffer {
public:
    explicit Buffer(const std::vector<uint8_t>& bytes)
        : mSize(static_cast<unsigned>(bytes.size())), mBytes(new uint8_t[bytes.size()]) {
        std::copy(bytes.begin(), bytes.end(), mBytes.get());
    }
    ReadBitInterface reader() const { return ReadBitInterface(mBytes.get(), mSize); }

private:
    unsigned mSize;
    std::unique_ptr<uint8_t[]> mBytes;
};

const std::vector<uint8_t> SAMPLE = {0xA5, 0x3C, 0xF0, 0x96, 0x5A};

// Any count from any bit of a byte gives the bits that a bit-by-bit walk gives, ending there.
TEST(BitInterfaceTest, ReadsAnyCountFromAnyBit) {
    const Buffer buffer(SAMPLE);
    for (unsigned skip = 0; skip < 8; ++skip) {
        for (unsigned count = 0; count <= 32; ++count) {
            ReadBitInterface reader = buffer.reader();
            ReadBitInterface walker = buffer.reader();
            reader.skipBits(static_cast<uint8_t>(skip), nullptr);
            walker.skipBits(static_cast<uint8_t>(skip), nullptr);
            uint32_t expected = 0;
            for (unsigned i = 0; i < count; ++i) {
                expected = expected << 1 | walker.readBits(1);
            }
            EXPECT_EQ(reader.peekBits(static_cast<uint8_t>(count)), expected);
            EXPECT_EQ(reader.readBits(static_cast<uint8_t>(count)), expected)
                << skip << " + " << count;
            EXPECT_EQ(reader.getBitCounter(), (skip + count) % 8);
            EXPECT_EQ(reader.getSize(), SAMPLE.size() - (skip + count) / 8);
            EXPECT_FALSE(reader.hasOverrun());
        }
    }
}

TEST(BitInterfaceTest, LongReadTakes25To32BitsOnly) {
    const Buffer buffer(SAMPLE);
    ReadBitInterface reader = buffer.reader();
    for (const uint8_t count : {0, 24, 33, 255}) {
        EXPECT_EQ(reader.readBitsLong(count), 0u);
        EXPECT_EQ(reader.getSize(), SAMPLE.size());
    }
    EXPECT_EQ(reader.readBitsLong(32), 0xA53CF096u);
    reader = buffer.reader();
    reader.skipBits(3, nullptr);
    EXPECT_EQ(reader.readBitsLong(25), (0xA53CF0965Au >> 12) & 0x1FFFFFF);
}

// Past the end everything reads as 0, the position stays at the end and the mark stays set.
TEST(BitInterfaceTest, ReadsZerosPastTheEnd) {
    struct {
        uint8_t skip, count;
        uint32_t expected;
    } static const CASES[] = {{39, 2, 0}, {36, 8, 0xA0}, {32, 32, 0x5A000000}, {0, 255, 0}};
    const Buffer buffer(SAMPLE);
    for (const auto& test : CASES) {
        ReadBitInterface reader = buffer.reader();
        reader.skipBits(test.skip, nullptr);
        EXPECT_EQ(reader.peekBits(test.count), test.expected);
        EXPECT_FALSE(reader.hasOverrun());
        EXPECT_EQ(reader.readBits(test.count), test.expected);
        EXPECT_TRUE(reader.hasOverrun());
        EXPECT_EQ(reader.getSize(), 0u);
        int bytes = -1;
        reader.skipBits(255, &bytes);
        EXPECT_EQ(bytes, 0);
        reader.byteAlign(nullptr);
        EXPECT_EQ(reader.readBits(1), 0u);
        EXPECT_EQ(reader.getSize(), 0u);
        EXPECT_TRUE(reader.hasOverrun());
    }
}

TEST(BitInterfaceTest, OutsidePointerKeepsItsShift) {
    struct {
        uint8_t skip, count;
        uint32_t expected;
        int advanced;
    } static const CASES[] = {
        {0, 8, 0xA5, 1},      {4, 8, 0x53, 1},        {0, 16, 0xA53C, 2},  // as expected
        {0, 24, 0xA53C, 3},   {1, 16, 0x014A, 2},     {4, 20, 0xA53C, 3},  // 8 bits too far right
        {1, 24, 0x4A79E1, 3}, {7, 32, 0x9E784B2D, 4},
    };
    for (const auto& test : CASES) {
        ReadBitInterface reader(nullptr, 0);
        int advanced = -1;
        reader.readBits(SAMPLE.data(), test.skip, &advanced);
        EXPECT_EQ(reader.readBits(SAMPLE.data(), test.count, &advanced), test.expected);
        EXPECT_EQ(advanced, test.advanced);
        EXPECT_EQ(reader.getBitCounter(), (test.skip + test.count) % 8);
        EXPECT_FALSE(reader.hasOverrun());
    }
}

TEST(BitInterfaceTest, WritesWhatItReads) {
    std::vector<uint8_t> bytes(12, 0xFF);
    WriteBitInterface writer(bytes.data(), static_cast<unsigned>(bytes.size()));
    int padded = -1;
    EXPECT_EQ(writer.writeBits(0xFFFFFFFD, 3), 0);  // only the low bits count
    writer.byteAlign(&padded);
    EXPECT_EQ(padded, 1);
    writer.byteAlign(&padded);
    EXPECT_EQ(padded, 0);
    writer.writeBits(0x12345678, 32);
    writer.writeBits(0, 0);
    writer.writeBits(0x5, 3);
    writer.skipBits(18, nullptr);
    writer.writeBits(1, 40);  // eight zeros and the word
    EXPECT_EQ(bytes, (std::vector<uint8_t>{0xA0, 0x12, 0x34, 0x56, 0x78, 0xA0, 0, 0, 0, 0, 0, 0}));
}

// A full buffer takes no more bits; the byte behind it is not touched.
TEST(BitInterfaceTest, WriterStopsAtTheEnd) {
    std::vector<uint8_t> bytes = {0xFF, 0xFF, 0xEE};
    WriteBitInterface writer(bytes.data(), 2);
    writer.writeBits(0x3FF, 10);
    EXPECT_FALSE(writer.hasOverrun());
    writer.writeBits(0xABCD, 16);
    writer.skipBits(9, nullptr);
    EXPECT_TRUE(writer.hasOverrun());
    EXPECT_EQ(writer.getSize(), 0u);
    EXPECT_EQ(bytes, (std::vector<uint8_t>{0xFF, 0xEA, 0xEE}));
}

}  // namespace
}  // namespace OrvPlayer
