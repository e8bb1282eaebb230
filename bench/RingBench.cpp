#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstring>
#include <thread>
#include <vector>

#include "MutexByteRing.h"
#include "common/RingBuffer.h"

// One thread copies records in, another copies them out, one record at a time.

namespace orvbench {

namespace {

using OrvPlayer::RingBuffer;

constexpr size_t BYTES_PER_ROUND = 32 << 20;
constexpr unsigned PACKET = 188;
constexpr unsigned PICTURE = 60 * 1024;
// Those of the video packets and of the video PES packets in the pipeline.
constexpr unsigned PACKET_RING = 1 << 20;
constexpr unsigned PICTURE_RING = 6 << 20;

class PlayerRing {
public:
    explicit PlayerRing(unsigned capacity) : mRing(new RingBuffer) {
        mRing->configureWithSize("bench", capacity);
    }
    void push(const uint8_t* from, unsigned size) {
        unsigned char* to;
        while ((to = mRing->write(size, RingBuffer::BLOCKING)) == nullptr) {
        }
        memcpy(to, from, size);
        mRing->writeAdvance(size);
    }
    void pop(uint8_t* to, unsigned size) {
        const unsigned char* from;
        while ((from = mRing->read(size, RingBuffer::BLOCKING)) == nullptr) {
        }
        memcpy(to, from, size);
        mRing->readAdvance(size);
    }

private:
    const android::sp<RingBuffer> mRing;
};

double voluntarySwitches() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_nvcsw);
}

template <typename Ring>
void twoThreads(benchmark::State& state, unsigned capacity, unsigned recordSize) {
    Ring ring(capacity);
    const std::vector<uint8_t> record(recordSize, 0x47);
    const size_t records = BYTES_PER_ROUND / recordSize;
    const double switchesBefore = voluntarySwitches();
    for (auto _ : state) {
        std::thread reader([&] {
            std::vector<uint8_t> taken(recordSize);
            for (size_t i = 0; i < records; ++i) {
                ring.pop(taken.data(), recordSize);
                benchmark::DoNotOptimize(taken.data());
            }
        });
        for (size_t i = 0; i < records; ++i) {
            ring.push(record.data(), recordSize);
        }
        reader.join();
    }
    const auto moved = static_cast<int64_t>(records) * static_cast<int64_t>(state.iterations());
    state.SetItemsProcessed(moved);
    state.SetBytesProcessed(moved * recordSize);
    state.counters["switches"] = benchmark::Counter(voluntarySwitches() - switchesBefore,
                                                    benchmark::Counter::kAvgIterations);
}

void ringPackets(benchmark::State& state) {
    twoThreads<PlayerRing>(state, PACKET_RING, PACKET);
}
void mutexPackets(benchmark::State& state) {
    twoThreads<MutexByteRing>(state, PACKET_RING, PACKET);
}
void ringPictures(benchmark::State& state) {
    twoThreads<PlayerRing>(state, PICTURE_RING, PICTURE);
}
void mutexPictures(benchmark::State& state) {
    twoThreads<MutexByteRing>(state, PICTURE_RING, PICTURE);
}

// Both ends on one thread: what the operations themselves cost.
void ringAlone(benchmark::State& state) {
    PlayerRing ring(PACKET_RING);
    std::vector<uint8_t> record(PACKET, 0x47);
    for (auto _ : state) {
        ring.push(record.data(), PACKET);
        ring.pop(record.data(), PACKET);
        benchmark::DoNotOptimize(record.data());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

BENCHMARK(ringPackets)->Name("ring/188/ours")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(mutexPackets)->Name("ring/188/peer")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(ringPictures)->Name("ring/60k/ours")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(mutexPictures)->Name("ring/60k/peer")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(ringAlone)->Name("ring/one-thread");

}  // namespace

}  // namespace orvbench
