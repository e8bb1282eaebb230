#include "channels/Channel.h"

#include <linux/dvb/frontend.h>

#include <cstdio>

namespace orvplay {

namespace {

constexpr int FIRST_JAPANESE_NETWORK = 0x7C00;
constexpr unsigned PARTIAL_RECEPTION = 3;

unsigned typeBits(uint16_t serviceId, int networkId) {
    return serviceId >> (isJapaneseNetwork(networkId) ? 7 : 3) & 3;
}

}  // namespace

bool isJapaneseNetwork(int networkId) {
    return networkId >= FIRST_JAPANESE_NETWORK;
}

uint32_t DvbTuning::frequencyHz() const {
    for (const auto& [command, value] : properties) {
        if (command == DTV_FREQUENCY) {
            return value;
        }
    }
    return 0;
}

bool Channel::isSame(const Channel& other) const {
    if (dvb.isTuned() != other.dvb.isTuned() || serviceId != other.serviceId) {
        return false;
    }
    return dvb.isTuned() ? dvb.frequencyHz() == other.dvb.frequencyHz() : source == other.source;
}

bool isOneSegmentId(uint16_t serviceId, int networkId) {
    return networkId > 0 && typeBits(serviceId, networkId) == PARTIAL_RECEPTION;
}

std::string channelNumber(int key, uint16_t serviceId, int networkId, size_t place) {
    if (key < 0) {
        return {};
    }
    char text[32];
    if (isJapaneseNetwork(networkId)) {
        const unsigned number = typeBits(serviceId, networkId) * 200 +
                                static_cast<unsigned>(key) * 10 + (serviceId & 7u) + 1;
        snprintf(text, sizeof text, "%03u", number);
    } else {
        snprintf(text, sizeof text, "%d.%zu", key, place + 1);
    }
    return text;
}

}  // namespace orvplay
