#include "audio/AudioOutput.h"

#include <atomic>
#include <cstdlib>
#include <string_view>

#include "trace/HostLog.h"

namespace orvhost {
namespace {

constexpr int UNSET = -1;
std::atomic<int> sOutput{UNSET};

AudioOutput fromEnvironment() {
    const char* pValue = std::getenv("ORV_AUDIO");
    const std::string_view value = pValue != nullptr ? pValue : "auto";
    if (value == "silent") {
        return AudioOutput::SILENT;
    }
    if (value == "pulse") {
        return AudioOutput::PULSE;
    }
    if (value != "auto" && !value.empty()) {
        HOST_LOGW("%s: ORV_AUDIO is auto, pulse or silent, not \"%s\"; taking auto", __func__,
                  pValue);
    }
    return AudioOutput::AUTO;
}

}  // namespace

void setAudioOutput(AudioOutput output) {
    sOutput.store(static_cast<int>(output), std::memory_order_relaxed);
}

AudioOutput audioOutput() {
    const int output = sOutput.load(std::memory_order_relaxed);
    return output == UNSET ? fromEnvironment() : static_cast<AudioOutput>(output);
}

}  // namespace orvhost
