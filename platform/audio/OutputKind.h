#pragma once

#include <system/audio.h>

#include <string>

namespace orvhost {

// What a sound server tells about one of its outputs, as far as it says what kind of device it is.
// Empty where it does not say.
struct OutputTraits {
    std::string bus;               // "bluetooth", "usb", "pci"
    std::string api;               // "alsa", "bluez", "bluez5"
    std::string formFactor;        // "headset", "headphone", "speaker", "car", "hands-free", ...
    std::string bluetoothProfile;  // "a2dp_sink", "headset_head_unit", "a2dp-sink", ...
    int portType = 0;              // pa_device_port_type_t of the active port
    std::string portName;
};

// The platform's device for an output; the loudspeaker where nothing says otherwise.
audio_devices_t outputDevice(const OutputTraits& traits);

bool isBluetooth(audio_devices_t device);

// Whether a forced route of this configuration may end at the device.
bool servesRoute(audio_policy_forced_cfg_t config, audio_devices_t device);

}  // namespace orvhost
