#include "tsparser/PESPacketParser.h"

#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

#include "support/TraceCapture.h"
#include "support/TsBuilder.h"

namespace {

using namespace OrvPlayer;
using orvtest::Bytes;
using orvtest::operator+;
using orvtest::TsBuilder;

class PESPacketParserTest : public testing::Test {
protected:
    // Parses a copy of exactly the given size, so that the sanitizer sees every read behind it.
    unsigned parse(const Bytes& bytes) {
        mPacket = bytes;
        mPacket.shrink_to_fit();
        return mParser.parse(mPacket.data(), static_cast<unsigned>(mPacket.size()), &mData);
    }
    std::ptrdiff_t payloadOffset() const { return mData.payload - mPacket.data(); }

    Bytes mPacket;
    PESPacketParser mParser;
    PESParsedData mData;
};

TEST_F(PESPacketParserTest, TimeStampsUpToTheEdgeOf33Bits) {
    for (const int64_t time : {int64_t{0}, int64_t{1}, int64_t{0x155555555}, int64_t{0x0AAAAAAAA},
                               int64_t{0x1FFFFFFFF}}) {
        const int64_t dts = time ^ 0x10F0F0F0F;
        ASSERT_EQ(parse(TsBuilder::pesBytes(0xE0, time, {1, 2, 3}, dts)), 1u);
        EXPECT_EQ(mData.PTS, static_cast<Uint33>(time));
        EXPECT_EQ(mData.DTS, static_cast<Uint33>(dts));
        EXPECT_EQ(payloadOffset(), 19);
        EXPECT_EQ(mData.payload_size, 3u);
    }
}

TEST_F(PESPacketParserTest, AbsentTimeStampsKeepTheirValue) {
    parse(TsBuilder::pesBytes(0xE0, 1000, {1}, 900));
    parse(TsBuilder::pesBytes(0xE0, orvtest::NO_TIME, {1}));
    EXPECT_EQ(mData.PTS, 1000u);
    Bytes forbidden = TsBuilder::pesBytes(0xE0, 5000, {1});
    forbidden[7] = 0x40;  // PTS_DTS_flags 1
    EXPECT_EQ(parse(forbidden), 1u);
    EXPECT_EQ(mData.PTS_DTS_flags, 1);
    EXPECT_EQ(mData.PTS, 1000u);
    parse(TsBuilder::pesBytes(0xE0, 2000, {1}));  // PTS alone
    EXPECT_EQ(mData.PTS, 2000u);
    EXPECT_EQ(mData.DTS, 900u);
}

TEST_F(PESPacketParserTest, StreamIdDecidesWhereThePayloadIs) {
    struct {
        uint8_t id;
        std::ptrdiff_t offset;
    } const CASES[] = {{0xE0, 14}, {0xEF, 14}, {0xC0, 14}, {0xDF, 14}, {0xBD, 14},
                       {0xBE, 6},  {0xBF, 6},  {0xBC, 6},  {0xF0, 6},  {0xFF, 6}};
    for (const auto& c : CASES) {
        ASSERT_EQ(parse(TsBuilder::pesBytes(c.id, 90'000, Bytes(10, 1))), 1u);
        EXPECT_EQ(mData.stream_id, c.id);
        EXPECT_EQ(payloadOffset(), c.offset);
        EXPECT_EQ(mData.payload_size, 24 - c.offset);
        EXPECT_EQ(mData.PES_packet_length, 18);
    }
}

TEST_F(PESPacketParserTest, BadStartBitsPutThePayloadAtByte6) {
    Bytes bytes = TsBuilder::pesBytes(0xE0, 90'000, {1, 2, 3});
    bytes[6] = 0x40;
    bytes[8] = 0xFF;  // no length then
    orvtest::TraceCapture trace;
    ASSERT_EQ(parse(bytes), 1u);
    EXPECT_EQ(trace.take(),
              (std::vector<std::string>{"parseOptHeader - bad optional header start bits!"}));
    EXPECT_EQ(payloadOffset(), 6);
    EXPECT_EQ(mData.PTS, 0u);
}

// Everything that an optional header can carry, in its order. The packet's length is wrong, as
// broadcasts have it, and looked at by nobody.
Bytes fullHeader() {
    Bytes fields{0x31, 0x23, 0x45, 0x67, 0x89,        // PTS
                 0x11, 0x98, 0x77, 0x65, 0x43,        // DTS
                 0x36, 0xA5, 0xFE, 0x5A, 0xCF, 0x81,  // ESCR
                 0xC0, 0x12, 0x35,                    // ES rate
                 0x42,                                // trick mode
                 0x93,                                // additional copy info
                 0xBE, 0xEF,                          // CRC
                 0xF1};                               // extension flags
    Bytes privateData(16);
    std::iota(privateData.begin(), privateData.end(), uint8_t{0x50});
    fields = fields + privateData;
    fields = fields + Bytes{0x09,         // pack header length; the pack header is not skipped
                            0xA5, 0xBF,   // sequence counter
                            0x6A, 0xBC,   // P-STD
                            0x81, 0x2D};  // extension 2
    return Bytes{0, 0, 1, 0xE0, 0, 1, 0xBE, 0xFF, static_cast<uint8_t>(fields.size())} + fields;
}

TEST_F(PESPacketParserTest, OptionalFields) {
    const Bytes header = fullHeader();
    ASSERT_EQ(parse(header + Bytes(5, 0x99)), 1u);
    EXPECT_EQ(payloadOffset(), static_cast<std::ptrdiff_t>(header.size()));
    EXPECT_EQ(mData.payload_size, 5u);
    EXPECT_EQ(mData.PES_scrambling_control, 3);
    EXPECT_EQ(mData.PES_priority, 1);
    EXPECT_EQ(mData.original_or_copy, 0);
    EXPECT_EQ(mData.PTS, 0x23ull << 22 | 0x22ull << 14 << 1 | 0x67 << 7 | 0x44);
    EXPECT_EQ(mData.ESCR_base, 6ull << 30 | 2ull << 28 | 0xA5ull << 20 | 0x1Full << 15 |
                                   2ull << 13 | 0x5Aull << 5 | 0x19);
    EXPECT_EQ(mData.ESCR_extension, 3 << 7 | 0x40);
    EXPECT_EQ(mData.ES_rate, 0x40u << 15 | 0x12u << 7 | 0x1A);
    EXPECT_EQ(mData.additional_copy_info, 0x13);
    EXPECT_EQ(mData.previous_PES_packet_CRC, 0xBEEF);
    EXPECT_EQ(mData.PES_private_data[0], 0x50);
    EXPECT_EQ(mData.PES_private_data[15], 0x5F);
    EXPECT_EQ(mData.pack_field_length, 9);
    EXPECT_EQ(mData.program_packet_sequence_counter, 0x25);
    EXPECT_EQ(mData.MPEG1_MPEG2_identifier, 1);
    EXPECT_EQ(mData.original_stuff_length, 0x3F);
    EXPECT_EQ(mData.P_STD_buffer_scale, 1);
    EXPECT_EQ(mData.P_STD_buffer_size, 0x0ABC);
    EXPECT_EQ(mData.PES_extension_field_length, 1);
    EXPECT_EQ(mData.stream_id_extension_flag, 0);
    EXPECT_EQ(mData.stream_id_extension, 0x2D);
}

// The header's length alone places the payload, even before the end of the fields; they are read
// as far as the packet goes.
TEST_F(PESPacketParserTest, CutAnywhere) {
    const Bytes header = fullHeader();
    for (size_t size = 0; size <= header.size(); ++size) {
        const Bytes cut(header.begin(), header.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(parse(cut), size == header.size() ? 1u : 0u) << size;
        if (size >= 9) {
            Bytes within = cut;
            within[8] = 0;  // the header fits, not all of its fields do
            mData = PESParsedData();
            EXPECT_EQ(parse(within), 1u);
            EXPECT_EQ(mData.payload_size, size - 9);
            EXPECT_EQ(mData.PTS != 0, size >= 14);
            EXPECT_EQ(mData.previous_PES_packet_CRC != 0, size >= 32);
            EXPECT_EQ(mData.stream_id_extension != 0, size >= header.size());
        }
    }
    Bytes tooLong = header;
    tooLong[8]++;
    EXPECT_EQ(parse(tooLong), 0u);
    EXPECT_EQ(parse({0, 0, 1, 0xBF, 0, 0}), 1u);  // no optional header: 6 bytes are enough
    EXPECT_EQ(parse({0, 0, 1, 0xBF, 0}), 0u);
}

TEST_F(PESPacketParserTest, RefusesWhatIsNoPES) {
    Bytes bytes = TsBuilder::pesBytes(0xE0, 0, {1});
    for (size_t at : {0u, 1u, 2u}) {
        Bytes broken = bytes;
        broken[at] ^= 2;
        EXPECT_EQ(parse(broken), 0u);
    }
    EXPECT_EQ(mParser.parse(nullptr, 10, &mData), 0u);
    EXPECT_EQ(mParser.parse(bytes.data(), 0, &mData), 0u);
    EXPECT_EQ(mParser.parse(bytes.data(), 10, nullptr), 0u);
    mParser.printPESData(nullptr);
}

}  // namespace
