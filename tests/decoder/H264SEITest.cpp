#include "decoder/H264SEI.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "support/H264Builder.h"
#include "support/TraceCapture.h"

namespace OrvPlayer {
namespace {

using namespace h264;

class H264SEITest : public testing::Test {
protected:
    // Decodes one unit's payload; true when it set the picture timing.
    bool decode(const Bytes& payload) {
        const Bytes exact = escaped(payload);
        const auto size = static_cast<uint32_t>(exact.size());
        bool found = false;
        EXPECT_EQ(decodeSEI({exact.data(), size, size}, true, &mSps, &found), 0);
        return found;
    }
    bool decodeTiming(const Bits& fields) {
        Bits closed = fields;
        return decode(message(1, closed.trailing().bytes()).trailing().bytes());
    }

    orvtest::TraceCapture mTrace;
    SPS mSps;
};

TEST_F(H264SEITest, PictureStructureSaysHowManyTimestamps) {
    mSps.picStructPresentFlag = 1;
    const int COUNTS[] = {1, 1, 1, 2, 2, 3, 3, 2, 3};
    for (unsigned picStruct = 0; picStruct < 9; ++picStruct) {
        mSps.clockTimestamps[1] = mSps.clockTimestamps[2] = ClockTimestamp();
        Bits bits = Bits().u(4, picStruct);
        for (unsigned i = 0; i < 3; ++i) {
            // One that only says when: counting type, full flag 0, n_frames, no time of day.
            bits.u(1, 1).u(2, i).u(1, 0).u(5, 4).u(3, 0).u(8, 10 + i).u(1, 0).u(24, i);
        }
        EXPECT_TRUE(decodeTiming(bits));
        EXPECT_EQ(mSps.picStruct, picStruct);
        EXPECT_EQ(mSps.clockTimestamps[0].nFrames, 10);
        EXPECT_EQ(mSps.clockTimestamps[1].nFrames, COUNTS[picStruct] > 1 ? 11 : 0);
        EXPECT_EQ(mSps.clockTimestamps[2].nFrames, COUNTS[picStruct] > 2 ? 12 : 0);
    }
}

// dpb_output_delay is read with the length of the other delay, into the same field.
TEST_F(H264SEITest, BothDelaysHaveTheCpbLength) {
    mSps.picStructPresentFlag = 1;
    mSps.vclHrdParametersPresentFlag = 1;
    mSps.vclHrd.cpbRemovalDelayLengthMinus1 = 31;
    mSps.vclHrd.dpbOutputDelayLengthMinus1 = 3;
    EXPECT_TRUE(decodeTiming(Bits().u(32, 0x01020304).u(32, 0x05060708).u(4, 4).u(2, 0)));
    EXPECT_EQ(mSps.cpbRemovalDelay, 8);
    EXPECT_EQ(mSps.picStruct, 4);
    // The NAL HRD's length goes first.
    mSps.nalHrdParametersPresentFlag = 1;
    mSps.nalHrd.cpbRemovalDelayLengthMinus1 = 7;
    EXPECT_TRUE(decodeTiming(Bits().u(8, 1).u(8, 2).u(4, 5).u(2, 0)));
    EXPECT_EQ(mSps.cpbRemovalDelay, 2);
    EXPECT_EQ(mSps.picStruct, 5);
    // Bits that are missing at the end count as 0: pictures wait for this message.
    mSps.nalHrd.cpbRemovalDelayLengthMinus1 = 31;
    EXPECT_TRUE(decodeTiming(Bits().u(8, 1).u(8, 2)));
    EXPECT_EQ(mSps.picStruct, 0);
}

// The time of day in all its forms, and the offset with the length that the HRD says, the VCL's
// before the NAL's. A second timestamp shows that the first took just its bits.
TEST_F(H264SEITest, ReadsTheTimeOfDayAndItsOffset) {
    const Bits none = Bits().u(1, 0);
    struct {
        std::optional<uint8_t> nalLength, vclLength;
        bool full;
        Bits time, offset;
        int hours, minutes, seconds;
        uint32_t timeOffset;
    } const CASES[] = {
        {{},
         {},
         true,
         Bits().u(6, 59).u(6, 58).u(5, 23),
         Bits().u(24, 0xABCDEF),
         23,
         58,
         59,
         0xABCDEF},
        {31, {}, false, none, Bits().u(31, 0x7EDCBA98), 0, 0, 0, 0x7EDCBA98},
        {31, 0, false, Bits().u(1, 1).u(6, 7).u(1, 0), Bits(), 0, 0, 7, 0},
        {0, 25, false, Bits().u(1, 1).u(6, 7).u(1, 1).u(6, 8).u(1, 0), Bits().u(25, 0x1234567), 0,
         8, 7, 0x1234567},
        {0, {}, false, Bits().u(1, 1).u(6, 7).u(1, 1).u(6, 8).u(1, 1).u(5, 9), Bits(), 9, 8, 7, 0},
    };
    for (const auto& test : CASES) {
        mSps = SPS();
        mSps.picStructPresentFlag = 1;
        mSps.nalHrdParametersPresentFlag = test.nalLength.has_value();
        mSps.nalHrd.timeOffsetLength = test.nalLength.value_or(9);
        mSps.vclHrdParametersPresentFlag = test.vclLength.has_value();
        mSps.vclHrd.timeOffsetLength = test.vclLength.value_or(9);
        Bits bits;
        if (test.nalLength || test.vclLength) {
            bits.u(2, 0);  // the delays
        }
        bits.u(4, 3);
        for (const unsigned frames : {10u, 11u}) {
            bits.u(1, 1).u(8, 0).u(1, test.full).u(2, 0).u(8, frames);
            bits.append(test.time).append(test.offset);
        }
        EXPECT_TRUE(decodeTiming(bits));
        for (const int i : {0, 1}) {
            const ClockTimestamp& stamp = mSps.clockTimestamps[i];
            EXPECT_EQ(stamp.nFrames, 10 + i);
            EXPECT_EQ(stamp.hoursValue, test.hours);
            EXPECT_EQ(stamp.minutesValue, test.minutes);
            EXPECT_EQ(stamp.secondsValue, test.seconds);
            EXPECT_EQ(stamp.timeOffset, test.timeOffset);
        }
    }
}

// Other messages are skipped by their size in bits modulo 256.
TEST_F(H264SEITest, LongMessagesAreSkippedModulo32Bytes) {
    mSps.picStructPresentFlag = 1;
    const auto timing = [](unsigned picStruct) {
        return message(1, Bits().u(4, picStruct).u(4, 0).bytes());
    };
    EXPECT_TRUE(decode(message(4, Bytes(31, 0x40)).append(timing(3)).trailing().bytes()));
    EXPECT_EQ(mSps.picStruct, 3);
    // 33 bytes: one is skipped, the others are read as messages.
    const Bytes hidden = Bytes{0x40} + timing(5).bytes() + Bytes(29, 0x20);
    EXPECT_TRUE(decode(message(4, hidden).trailing().bytes()));
    EXPECT_EQ(mSps.picStruct, 5);
    // Type and size beyond 254 are sums.
    Bits large;
    large.u(16, 0xFF05).u(16, 0xFF01);  // type 260, 256 bytes: nothing is skipped
    EXPECT_TRUE(decode(large.append(timing(6)).trailing().bytes()));
    EXPECT_EQ(mSps.picStruct, 6);
}

TEST_F(H264SEITest, DamagedMessagesEnd) {
    mSps.picStructPresentFlag = 1;
    const Bytes CASES[] = {
        Bytes(40, 0xFF),        // sums without end
        Bytes(40, 0x00),        // messages of nothing
        {4, 200, 0x40, 0x40},   // longer than the unit
        {1, 1, 0x90, 0x80},     // picture structure 9
        {0x80, 0x80, 0x80, 0},  // stop bits
    };
    for (const Bytes& payload : CASES) {
        EXPECT_FALSE(decode(payload));
    }
    EXPECT_THAT(mTrace.take(),
                testing::ElementsAre("decodePicTimingSEI: Invalid picStruct value: 9",
                                     "decodeSEI: Error decoding SEI"));
    // Without the flag there is nothing to read, and that is enough.
    mSps.picStructPresentFlag = 0;
    EXPECT_TRUE(decode({1, 1, 0x90, 0x80}));
}

}  // namespace
}  // namespace OrvPlayer
