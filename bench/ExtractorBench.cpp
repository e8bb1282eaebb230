#include <benchmark/benchmark.h>

#include <functional>

#include "LibavParser.h"
#include "Sample.h"
#include "decoder/AACMediaExtractor.h"
#include "decoder/H264MediaExtractor.h"

// PES records to the units that codecs take, against libavcodec's parsers on the same payloads.

namespace orvbench {

namespace {

using OrvPlayer::AACMediaExtractor;
using OrvPlayer::H264MediaExtractor;
using OrvPlayer::MediaExtractor;

// The records of the pipeline's PES rings.
constexpr uint32_t VIDEO_BYTES = 6 << 20;
constexpr uint32_t AUDIO_BYTES = 1 << 16;

void report(benchmark::State& state, const RepeatedRing& input, uint64_t units) {
    const auto rounds = static_cast<uint64_t>(state.iterations());
    state.SetBytesProcessed(static_cast<int64_t>(rounds * input.payloadBytes));
    state.counters["units"] = static_cast<double>(units) / static_cast<double>(rounds);
}

void extract(benchmark::State& state, RepeatedRing& input, MediaExtractor& extractor) {
    Bytes unit(2 << 20);
    uint64_t units = 0;
    for (auto _ : state) {
        while (input.ring->getDataSize() > 0) {
            unsigned long size = 0;
            long long pts = 0;
            unsigned char flags = 0;
            extractor.getDecodableUnit(unit.data(), unit.size(), &size, &pts, &flags);
            units += size > 0 ? 1 : 0;
        }
        input.refill();
    }
    report(state, input, units);
}

void parse(benchmark::State& state, const SampleStream& stream, const RepeatedRing& input,
           AVCodecID codec) {
    const std::vector<Bytes> payloads = paddedPayloads(stream, input.count);
    LibavParser parser(codec);
    uint64_t units = 0;
    for (auto _ : state) {
        for (const Bytes& payload : payloads) {
            units += static_cast<uint64_t>(
                parser.parse(payload.data(),
                             static_cast<uint32_t>(payload.size() - AV_INPUT_BUFFER_PADDING_SIZE)));
        }
    }
    report(state, input, units);
}

void h264Ours(benchmark::State& state) {
    const auto input = RepeatedRing::ofRecords(Sample::get().video.records, VIDEO_BYTES);
    const android::sp<MediaExtractor> extractor = new H264MediaExtractor(input->ring);
    extract(state, *input, *extractor);
}

void h264Peer(benchmark::State& state) {
    const SampleStream& stream = Sample::get().video;
    parse(state, stream, *RepeatedRing::ofRecords(stream.records, VIDEO_BYTES), AV_CODEC_ID_H264);
}

void aacOurs(benchmark::State& state, const SampleStream& stream,
             AACMediaExtractor::transportLayer_t layer) {
    const auto input = RepeatedRing::ofRecords(stream.records, AUDIO_BYTES);
    const android::sp<MediaExtractor> extractor = new AACMediaExtractor(input->ring, layer);
    extract(state, *input, *extractor);
}

void aacPeer(benchmark::State& state, const SampleStream& stream, AVCodecID codec) {
    parse(state, stream, *RepeatedRing::ofRecords(stream.records, AUDIO_BYTES), codec);
}

void loasOurs(benchmark::State& state) {
    aacOurs(state, Sample::get().loas, AACMediaExtractor::LOAS);
}
void loasPeer(benchmark::State& state) {
    aacPeer(state, Sample::get().loas, AV_CODEC_ID_AAC_LATM);
}
void adtsOurs(benchmark::State& state) {
    aacOurs(state, Sample::get().adts, AACMediaExtractor::ADTS);
}
void adtsPeer(benchmark::State& state) {
    aacPeer(state, Sample::get().adts, AV_CODEC_ID_AAC);
}

BENCHMARK(h264Ours)->Name("h264/ours");
BENCHMARK(h264Peer)->Name("h264/peer");
BENCHMARK(loasOurs)->Name("loas/ours");
BENCHMARK(loasPeer)->Name("loas/peer");
BENCHMARK(adtsOurs)->Name("adts/ours");
BENCHMARK(adtsPeer)->Name("adts/peer");

}  // namespace

}  // namespace orvbench
