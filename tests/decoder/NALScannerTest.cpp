#include "decoder/NALScanner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <random>
#include <tuple>
#include <vector>

namespace OrvPlayer {
namespace {

using Bytes = std::vector<uint8_t>;
using Found = std::vector<std::tuple<uint32_t, int, uint32_t>>;  // offset, type, size

Found scan(const Bytes& payload) {
    const Bytes exact(payload);  // its end is the allocation's
    NALScanner scanner;
    scanner.setPayload(exact.data(), static_cast<uint32_t>(exact.size()));
    Found found;
    NALUnitType type;
    uint32_t size;
    while (scanner.getNextNalUnit(&type, &size) == STEP_OK) {
        found.emplace_back(scanner.getScanOffset(), type, size);
        // Asked again, it answers the same.
        EXPECT_EQ(scanner.getNextNalUnit(&type, &size), STEP_OK);
        EXPECT_EQ(found.back(), std::tuple(scanner.getScanOffset(), int{type}, size));
        scanner.passOver();
    }
    EXPECT_EQ(scanner.getNextNalUnit(&type, &size), STEP_END);
    return found;
}

// The plain way: for each unit skip zeros, find a 01, look at the two bytes before.
Found scanPlainly(const Bytes& payload) {
    const auto startCode = [&payload](size_t from) {
        for (size_t i = from; i < payload.size(); ++i) {
            if (payload[i] == 1 && i >= 2 && payload[i - 1] == 0 && payload[i - 2] == 0) {
                return i - 2;
            }
        }
        return payload.size();
    };
    Found found;
    size_t offset = 0;
    for (;;) {
        const size_t start = startCode(offset);
        if (start + 3 >= payload.size()) {
            return found;
        }
        const size_t end = startCode(start + 3);
        found.emplace_back(start, payload[start + 3] & 0x1F, end - start);
        offset = start + 4;
    }
}

// Bytes of the kinds that matter, or long runs of others with few such bytes between them, so that
// start codes and halves of them stand anywhere in and across what the search takes in one step:
// the same as the plain way.
TEST(NALScannerTest, AgreesWithThePlainWay) {
    std::mt19937 random(5);
    const Bytes pieces[] = {{0, 0, 1}, {0, 0, 1, 0x41}, {0, 0}, {0, 1}, {0}};
    size_t units = 0;
    for (int round = 0; round < 6000; ++round) {
        Bytes payload(random() % (round % 2 == 0 ? 64 : 400), 0xFF);
        if (round % 2 == 0) {
            for (uint8_t& byte : payload) {
                const unsigned kind = random() % 8;
                byte = kind < 4 ? 0 : kind < 7 ? 1 : static_cast<uint8_t>(random());
            }
        } else {
            for (int i = 0; i < 8 && !payload.empty(); ++i) {
                size_t at = random() % payload.size();
                for (const uint8_t byte : pieces[random() % std::size(pieces)]) {
                    payload[std::min(at++, payload.size() - 1)] = byte;
                }
            }
        }
        const Found found = scan(payload);
        EXPECT_EQ(found, scanPlainly(payload)) << testing::PrintToString(payload);
        units += found.size();
    }
    EXPECT_GT(units, 6000u);
}

TEST(NALScannerTest, FindsAType) {
    const Bytes payload = {0, 0, 1, 0x67, 0, 0, 1, 0x68, 9, 0, 0, 1, 0x65, 0, 0, 1, 0x68};
    NALScanner scanner;
    scanner.setPayload(payload.data(), static_cast<uint32_t>(payload.size()));
    uint32_t size = 0;
    EXPECT_EQ(scanner.getNextNALUWithType(static_cast<NALUnitType>(8), &size), STEP_OK);
    EXPECT_EQ(scanner.getScanOffset(), 4u);
    EXPECT_EQ(size, 5u);
    scanner.passOver();
    EXPECT_EQ(scanner.getNextNALUWithType(static_cast<NALUnitType>(8), &size), STEP_OK);
    EXPECT_EQ(scanner.getScanOffset(), 13u);
    EXPECT_EQ(scanner.getNextNALUWithType(NAL_SEI, &size), STEP_END);
}

}  // namespace
}  // namespace OrvPlayer
