// Listens to a source of the sound server and prints a line when sound comes in, then the monotonic
// time in nanoseconds at which each beep began to be heard. Ends with its connection.

#include <pulse/pulseaudio.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "audio/AudioClock.h"

namespace {

constexpr uint32_t LISTEN_RATE = 48000;
constexpr int16_t LOUD = 2000;
constexpr size_t GAP_FRAMES = LISTEN_RATE / 20;  // quiet for so long: loud is a new beep again

size_t sQuietFrames = 0;
bool sIsListening = false;

void listen(const int16_t* pPcm, size_t frames, int64_t firstNs) {
    if (!sIsListening) {
        sIsListening = true;
        std::puts("listening");
    }
    for (size_t i = 0; i < frames; i++) {
        const bool isLoud = std::abs(pPcm[i]) > LOUD;
        if (isLoud && sQuietFrames > GAP_FRAMES) {
            const int64_t timeNs = firstNs + static_cast<int64_t>(i) * 1'000'000'000 / LISTEN_RATE;
            std::printf("%lld\n", static_cast<long long>(timeNs));
        }
        sQuietFrames = isLoud ? 0 : sQuietFrames + 1;
    }
    std::fflush(stdout);
}

void onReadable(pa_stream* pStream, size_t /*bytes*/, void* /*pUser*/) {
    while (pa_stream_readable_size(pStream) > 0) {
        pa_usec_t latencyUs = 0;
        int isAhead = 0;  // a monitor hears what its output is going to play
        const bool isKnown = pa_stream_get_latency(pStream, &latencyUs, &isAhead) == 0;
        const int64_t ageNs = static_cast<int64_t>(latencyUs) * (isAhead != 0 ? -1000 : 1000);
        const void* pData = nullptr;
        size_t bytes = 0;
        pa_stream_peek(pStream, &pData, &bytes);
        if (isKnown && pData != nullptr) {
            listen(static_cast<const int16_t*>(pData), bytes / sizeof(int16_t),
                   orvhost::AudioClock::system().nowNs() - ageNs);
        }
        pa_stream_drop(pStream);
    }
}

void onState(pa_context* pContext, void* pSource) {
    const pa_context_state_t state = pa_context_get_state(pContext);
    if (!PA_CONTEXT_IS_GOOD(state)) {
        std::exit(1);
    }
    if (state != PA_CONTEXT_READY) {
        return;
    }
    const pa_sample_spec spec = {PA_SAMPLE_S16NE, LISTEN_RATE, 1};
    pa_buffer_attr buffer;
    std::memset(&buffer, 0xFF, sizeof(buffer));
    buffer.fragsize = LISTEN_RATE / 100 * 2;
    pa_stream* const pStream = pa_stream_new(pContext, "beeps", &spec, nullptr);
    pa_stream_set_read_callback(pStream, onReadable, nullptr);
    pa_stream_connect_record(
        pStream, static_cast<const char*>(pSource), &buffer,
        static_cast<pa_stream_flags_t>(PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE |
                                       PA_STREAM_ADJUST_LATENCY));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    pa_mainloop* const pLoop = pa_mainloop_new();
    pa_context* const pContext = pa_context_new(pa_mainloop_get_api(pLoop), "BeepListener");
    pa_context_set_state_callback(pContext, onState, argv[1]);
    pa_context_connect(pContext, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr);
    return pa_mainloop_run(pLoop, nullptr);
}
