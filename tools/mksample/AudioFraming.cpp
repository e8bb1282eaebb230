#include "mksample/AudioFraming.h"

#include <array>

#include "mksample/Options.h"

namespace mksample {
namespace {

constexpr uint32_t kAacLc = 2;
constexpr size_t kLoasLengthLimit = 1 << 13;
constexpr size_t kAdtsLengthLimit = 1 << 13;
constexpr size_t kAdtsHeaderSize = 7;

constexpr std::array<int, 13> kRates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                     22050, 16000, 12000, 11025, 8000,  7350};

int rateIndex(int sampleRate) {
    for (size_t i = 0; i < kRates.size(); ++i) {
        if (kRates[i] == sampleRate) {
            return static_cast<int>(i);
        }
    }
    throw Failure("no AAC sampling rate index for " + std::to_string(sampleRate) + " Hz");
}

// Appends bit fields, most significant bit first.
class BitWriter {
public:
    void put(uint32_t value, int bits) {
        for (int i = bits - 1; i >= 0; --i) {
            if (mBits % 8 == 0) {
                mBytes.push_back(0);
            }
            mBytes.back() |= static_cast<uint8_t>(((value >> i) & 1) << (7 - mBits % 8));
            ++mBits;
        }
    }
    std::vector<uint8_t>& bytes() { return mBytes; }

private:
    std::vector<uint8_t> mBytes;
    size_t mBits = 0;
};

void putStreamMuxConfig(int index, int channels, BitWriter* out) {
    out->put(0, 1);  // audioMuxVersion
    out->put(1, 1);  // allStreamsSameTimeFraming
    out->put(0, 6);  // numSubFrames - 1
    out->put(0, 4);  // numProgram - 1
    out->put(0, 3);  // numLayer - 1
    // AudioSpecificConfig
    out->put(kAacLc, 5);
    out->put(static_cast<uint32_t>(index), 4);
    out->put(static_cast<uint32_t>(channels), 4);
    out->put(0, 3);     // frameLengthFlag, dependsOnCoreCoder, extensionFlag
    out->put(0, 3);     // frameLengthType: the length stands in every frame
    out->put(0xFF, 8);  // latmBufferFullness: variable rate
    out->put(0, 1);     // otherDataPresent
    out->put(0, 1);     // crcCheckPresent
}

}  // namespace

LoasWriter::LoasWriter(int sampleRate, int channels, int configEvery)
    : mRateIndex(rateIndex(sampleRate)), mChannels(channels), mConfigEvery(configEvery) {}

std::vector<uint8_t> LoasWriter::frame(const std::vector<uint8_t>& accessUnit) {
    BitWriter mux;  // AudioMuxElement
    const bool withConfig = mUntilConfig == 0;
    mUntilConfig = withConfig ? mConfigEvery - 1 : mUntilConfig - 1;
    mux.put(withConfig ? 0 : 1, 1);  // useSameStreamMux
    if (withConfig) {
        putStreamMuxConfig(mRateIndex, mChannels, &mux);
    }
    // PayloadLengthInfo: as many 255 as fit, then the rest.
    size_t left = accessUnit.size();
    for (; left >= 255; left -= 255) {
        mux.put(255, 8);
    }
    mux.put(static_cast<uint32_t>(left), 8);
    for (const uint8_t byte : accessUnit) {
        mux.put(byte, 8);
    }
    const std::vector<uint8_t>& element = mux.bytes();
    if (element.size() >= kLoasLengthLimit) {
        throw Failure("an AAC access unit is too long for a LOAS frame; lower --audio-bitrate");
    }
    BitWriter loas;  // AudioSyncStream
    loas.put(0x2B7, 11);
    loas.put(static_cast<uint32_t>(element.size()), 13);
    std::vector<uint8_t> framed = std::move(loas.bytes());
    framed.insert(framed.end(), element.begin(), element.end());
    return framed;
}

AdtsWriter::AdtsWriter(int sampleRate, int channels)
    : mRateIndex(rateIndex(sampleRate)), mChannels(channels) {}

std::vector<uint8_t> AdtsWriter::frame(const std::vector<uint8_t>& accessUnit) const {
    const size_t length = kAdtsHeaderSize + accessUnit.size();
    if (length >= kAdtsLengthLimit) {
        throw Failure("an AAC access unit is too long for an ADTS frame; lower --audio-bitrate");
    }
    BitWriter header;
    header.put(0xFFF, 12);
    header.put(0, 1);           // ID: MPEG-4
    header.put(0, 2);           // layer
    header.put(1, 1);           // protection_absent
    header.put(kAacLc - 1, 2);  // profile
    header.put(static_cast<uint32_t>(mRateIndex), 4);
    header.put(0, 1);  // private_bit
    header.put(static_cast<uint32_t>(mChannels), 3);
    header.put(0, 4);  // original_copy, home, copyright identification bit and start
    header.put(static_cast<uint32_t>(length), 13);
    header.put(0x7FF, 11);  // adts_buffer_fullness: variable rate
    header.put(0, 2);       // number_of_raw_data_blocks_in_frame - 1
    std::vector<uint8_t> framed = std::move(header.bytes());
    framed.insert(framed.end(), accessUnit.begin(), accessUnit.end());
    return framed;
}

}  // namespace mksample
