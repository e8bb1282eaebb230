#include <pulse/pulseaudio.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "Checks.h"
#include "MonotonicTime.h"

namespace orvdoctor {

namespace {

using State = Finding::State;

constexpr int64_t LONGEST_NS = 3'000'000'000;
constexpr int STEP_US = 100'000;

struct LoopEnd {
    void operator()(pa_mainloop* loop) const { pa_mainloop_free(loop); }
};
struct ContextEnd {
    void operator()(pa_context* context) const {
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
};

// Connects as the service does, which starts no server either. The server's name; empty with the
// reason in *error.
std::string serverReached(std::string* error) {
    const std::unique_ptr<pa_mainloop, LoopEnd> loop(pa_mainloop_new());
    const std::unique_ptr<pa_context, ContextEnd> context(
        pa_context_new(pa_mainloop_get_api(loop.get()), "orvplay doctor"));
    if (pa_context_connect(context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) == 0) {
        const int64_t endNs = orvplay::monotonicNs() + LONGEST_NS;
        while (orvplay::monotonicNs() < endNs) {
            const pa_context_state_t state = pa_context_get_state(context.get());
            if (state == PA_CONTEXT_READY) {
                const char* const server = pa_context_get_server(context.get());
                return server != nullptr ? server : "the default server";
            }
            if (!PA_CONTEXT_IS_GOOD(state)) {
                break;
            }
            pa_mainloop_prepare(loop.get(), STEP_US);
            pa_mainloop_poll(loop.get());
            pa_mainloop_dispatch(loop.get());
        }
    }
    *error = pa_context_errno(context.get()) == PA_OK
                 ? "no answer"
                 : pa_strerror(pa_context_errno(context.get()));
    return "";
}

// By what is installed.
std::string howToStart(const std::string& root) {
    const auto isInstalled = [&root](const char* program) {
        return access((root + "/usr/bin/" + program).c_str(), X_OK) == 0;
    };
    constexpr char PIPEWIRE[] = "systemctl --user enable --now pipewire pipewire-pulse wireplumber";
    return isInstalled("pipewire-pulse") ? PIPEWIRE
           : isInstalled("pulseaudio")
               ? "pulseaudio --start"
               : std::string("sudo apt-get install pipewire-audio && ") + PIPEWIRE;
}

}  // namespace

Finding checkSound(const std::string& root) {
    const char* const output = getenv("ORV_AUDIO");
    if (output != nullptr && std::string(output) == "silent") {
        return {"sound", State::NOTE, "ORV_AUDIO=silent: no sound is wanted", ""};
    }
    std::string error;
    const std::string server = serverReached(&error);
    if (server.empty()) {
        return {"sound", State::MISSING,
                "no sound server is reached (" + error + "): playback is silent", howToStart(root)};
    }
    return {"sound", State::OK, server, ""};
}

}  // namespace orvdoctor
