#pragma once

#include <system/audio.h>
#include <utils/Errors.h>
#include <utils/String8.h>

namespace android {

// Where sound goes, and forcing it elsewhere. State and routes are those of the sound server;
// without one nothing is connected and a forced route is kept until a server comes. Every call
// answers at once from what the server last told; any thread.
class AudioSystem {
public:
    AudioSystem() = delete;

    // Available only while the player's sound really goes to the device: a headset that is paired
    // or plugged in but not chosen does not count. `device` is one AUDIO_DEVICE_OUT_* bit; the
    // address is not used (the sound server plays to one device of a kind at a time).
    static audio_policy_dev_state_t getDeviceConnectionState(audio_devices_t device,
                                                             const char* address);

    // Routes tracks to a device of the kind, where the server has one; AUDIO_POLICY_FORCE_NONE
    // gives them back to the server's default. BAD_VALUE for an unknown usage or configuration.
    static status_t setForceUse(audio_policy_force_use_t usage, audio_policy_forced_cfg_t config);

    // "key=value" pairs between ";". Known: DMB_FORCE_SPEAKER, "on" or "off", which forces media to
    // the loudspeaker. Unknown keys are passed over, as an output without them would.
    static status_t setParameters(audio_io_handle_t output, const String8& keyValuePairs);
};

}  // namespace android
