#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace orvplay {

// How a DVB adapter comes to a channel, as channels.conf has it; kept whole, so that what another
// program wrote there is written back.
struct DvbTuning {
    std::vector<std::pair<uint32_t, uint32_t>> properties;  // command of the kernel's API, value
    std::vector<uint16_t> videoPids;
    std::vector<uint16_t> audioPids;
    std::vector<std::pair<uint8_t, uint16_t>> otherPids;  // stream type, PID
    uint16_t networkId = 0;
    uint16_t transportId = 0;
    // Of satellites:
    int satellite = -1;
    unsigned bandPassHz = 0;
    unsigned diseqcWait = 0;
    std::string lnb;
    std::string location;

    bool isTuned() const { return !properties.empty(); }
    uint32_t frequencyHz() const;  // 0 where there is none
};

// One service and where it is received.
struct Channel {
    std::string name;        // UTF-8
    std::string number;      // "6.1", "061"; empty where nothing tells it
    std::string source;      // what the tuner is told, for what needs no adapter; else empty
    uint16_t serviceId = 0;  // 0: the first one there
    bool oneSegment = false;
    DvbTuning dvb;

    // Whether both are one service at one place.
    bool isSame(const Channel& other) const;
};

// Whether original_network_id is one of Japan; elsewhere ISDB-T is as in Brazil.
bool isJapaneseNetwork(int networkId);

// Whether the id is one of a service for partial reception, by its bits: in Brazil the two above
// the last three (ABNT NBR 15603), in Japan bits 7 and 8 (ARIB TR-B14). False without a network.
bool isOneSegmentId(uint16_t serviceId, int networkId);

// The number that viewers type, of a service whose network has a key on the remote control: three
// digits in Japan (ARIB TR-B14), elsewhere the key and the service's place in the stream, "6.1".
// Empty without a key.
std::string channelNumber(int key, uint16_t serviceId, int networkId, size_t place);

}  // namespace orvplay
