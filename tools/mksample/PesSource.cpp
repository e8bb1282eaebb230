#include "mksample/PesSource.h"

#include <utility>

namespace mksample {
namespace {

// About 85 ms of AAC at 48 kHz.
constexpr int kUnitsPerPes = 4;
// A header of MPEG audio with its CRC is whole in one packet, as broadcasters send it.
constexpr size_t kMpegHeaderBytes = 6;

void append(std::vector<uint8_t>* to, const std::vector<uint8_t>& from, size_t begin, size_t end) {
    to->insert(to->end(), from.begin() + static_cast<ptrdiff_t>(begin),
               from.begin() + static_cast<ptrdiff_t>(end));
}

}  // namespace

VideoSource::VideoSource(const VideoSettings& settings) : mEncoder(settings), mFps(settings.fps) {}

bool VideoSource::next(PesUnit* unit) {
    VideoUnit picture;
    if (!mEncoder.next(&picture)) {
        return false;
    }
    unit->payload = std::move(picture.bytes);
    unit->pts = mFps.ticks90k(picture.ptsFrames);
    unit->dts = mFps.ticks90k(picture.dtsFrames);
    unit->due = unit->dts;
    unit->randomAccess = picture.idr;
    return true;
}

AudioSource::AudioSource(const AudioSettings& settings, const AudioPacking& packing)
    : mEncoder(settings),
      mPacking(packing),
      mLoas(mEncoder.coreSampleRate(), kChannels, packing.latmConfigEvery),
      mAdts(mEncoder.coreSampleRate(), kChannels),
      mAhead(encodeOne()) {}

std::vector<uint8_t> AudioSource::frame(std::vector<uint8_t> unit) {
    switch (mPacking.format) {
        case AudioFormat::Latm:
            return mLoas.frame(unit);
        case AudioFormat::Adts:
            return mAdts.frame(unit);
        case AudioFormat::Mpeg:
            break;
    }
    return unit;
}

std::optional<AudioSource::Framed> AudioSource::encodeOne() {
    AudioUnit unit;
    if (!mEncoder.next(&unit)) {
        return std::nullopt;
    }
    return Framed{frame(std::move(unit.bytes)), unit.positionSamples * 90000 / kSampleRate};
}

bool AudioSource::next(PesUnit* unit) {
    if (!mAhead) {
        return false;
    }
    ++mPackets;
    unit->pts = unit->dts = mAhead->pts;
    unit->due = mCarry.bytes.empty() ? mAhead->pts : mCarry.pts;
    unit->randomAccess = false;
    unit->payload = std::exchange(mCarry.bytes, {});
    for (int i = 0; i < kUnitsPerPes && mAhead; ++i) {
        Framed current = std::move(*mAhead);
        mAhead = encodeOne();
        const size_t size = current.bytes.size();
        const bool last = i == kUnitsPerPes - 1;
        if (last && mAhead && current.pts >= mPacking.alignedUntil90k && size >= 4) {
            // The place of the cut varies, so that headers of AAC get cut as well as bodies.
            const size_t first = mPacking.format == AudioFormat::Mpeg ? kMpegHeaderBytes : 1;
            const size_t cut =
                mPackets % 4 == 0 ? first + mPackets / 4 % 3 : size * (mPackets % 4) / 4;
            append(&unit->payload, current.bytes, 0, cut);
            append(&mCarry.bytes, current.bytes, cut, size);
            mCarry.pts = current.pts;
        } else {
            append(&unit->payload, current.bytes, 0, size);
        }
    }
    return true;
}

}  // namespace mksample
