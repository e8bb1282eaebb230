#include "tsparser/TSPacketParser.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/TraceCapture.h"
#include "support/TsBuilder.h"

namespace {

using namespace OrvPlayer;
using orvtest::Bytes;
using orvtest::operator+;

constexpr unsigned PID = 0x111;

// One packet spelled out, in memory of exactly its size so that the sanitizer sees every read
// behind it. The payload, or what the field does not use, is `fill`.
Bytes packet(unsigned control, unsigned counter, bool start = false, const Bytes& field = {},
             uint8_t fill = 0xAA) {
    Bytes bytes{0x47, static_cast<uint8_t>((start ? 0x40 : 0) | PID >> 8),
                static_cast<uint8_t>(PID & 0xFF), static_cast<uint8_t>(control << 4 | counter)};
    bytes = bytes + field;
    bytes.resize(TS_PACKET_BYTES, fill);
    bytes.shrink_to_fit();
    return bytes;
}

class TSPacketParserTest : public testing::Test {
protected:
    unsigned parse(Bytes bytes) {
        mPackets.push_back(std::move(bytes));  // records point into it
        return mParser.parse(mPackets.back().data(), &mData);
    }
    std::ptrdiff_t payloadOffset() const { return mData.payload - mPackets.back().data(); }

    std::vector<Bytes> mPackets;
    TSPacketParser mParser;
    TSParsedData mData;
};

TEST_F(TSPacketParserTest, FollowsTheContinuityCounter) {
    struct {
        unsigned control, counter;
        bool start;
        unsigned result;
    } const SEQUENCE[] = {
        {1, 3, false, 8},                                        // nothing has started
        {1, 14, true, 2},  {1, 15, false, 2}, {1, 0, false, 2},  // 15 is followed by 0
        {2, 0, false, 2},  // without a payload the counter stays
        {2, 1, false, 1},  // <- and must not move
        {1, 2, false, 8},  {1, 3, true, 2},   {3, 4, true, 6},  // completes the one before
        {1, 4, false, 1},                                       // <- repeated
        {1, 9, true, 2},   {1, 11, true, 3},                    // <- hole, but a new start
        {1, 12, false, 2}, {0, 13, false, 1},                   // <- reserved
        {1, 14, false, 8},
    };
    int line = 0;
    for (const auto& step : SEQUENCE) {
        const Bytes field = step.control == 3 ? Bytes{1, 0} : Bytes{};
        EXPECT_EQ(parse(packet(step.control, step.counter, step.start, field)), step.result)
            << "packet " << line;
        ++line;
    }
}

TEST_F(TSPacketParserTest, RefusesNull) {
    Bytes bytes = packet(1, 0, true);
    EXPECT_EQ(mParser.parse(bytes.data(), &mData), 2u);
    EXPECT_EQ(mParser.parse(nullptr, &mData), 1u);
    EXPECT_EQ(mParser.parse(bytes.data(), nullptr), 1u);
    EXPECT_EQ(mParser.parseHeader(nullptr, &mData), 16u);
    mParser.parseAdaptationField(nullptr, &mData);
    mParser.printTSData(nullptr);
    bytes = packet(1, 1);
    EXPECT_EQ(mParser.parse(bytes.data(), &mData), 8u);
}

TEST_F(TSPacketParserTest, FindsThePayload) {
    struct {
        unsigned control;
        Bytes field;
        std::ptrdiff_t offset;
        uint32_t size;
    } const CASES[] = {
        {1, {}, 4, 184},     {3, {0}, 5, 183},
        {3, {1, 0}, 6, 182}, {3, {183}, 188, 0},  // full to the last byte
        {2, {183, 0}, 0, 0},
    };
    for (const auto& c : CASES) {
        mParser.abandonPES();
        EXPECT_EQ(parse(packet(c.control, 0, true, c.field, 0)), 2u);
        EXPECT_EQ(payloadOffset(), c.offset);
        EXPECT_EQ(mData.payload_size, c.size);
    }
    EXPECT_EQ(mData.PID, PID);
    EXPECT_EQ(mData.payload_unit_start_indicator, 1);
}

TEST_F(TSPacketParserTest, NarrowsTheClockReferenceExtension) {
    parse(packet(3, 0, true,
                 {13, 0x18, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  //
                  0x00, 0x00, 0x00, 0x01, 0x81, 0x02}));
    EXPECT_EQ(mData.program_clock_reference_base, 0x1FFFFFFFFu);
    EXPECT_EQ(mData.program_clock_reference_extension, 0xFF);
    EXPECT_EQ(mData.original_program_clock_reference_base, 3u);
    EXPECT_EQ(mData.original_program_clock_reference_extension, 0x82);
}

// A packet without the field, or with an empty one, leaves the record's flags and values alone.
TEST_F(TSPacketParserTest, FieldsStayUntilTheyComeAgain) {
    parse(packet(3, 0, true, {8, 0x54, 0, 0, 0, 1, 0, 0, 7}));
    EXPECT_EQ(parse(packet(1, 1)), 2u);
    EXPECT_EQ(parse(packet(3, 2, false, {0})), 2u);
    EXPECT_EQ(mData.PCR_flag, 1);
    EXPECT_EQ(mData.random_access_indicator, 1);
    EXPECT_EQ(mData.program_clock_reference_base, 2u);
    EXPECT_EQ(mData.splice_countdown, 7);
    EXPECT_EQ(mData.adaptation_field_length, 0);
}

const Bytes EXTENSION{11,   0xE0, 0x81, 0x23, 0x5A, 0xBC, 0xDE,  // ltw 0x0123, rate
                      0x6F, 0x80, 0x03, 0xC0, 0x05};             // splice type 6, DTS

TEST_F(TSPacketParserTest, ReadsTheExtensionAtFixedOffsets) {
    parse(packet(3, 0, true, Bytes{40, 0x03, 2, 0xD1, 0xD2} + EXTENSION));
    ASSERT_EQ(mData.transport_private_data_length, 2);
    EXPECT_EQ(mData.private_data_byte[0], 0xD1);
    EXPECT_EQ(mData.private_data_byte[1], 0xD2);
    EXPECT_EQ(mData.adaptation_field_extension_length, 11);
    EXPECT_EQ(mData.ltw_flag, 0x80);
    EXPECT_EQ(mData.piecewise_rate_flag, 0x40);
    EXPECT_EQ(mData.seamless_splice_flag, 0x20);
    EXPECT_EQ(mData.ltw_valid_flag, 1);
    EXPECT_EQ(mData.ltw_offset, 0x0123);
    EXPECT_EQ(mData.piecewise_rate, 0x1ABC5Au);  // byte 4 twice, byte 6 not at all
    EXPECT_EQ(mData.splice_type, 6);
    EXPECT_EQ(mData.DTS_next_AU, 7ull << 30 | 0x80ull << 22 | 1ull << 15 | 0xC0ull << 7 | 2);
    orvtest::TraceCapture trace;
    for (const size_t marker : {7u, 9u, 11u}) {  // each of the three is needed
        Bytes broken = EXTENSION;
        broken[marker] ^= 1;
        mData.splice_type = 0;
        parse(packet(3, 0, true, Bytes{40, 0x03, 2, 0xD1, 0xD2} + broken));
        EXPECT_EQ(mData.splice_type, 0);
        EXPECT_EQ(trace.take().front(), "parseAdaptationField - bad seamless splice marker bits!");
    }
}

TEST_F(TSPacketParserTest, ExtensionWithoutPrivateDataIsReadOneByteOn) {
    parse(packet(3, 0, true, Bytes{40, 0x01, 0x77} + EXTENSION));
    EXPECT_EQ(mData.adaptation_field_extension_length, 11);
    EXPECT_EQ(mData.ltw_offset, 0x0123);
    EXPECT_EQ(mData.private_data_byte, nullptr);
}

// Every length that private data can claim: copied up to the packet's end and no further, and of an
// extension behind it only what lies inside.
TEST_F(TSPacketParserTest, ReadsNothingBehindThePacket) {
    for (unsigned length = 0; length <= 255; ++length) {
        SCOPED_TRACE(length);
        Bytes bytes = packet(3, 0, true, Bytes{255, 0x03, static_cast<uint8_t>(length)}, 0xFF);
        bytes.back() = 0x5C;
        mData = TSParsedData();
        EXPECT_EQ(parse(bytes), 255u);
        EXPECT_EQ(mData.transport_private_data_length, length);
        if (length >= 181) {  // 7 + 181 = 188
            ASSERT_NE(mData.private_data_byte, nullptr);
            EXPECT_EQ(mData.private_data_byte[180], 0x5C);
            EXPECT_EQ(mData.adaptation_field_extension_length, 0);
        }
        EXPECT_EQ(mData.ltw_offset != 0, length <= 177);
        EXPECT_EQ(mData.piecewise_rate != 0, length <= 175);
        EXPECT_EQ(mData.DTS_next_AU != 0, length < 169);
    }
}

TEST_F(TSPacketParserTest, PrivateCopiesOutliveSixtyThreeMore) {
    auto withPrivateByte = [](uint8_t value) { return packet(3, 0, true, {10, 0x02, 1, value}); };
    parse(withPrivateByte(1));
    const uint8_t* first = mData.private_data_byte;
    for (uint8_t value = 2; value <= 64; ++value) {
        parse(withPrivateByte(value));
        EXPECT_EQ(mData.private_data_byte[0], value);
    }
    EXPECT_EQ(first[0], 1);
    for (int i = 0; i < 1000; ++i) {
        parse(withPrivateByte(99));  // no memory is added, which the leak check confirms
    }
    EXPECT_EQ(first[0], 99);
    parse(packet(3, 0, true, {10, 0x00}));
    EXPECT_EQ(mData.private_data_byte, nullptr);
    EXPECT_EQ(mData.transport_private_data_length, 0);
}

TEST_F(TSPacketParserTest, StartAfterAHoleRepeatsThePayloadBefore) {
    parse(packet(1, 0, true, {}, 0x11));
    parse(packet(3, 1, false, {150}, 0x22));
    // The bytes go away between two passes of the owner.
    mParser.retainPayload(&mData);
    std::fill(mPackets[1].begin(), mPackets[1].end(), 0xEE);
    orvtest::TraceCapture trace;
    for (unsigned counter : {5u, 9u}) {  // also twice in a row
        EXPECT_EQ(parse(packet(1, counter, true, {}, 0x33)), 3u);
        ASSERT_EQ(mData.payload_size, 33u);
        EXPECT_EQ(Bytes(mData.payload, mData.payload + 33), Bytes(33, 0x22));
        mParser.retainPayload(&mData);
    }
    const std::string says = "parse - [PID = 273] continuity error! Discarding entire PES packet ";
    EXPECT_EQ(trace.take(), (std::vector<std::string>{says + "(expected 0x02, received 0x05)",
                                                      says + "(expected 0x06, received 0x09)"}));
}

}  // namespace
