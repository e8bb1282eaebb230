#include <benchmark/benchmark.h>

#include "Sample.h"
#include "tsparser/TSPacketParser.h"
#include "tsparser/TSParser.h"

// TS packets to PES packets: the fields of each packet alone, and the whole stage.

namespace orvbench {

namespace {

using OrvPlayer::RingBuffer;

void packetParsing(benchmark::State& state) {
    Bytes packets = Sample::get().video.packets;
    packets.resize(std::min<size_t>(packets.size(), 1 << 20) / 188 * 188);
    OrvPlayer::TSPacketParser parser;
    OrvPlayer::TSParsedData data;
    for (auto _ : state) {
        for (size_t at = 0; at < packets.size(); at += OrvPlayer::TS_PACKET_BYTES) {
            benchmark::DoNotOptimize(parser.parse(&packets[at], &data));
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * packets.size()));
}

void pesAssembly(benchmark::State& state) {
    constexpr uint32_t INPUT = 1 << 20;
    const auto input = RepeatedRing::ofPackets(Sample::get().video.packets, INPUT);
    const android::sp<RingBuffer> output = new RingBuffer;
    output->configureWithSize("bench", 6 << 20);
    const android::sp<OrvPlayer::TSParser> parser =
        new OrvPlayer::TSParser(OrvPlayer::PID_TYPE_VIDEO);
    parser->setInput(input->ring);
    parser->addOutput(output, nullptr);
    if (parser->open() != 0) {
        state.SkipWithError("the parser cannot be opened");
    }
    for (auto _ : state) {
        parser->parsePass();
        output->read(0, RingBuffer::NON_BLOCKING);
        output->readAdvance(output->getDataSize());
        input->refill();
    }
    parser->stop();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input->payloadBytes));
}

BENCHMARK(packetParsing)->Name("ts/packet");
BENCHMARK(pesAssembly)->Name("ts/pes");

}  // namespace

}  // namespace orvbench
