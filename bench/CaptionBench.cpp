#include <benchmark/benchmark.h>

#include <algorithm>
#include <new>
#include <string_view>
#include <vector>

#include "common/RingBuffer.h"
#include "decoder/ClosedCaptionDecoder.h"

// A caption of one full row, from the PES record in one ring to the text in the next.

namespace orvbench {

namespace {

using namespace OrvPlayer;

constexpr std::string_view ROW = "32 Latin characters, \xE9 and \xE3 too";
static_assert(ROW.size() == 32);

android::sp<RingBuffer> ringOf(const char* name) {
    android::sp<RingBuffer> ring = new RingBuffer;
    ring->configure(name, 16);
    return ring;
}

// A statement body behind the headers of an ARIB STD-B24 data group without a time stamp.
void pushCaption(RingBuffer& ring) {
    std::vector<uint8_t> payload{0x80, 0xFF, 0xF0, 0x04, 0x00, 0x00, 0x00, 0x29, 0x3F,
                                 0x00, 0x00, 0x25, 0x1F, 0x20, 0x00, 0x00, 0x20};
    payload.insert(payload.end(), ROW.begin(), ROW.end());
    const auto size = static_cast<uint32_t>(PESData::FIXED_SIZE + payload.size());
    unsigned char* block = ring.write(size, RingBuffer::NON_BLOCKING);
    auto* record = new (block) PESData;
    record->mSize = size;
    record->mOffsetES = PESData::FIXED_SIZE;
    record->mSizeES = static_cast<uint32_t>(payload.size());
    std::copy(payload.begin(), payload.end(), block + PESData::FIXED_SIZE);
    ring.writeAdvance(size);
}

void captionOurs(benchmark::State& state) {
    const android::sp<RingBuffer> input = ringOf("CCPES RingBuffer");
    const android::sp<RingBuffer> output = ringOf("CC RingBuffer");
    const android::sp<ClosedCaptionDecoder> decoder = new ClosedCaptionDecoder;
    decoder->addOutput(output, nullptr);
    pushCaption(*input);
    for (auto _ : state) {
        unsigned char* block = input->read(PESData::FIXED_SIZE, RingBuffer::NON_BLOCKING);
        const int result = decoder->processPacket(reinterpret_cast<PESData*>(block));
        decoder->clearScreenData();
        input->readAdvance(0);  // the same one again
        const unsigned char* caption = output->read(32, RingBuffer::NON_BLOCKING);
        if (result != ClosedCaptionDecoder::RESULT_WRITTEN || caption == nullptr) {
            state.SkipWithError("no caption");
            break;
        }
        benchmark::DoNotOptimize(caption);
        output->readAdvance(output->getDataSize());
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(captionOurs)->Name("caption/ours");

}  // namespace

}  // namespace orvbench
