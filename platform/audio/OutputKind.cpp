#include "audio/OutputKind.h"

#include <pulse/def.h>

#include <string_view>

namespace orvhost {
namespace {

constexpr audio_devices_t SCO_DEVICES = AUDIO_DEVICE_OUT_BLUETOOTH_SCO |
                                        AUDIO_DEVICE_OUT_BLUETOOTH_SCO_HEADSET |
                                        AUDIO_DEVICE_OUT_BLUETOOTH_SCO_CARKIT;
constexpr audio_devices_t A2DP_DEVICES = AUDIO_DEVICE_OUT_BLUETOOTH_A2DP |
                                         AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES |
                                         AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_SPEAKER;
constexpr audio_devices_t WIRED_DEVICES =
    AUDIO_DEVICE_OUT_WIRED_HEADSET | AUDIO_DEVICE_OUT_WIRED_HEADPHONE;

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

audio_devices_t bluetoothDevice(const OutputTraits& traits) {
    const std::string_view form = traits.formFactor;
    const bool isCall =
        contains(traits.bluetoothProfile, "head") ||  // "headset..." "handsfree_head"
        contains(traits.bluetoothProfile, "hsp") || contains(traits.bluetoothProfile, "hfp");
    if (isCall) {
        return form == "car" || form == "hands-free" ? AUDIO_DEVICE_OUT_BLUETOOTH_SCO_CARKIT
               : form == "headset"                   ? AUDIO_DEVICE_OUT_BLUETOOTH_SCO_HEADSET
                                                     : AUDIO_DEVICE_OUT_BLUETOOTH_SCO;
    }
    if (form == "headphone" || form == "headset") {
        return AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES;
    }
    return form == "speaker" || form == "portable" || form == "hifi"
               ? AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_SPEAKER
               : AUDIO_DEVICE_OUT_BLUETOOTH_A2DP;
}

}  // namespace

audio_devices_t outputDevice(const OutputTraits& traits) {
    if (traits.bus == "bluetooth" || contains(traits.api, "bluez") ||
        traits.portType == PA_DEVICE_PORT_TYPE_BLUETOOTH) {
        return bluetoothDevice(traits);
    }
    if (traits.portType == PA_DEVICE_PORT_TYPE_HEADSET || traits.formFactor == "headset" ||
        contains(traits.portName, "headset")) {
        return AUDIO_DEVICE_OUT_WIRED_HEADSET;
    }
    if (traits.portType == PA_DEVICE_PORT_TYPE_HEADPHONES || traits.formFactor == "headphone" ||
        contains(traits.portName, "headphones")) {
        return AUDIO_DEVICE_OUT_WIRED_HEADPHONE;
    }
    if (traits.portType == PA_DEVICE_PORT_TYPE_HDMI || contains(traits.portName, "hdmi")) {
        return AUDIO_DEVICE_OUT_AUX_DIGITAL;
    }
    return AUDIO_DEVICE_OUT_SPEAKER;
}

bool isBluetooth(audio_devices_t device) {
    return (device & (SCO_DEVICES | A2DP_DEVICES)) != 0;
}

bool servesRoute(audio_policy_forced_cfg_t config, audio_devices_t device) {
    switch (config) {
        case AUDIO_POLICY_FORCE_SPEAKER:
            return device == AUDIO_DEVICE_OUT_SPEAKER;
        case AUDIO_POLICY_FORCE_HEADPHONES:
            return (device & WIRED_DEVICES) != 0;
        case AUDIO_POLICY_FORCE_BT_SCO:
            return (device & SCO_DEVICES) != 0;
        case AUDIO_POLICY_FORCE_BT_A2DP:
            return (device & A2DP_DEVICES) != 0;
        default:
            return false;
    }
}

}  // namespace orvhost
