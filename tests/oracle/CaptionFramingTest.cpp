// The caption packets of the sample as libavformat delivers them: data groups that hold together,
// sent when receivers need them.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "oracle/AvStreams.h"

extern "C" {
#include <libavutil/crc.h>
}

namespace orvtest {
namespace {

constexpr int CAPTION_PID = 304;
constexpr size_t PES_DATA_HEADER = 3;  // without its private bytes
constexpr size_t GROUP_HEADER = 5;

// Over a whole group, its checksum included.
uint32_t crcOf(const uint8_t* group, size_t bytes) {
    return av_crc(av_crc_get_table(AV_CRC_16_CCITT), 0, group, bytes);
}

TEST(CaptionFramingTest, GroupsAreWholeAndManagementComesTwiceASecond) {
    const std::string file = std::string(ORV_SAMPLES_DIR) + "/small.ts";
    auto packets = readPesPackets(file);
    const std::vector<PesPacket> captions = packets[CAPTION_PID];
    const int64_t firstPicture = packets[273].front().pts;
    int64_t lastManagement = -1;
    size_t statements = 0;
    unsigned timings = 0;  // a bit for each timing mode
    for (const PesPacket& packet : captions) {
        SCOPED_TRACE(packet.pts - firstPicture);
        EXPECT_EQ(packet.streamId, 0xBD);
        ASSERT_GT(packet.payload.size(), PES_DATA_HEADER + GROUP_HEADER);
        EXPECT_EQ(packet.payload[0], 0x80);
        const size_t start = PES_DATA_HEADER + (packet.payload[2] & 0x0F);
        const uint8_t* group = packet.payload.data() + start;
        const size_t bytes = packet.payload.size() - start;
        EXPECT_EQ(size_t{group[3]} << 8 | group[4], bytes - GROUP_HEADER - 2);
        EXPECT_EQ(crcOf(group, bytes), 0u);
        const int id = group[0] >> 2;
        if (id != 0) {
            EXPECT_EQ(id, 1);
            ++statements;
            timings |= 1u << (group[GROUP_HEADER] >> 6);
            continue;
        }
        EXPECT_TRUE(lastManagement < 0 || packet.pts - lastManagement == 45'000);
        lastManagement = packet.pts;
    }
    EXPECT_EQ(statements, 10u);
    EXPECT_EQ(timings, 0b111u);
    // After the last caption too.
    EXPECT_GT(lastManagement - firstPicture, 9 * 90'000);
}

}  // namespace
}  // namespace orvtest
