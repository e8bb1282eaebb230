#include <benchmark/benchmark.h>

#include <cstring>

#include "Sample.h"
#include "decoder/NALScanner.h"

// The search for start codes, between the least that a pass over the bytes costs and what the C
// library's search for three bytes costs.

namespace orvbench {

namespace {

constexpr size_t PICTURES = 60;

// Calls `search` on the payload of each picture; it returns the start codes it found.
void overPictures(benchmark::State& state, size_t (*search)(const uint8_t*, uint32_t)) {
    const SampleStream& stream = Sample::get().video;
    size_t bytes = 0;
    size_t found = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < std::min(PICTURES, stream.records.size()); ++i) {
            uint32_t size;
            const uint8_t* payload = SampleStream::payload(stream.records[i], &size);
            found += search(payload, size);
            bytes += size;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.counters["found"] = static_cast<double>(found) / static_cast<double>(state.iterations());
}

size_t withScanner(const uint8_t* payload, uint32_t size) {
    OrvPlayer::NALScanner scanner;
    scanner.setPayload(payload, size);
    OrvPlayer::NALUnitType type;
    uint32_t unitSize;
    size_t found = 0;
    while (scanner.getNextNalUnit(&type, &unitSize) == OrvPlayer::STEP_OK) {
        ++found;
        scanner.passOver();
    }
    return found;
}

size_t withMemmem(const uint8_t* payload, uint32_t size) {
    constexpr uint8_t START_CODE[] = {0, 0, 1};
    size_t found = 0;
    const uint8_t* end = payload + size;
    while (const void* at = memmem(payload, static_cast<size_t>(end - payload), START_CODE, 3)) {
        payload = static_cast<const uint8_t*>(at) + 3;
        ++found;
    }
    return found;
}

// From each byte 01 to the next: a pass over the bytes in the C library's fastest loop.
size_t withMemchr(const uint8_t* payload, uint32_t size) {
    size_t found = 0;
    const uint8_t* end = payload + size;
    while (const void* at = memchr(payload, 1, static_cast<size_t>(end - payload))) {
        payload = static_cast<const uint8_t*>(at) + 1;
        ++found;
    }
    return found;
}

BENCHMARK_CAPTURE(overPictures, ours, &withScanner)->Name("startcode/ours");
BENCHMARK_CAPTURE(overPictures, memmem, &withMemmem)->Name("startcode/memmem");
BENCHMARK_CAPTURE(overPictures, memchr, &withMemchr)->Name("startcode/memchr");

}  // namespace

}  // namespace orvbench
