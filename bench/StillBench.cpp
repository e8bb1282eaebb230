#include <benchmark/benchmark.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "common/Data.h"

// A still of 1920 x 1080: semi-planar 4:2:0 to words of blue, green, red and alpha. The peer
// is libswscale with the same matrix, levels left as they are, at its fastest and at its most
// exact.

namespace orvbench {

namespace {

constexpr int WIDTH = 1920;
constexpr int HEIGHT = 1080;
constexpr int COLOR_FORMAT = 0x105;

std::vector<uint8_t> noise() {
    std::mt19937 random(1);
    std::uniform_int_distribution<int> level(0, 255);
    std::vector<uint8_t> bytes(WIDTH * HEIGHT * 3 / 2);
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(level(random));
    }
    return bytes;
}

void finish(benchmark::State& state, const std::vector<int>& words) {
    benchmark::DoNotOptimize(words.data());
    state.SetItemsProcessed(state.iterations() * WIDTH * HEIGHT);
}

void ours(benchmark::State& state) {
    std::vector<uint8_t> picture = noise();
    std::vector<int> words(WIDTH * HEIGHT);
    for (auto _ : state) {
        if (OrvPlayer::VideoFrameData::convertFrameFromYvuToRgba(
                picture.data(), words.data(), WIDTH, HEIGHT, COLOR_FORMAT, WIDTH) != 0) {
            state.SkipWithError("not converted");
        }
    }
    finish(state, words);
}

struct ScalerDeleter {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};

void withLibswscale(benchmark::State& state, int flags) {
    const std::unique_ptr<SwsContext, ScalerDeleter> scaler(
        sws_getContext(WIDTH, HEIGHT, AV_PIX_FMT_NV12, WIDTH, HEIGHT, AV_PIX_FMT_BGRA, flags,
                       nullptr, nullptr, nullptr));
    constexpr int ONE = 1 << 16;  // contrast and saturation unchanged
    constexpr int FULL_RANGE = 1;
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(SWS_CS_ITU601), FULL_RANGE,
                             sws_getCoefficients(SWS_CS_DEFAULT), FULL_RANGE, 0, ONE, ONE);
    const std::vector<uint8_t> picture = noise();
    std::vector<int> words(WIDTH * HEIGHT);
    const uint8_t* const planes[] = {picture.data(), picture.data() + WIDTH * HEIGHT};
    const int strides[] = {WIDTH, WIDTH};
    uint8_t* const out[] = {reinterpret_cast<uint8_t*>(words.data())};
    const int outStrides[] = {4 * WIDTH};
    for (auto _ : state) {
        sws_scale(scaler.get(), planes, strides, 0, HEIGHT, out, outStrides);
    }
    finish(state, words);
}

BENCHMARK(ours)->Name("still/ours")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(withLibswscale, fast, SWS_POINT)
    ->Name("still/libswscale")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(withLibswscale, exact, SWS_POINT | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT)
    ->Name("still/libswscale exact")
    ->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace orvbench
