#include "media/AudioSpecificConfig.h"

#include <algorithm>

namespace orvhost {

namespace {

constexpr unsigned OBJECT_TYPE_SBR = 5;
constexpr unsigned OBJECT_TYPE_PS = 29;
constexpr unsigned RATE_GIVEN = 15;

// Bits past the end read as 0; overrun() tells.
class Bits {
public:
    explicit Bits(std::span<const uint8_t> data) : mData(data) {}

    unsigned read(unsigned count) {
        unsigned value = 0;
        for (; count > 0; --count, ++mPosition) {
            const size_t byte = mPosition / 8;
            const unsigned bit = byte < mData.size() ? mData[byte] >> (7 - mPosition % 8) & 1 : 0;
            value = value << 1 | bit;
        }
        return value;
    }
    size_t bytesUsed() const { return (mPosition + 7) / 8; }
    bool overrun() const { return mPosition > mData.size() * 8; }

private:
    std::span<const uint8_t> mData;
    size_t mPosition = 0;
};

unsigned readObjectType(Bits& bits) {
    const unsigned type = bits.read(5);
    return type == 31 ? 32 + bits.read(6) : type;
}

unsigned readSampleRateIndex(Bits& bits) {
    const unsigned index = bits.read(4);
    if (index == RATE_GIVEN) {
        bits.read(24);
    }
    return index;
}

}  // namespace

bool AudioSpecificConfig::parse(std::span<const uint8_t> data, AudioSpecificConfig* config) {
    Bits bits(data);
    *config = {};
    config->objectType = readObjectType(bits);
    config->sampleRateIndex = readSampleRateIndex(bits);
    config->channelConfiguration = bits.read(4);
    if (config->objectType == OBJECT_TYPE_SBR || config->objectType == OBJECT_TYPE_PS) {
        config->explicitExtension = true;
        readSampleRateIndex(bits);  // of the extension
        config->objectType = readObjectType(bits);
    }
    // GASpecificConfig: frameLengthFlag, dependsOnCoreCoder (with 14 bits of delay), extensionFlag.
    bits.read(1);
    if (bits.read(1) != 0) {
        bits.read(14);
    }
    bits.read(1);
    const auto lastUsed =
        std::find_if(data.rbegin(), data.rend(), [](uint8_t b) { return b != 0; });
    config->bytes =
        std::max(bits.bytesUsed(), static_cast<size_t>(std::distance(lastUsed, data.rend())));
    return !bits.overrun();
}

}  // namespace orvhost
