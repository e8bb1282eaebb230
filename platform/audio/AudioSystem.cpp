#include <media/AudioSystem.h>

#include <string_view>

#include "audio/AudioOutput.h"
#include "audio/PulseServer.h"

namespace android {
namespace {

constexpr std::string_view FORCE_SPEAKER_KEY = "DMB_FORCE_SPEAKER";

void setParameter(std::string_view pair) {
    const size_t equals = pair.find('=');
    if (equals == std::string_view::npos || pair.substr(0, equals) != FORCE_SPEAKER_KEY) {
        return;
    }
    const std::string_view value = pair.substr(equals + 1);
    if (value == "on") {
        orvhost::PulseServer::setSharedRoute(AUDIO_POLICY_FORCE_SPEAKER);
    } else if (value == "off") {
        orvhost::PulseServer::setSharedRoute(AUDIO_POLICY_FORCE_NONE);
    }
}

}  // namespace

audio_policy_dev_state_t AudioSystem::getDeviceConnectionState(audio_devices_t device,
                                                               const char* /*address*/) {
    const orvhost::PulseServer* const pServer = orvhost::PulseServer::sharedIfAny();
    const audio_devices_t current =
        pServer != nullptr ? pServer->currentDevice() : AUDIO_DEVICE_NONE;
    return device != AUDIO_DEVICE_NONE && device == current ? AUDIO_POLICY_DEVICE_STATE_AVAILABLE
                                                            : AUDIO_POLICY_DEVICE_STATE_UNAVAILABLE;
}

status_t AudioSystem::setForceUse(audio_policy_force_use_t usage,
                                  audio_policy_forced_cfg_t config) {
    if (usage < 0 || usage >= AUDIO_POLICY_FORCE_USE_CNT || config < 0 ||
        config >= AUDIO_POLICY_FORCE_CFG_CNT) {
        return BAD_VALUE;
    }
    if (usage == AUDIO_POLICY_FORCE_FOR_MEDIA) {
        orvhost::PulseServer::setSharedRoute(config);
    }
    return NO_ERROR;
}

status_t AudioSystem::setParameters(audio_io_handle_t /*output*/, const String8& keyValuePairs) {
    std::string_view rest(keyValuePairs.string(), keyValuePairs.length());
    while (!rest.empty()) {
        const size_t end = std::min(rest.find(';'), rest.size());
        setParameter(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return NO_ERROR;
}

}  // namespace android
