#include "pattern/TestPattern.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <numbers>

namespace orvtest {
namespace {

constexpr uint8_t kBlack = 16;
constexpr uint8_t kWhite = 235;

constexpr int kBlocks = 32;
constexpr uint32_t kStart = 0b10;
constexpr uint32_t kStop = 0b01;

// The two levels of a bar code must differ by this much to be told apart safely.
constexpr int kMinContrast = 60;
constexpr int kFlashLevel = 130;

// The beep detector's limits: an onset's level and the share of energy at the beep's frequency.
constexpr int kOnsetLevel = kBeepAmplitude / 4;
constexpr double kMinPurity = 0.7;

// CRC-8 with the polynomial x^8 + x^2 + x + 1 over 20 bits, from a start value that makes an
// all-black code wrong.
uint32_t crc8(uint32_t number) {
    uint32_t crc = 0xA5;
    for (int bit = 19; bit >= 0; --bit) {
        const uint32_t top = ((crc >> 7) ^ (number >> bit)) & 1;
        crc = (crc << 1) & 0xFF;
        if (top != 0) {
            crc ^= 0x07;
        }
    }
    return crc;
}

void fill(uint8_t* luma, int stride, const Rect& area, uint8_t value) {
    for (int row = 0; row < area.height; ++row) {
        uint8_t* line = luma + static_cast<ptrdiff_t>(area.y + row) * stride + area.x;
        std::fill_n(line, area.width, value);
    }
}

Rect block(const Rect& band, int index) {
    const int left = band.width * index / kBlocks;
    const int right = band.width * (index + 1) / kBlocks;
    return {band.x + left, band.y, right - left, band.height};
}

// The mean of 8 x 8 samples of the middle half of an area; the rows taken fall on both fields.
int meanOfMiddle(const uint8_t* luma, int stride, const Rect& area) {
    constexpr int kSamples = 8;
    int sum = 0;
    for (int j = 0; j < kSamples; ++j) {
        const int y = area.y + area.height / 4 + area.height * j / (2 * kSamples);
        const uint8_t* line = luma + static_cast<ptrdiff_t>(y) * stride;
        for (int i = 0; i < kSamples; ++i) {
            sum += line[area.x + area.width / 4 + area.width * i / (2 * kSamples)];
        }
    }
    return sum / (kSamples * kSamples);
}

bool tooSmall(const uint8_t* luma, int stride, int width, int height) {
    return luma == nullptr || width < kMinWidth || height < kMinHeight || std::abs(stride) < width;
}

}  // namespace

Rect barCodeArea(int width, int height) {
    return {0, height * 74 / 100, width, std::max(16, height / 10)};
}

Rect flashArea(int width, int height) {
    return {width * 68 / 100, height * 50 / 100, width * 28 / 100, height * 20 / 100};
}

void drawFrameNumber(uint8_t* luma, int stride, int width, int height, uint32_t frameNumber) {
    if (tooSmall(luma, stride, width, height)) {
        return;
    }
    const uint32_t number = frameNumber & kMaxFrameNumber;
    const uint32_t code = (kStart << 30) | (number << 10) | (crc8(number) << 2) | kStop;
    const Rect band = barCodeArea(width, height);
    for (int i = 0; i < kBlocks; ++i) {
        const bool one = ((code >> (kBlocks - 1 - i)) & 1) != 0;
        fill(luma, stride, block(band, i), one ? kWhite : kBlack);
    }
}

std::optional<uint32_t> readFrameNumber(const uint8_t* luma, int stride, int width, int height) {
    if (tooSmall(luma, stride, width, height)) {
        return std::nullopt;
    }
    const Rect band = barCodeArea(width, height);
    std::array<int, kBlocks> means{};
    for (int i = 0; i < kBlocks; ++i) {
        means[i] = meanOfMiddle(luma, stride, block(band, i));
    }
    // The start pattern tells the levels of white and black.
    if (means[0] - means[1] < kMinContrast) {
        return std::nullopt;
    }
    const int middle = (means[0] + means[1]) / 2;
    uint32_t code = 0;
    for (const int mean : means) {
        code = (code << 1) | (mean > middle ? 1 : 0);
    }
    const uint32_t number = (code >> 10) & kMaxFrameNumber;
    if ((code >> 30) != kStart || (code & 3) != kStop || ((code >> 2) & 0xFF) != crc8(number)) {
        return std::nullopt;
    }
    return number;
}

void drawFlash(uint8_t* luma, int stride, int width, int height, bool on) {
    if (!tooSmall(luma, stride, width, height)) {
        fill(luma, stride, flashArea(width, height), on ? kWhite : kBlack);
    }
}

bool isFlash(const uint8_t* luma, int stride, int width, int height) {
    return !tooSmall(luma, stride, width, height) &&
           meanOfMiddle(luma, stride, flashArea(width, height)) > kFlashLevel;
}

bool isFlashFrame(uint32_t frameNumber, uint32_t nominalRate) {
    return nominalRate != 0 && frameNumber % nominalRate < kFlashFrames;
}

int beepSample(int64_t samplesAfterOnset, int sampleRate) {
    if (samplesAfterOnset < 0 || samplesAfterOnset >= int64_t{sampleRate} * kBeepMs / 1000) {
        return 0;
    }
    const double phase =
        2.0 * std::numbers::pi * kBeepHz * static_cast<double>(samplesAfterOnset) / sampleRate;
    return static_cast<int>(std::lround(kBeepAmplitude * std::sin(phase)));
}

BeepDetector::BeepDetector(int sampleRate, int channels)
    : mSampleRate(std::max(sampleRate, 8000)),
      mChannels(std::max(channels, 1)),
      mSilenceNeeded(mSampleRate / 10),
      mProbeLength(mSampleRate / 50),
      mStepCos(std::cos(2.0 * std::numbers::pi * kBeepHz / mSampleRate)),
      mStepSin(std::sin(2.0 * std::numbers::pi * kBeepHz / mSampleRate)) {}

void BeepDetector::reset() {
    mSilent = 0;
    mProbed = -1;
}

void BeepDetector::collect(int sample) {
    mSumCos += sample * mPhaseCos;
    mSumSin += sample * mPhaseSin;
    mEnergy += static_cast<double>(sample) * sample;
    const double nextCos = mPhaseCos * mStepCos - mPhaseSin * mStepSin;
    mPhaseSin = mPhaseCos * mStepSin + mPhaseSin * mStepCos;
    mPhaseCos = nextCos;
    ++mProbed;
}

bool BeepDetector::confirmed() const {
    // A pure tone of amplitude a over n samples has energy n a^2 / 2 and correlation n a / 2.
    const double tone = 2.0 * (mSumCos * mSumCos + mSumSin * mSumSin) / mProbeLength;
    return tone > kMinPurity * mEnergy;
}

std::vector<int64_t> BeepDetector::feed(const int16_t* interleaved, size_t frames,
                                        int64_t playTimeUs) {
    std::vector<int64_t> onsets;
    for (size_t i = 0; i < frames; ++i) {
        const int sample = interleaved[i * mChannels];
        const bool loud = std::abs(sample) > kOnsetLevel;
        if (mProbed < 0 && loud && mSilent >= mSilenceNeeded) {
            mOnsetUs = playTimeUs + static_cast<int64_t>(i) * 1'000'000 / mSampleRate;
            mProbed = 0;
            mPhaseCos = 1.0;
            mPhaseSin = mSumCos = mSumSin = mEnergy = 0.0;
        }
        mSilent = loud ? 0 : std::min(mSilent + 1, mSilenceNeeded);
        if (mProbed >= 0) {
            collect(sample);
            if (mProbed == mProbeLength) {
                if (confirmed()) {
                    onsets.push_back(mOnsetUs);
                }
                mProbed = -1;
            }
        }
    }
    return onsets;
}

}  // namespace orvtest
