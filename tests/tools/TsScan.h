// Takes a transport stream of constant rate apart for checks of its timing: when each PES packet
// and clock reference arrived, on the stream's own clock.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace orvtest {

inline constexpr int64_t kStampModulo = int64_t{1} << 33;
inline constexpr int64_t kClock27M = 27'000'000;

// The shorter way round from b to a, for time stamps of 33 bits.
int64_t stampDistance(int64_t a, int64_t b);

struct ScannedPes {
    int64_t pts = 0;
    int64_t dts = 0;
    int64_t firstPacket = 0;  // positions in the stream, in packets
    int64_t lastPacket = 0;
    bool randomAccess = false;
    std::vector<uint8_t> payload;
};

struct ScannedPcr {
    int64_t pcr27M = 0;
    int64_t packet = 0;
};

struct TsScan {
    // Throws std::runtime_error on a file that is not whole transport stream packets.
    explicit TsScan(const std::string& path);

    std::map<uint16_t, std::vector<ScannedPes>> pes;
    std::map<uint16_t, std::vector<ScannedPcr>> pcrs;
    std::map<uint16_t, std::vector<int64_t>> continuityErrors;  // positions
    std::map<uint16_t, std::vector<int64_t>> sections;          // positions of their starts
    std::map<uint16_t, std::vector<uint8_t>> firstSection;
    int64_t packets = 0;

private:
    void take(const uint8_t* packet);
    void takePayload(uint16_t pid, bool start, bool randomAccess, const uint8_t* data, size_t size);

    std::map<uint16_t, int> mCounter;
};

// What the packet's position says about the clock, in 27 MHz units after the first reference.
int64_t expectedAfter27M(const ScannedPcr& first, const ScannedPcr& later, int64_t rate);

// The NAL unit types of an access unit, like "9 7 8 6 5".
std::string nalTypes(const std::vector<uint8_t>& accessUnit);

}  // namespace orvtest
