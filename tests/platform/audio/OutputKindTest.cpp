#include "audio/OutputKind.h"

#include <gtest/gtest.h>
#include <media/AudioSystem.h>
#include <pulse/def.h>

namespace orvhost {
namespace {

// What PulseAudio and PipeWire say of common outputs.
TEST(OutputKindTest, OutputsAreKnownByWhatTheServerTellsOfThem) {
    struct {
        OutputTraits traits;
        audio_devices_t device;
        audio_policy_forced_cfg_t route;  // that may end there
    } const outputs[] = {
        {{"", "", "", "", 0, ""}, AUDIO_DEVICE_OUT_SPEAKER, AUDIO_POLICY_FORCE_SPEAKER},
        {{"pci", "alsa", "internal", "", PA_DEVICE_PORT_TYPE_SPEAKER, "analog-output-speaker"},
         AUDIO_DEVICE_OUT_SPEAKER,
         AUDIO_POLICY_FORCE_SPEAKER},
        {{"pci", "alsa", "internal", "", 0, "analog-output-headphones"},  // no type before 14.0
         AUDIO_DEVICE_OUT_WIRED_HEADPHONE,
         AUDIO_POLICY_FORCE_HEADPHONES},
        {{"usb", "alsa", "headset", "", PA_DEVICE_PORT_TYPE_SPEAKER, "analog-output"},
         AUDIO_DEVICE_OUT_WIRED_HEADSET,
         AUDIO_POLICY_FORCE_HEADPHONES},
        {{"pci", "alsa", "internal", "", PA_DEVICE_PORT_TYPE_HDMI, "hdmi-output-0"},
         AUDIO_DEVICE_OUT_AUX_DIGITAL,
         AUDIO_POLICY_FORCE_NONE},
        {{"bluetooth", "bluez", "headphone", "a2dp_sink", PA_DEVICE_PORT_TYPE_HEADPHONES,
          "headphone-output"},
         AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES,
         AUDIO_POLICY_FORCE_BT_A2DP},
        {{"bluetooth", "bluez5", "", "a2dp-sink", 0, ""},
         AUDIO_DEVICE_OUT_BLUETOOTH_A2DP,
         AUDIO_POLICY_FORCE_BT_A2DP},
        {{"bluetooth", "bluez", "headset", "headset_head_unit", 0, ""},
         AUDIO_DEVICE_OUT_BLUETOOTH_SCO_HEADSET,
         AUDIO_POLICY_FORCE_BT_SCO},
        {{"bluetooth", "bluez", "phone", "handsfree_head_unit", 0, ""},
         AUDIO_DEVICE_OUT_BLUETOOTH_SCO,
         AUDIO_POLICY_FORCE_BT_SCO},
    };
    for (const auto& output : outputs) {
        const audio_devices_t device = outputDevice(output.traits);
        EXPECT_EQ(device, output.device) << output.traits.portName << output.traits.formFactor;
        EXPECT_EQ(isBluetooth(device), output.traits.api.find("bluez") == 0);
        for (int config = -1; config <= AUDIO_POLICY_FORCE_CFG_CNT; config++) {
            const auto route = static_cast<audio_policy_forced_cfg_t>(config);
            EXPECT_EQ(servesRoute(route, device),
                      route == output.route && route != AUDIO_POLICY_FORCE_NONE)
                << config;
        }
    }
}

TEST(AudioSystemTest, RefusesUnknownRoutesAndIsSilentWithoutAServer) {
    using android::AudioSystem;
    for (const auto& [usage, config, status] : {std::tuple{1, 0, android::NO_ERROR},
                                                {0, 3, android::NO_ERROR},
                                                {1, 14, android::NO_ERROR},
                                                {-1, 0, android::BAD_VALUE},
                                                {5, 0, android::BAD_VALUE},
                                                {1, -1, android::BAD_VALUE},
                                                {1, 15, android::BAD_VALUE}}) {
        EXPECT_EQ(AudioSystem::setForceUse(static_cast<audio_policy_force_use_t>(usage),
                                           static_cast<audio_policy_forced_cfg_t>(config)),
                  status)
            << usage << " " << config;
    }
    for (const char* pPairs : {"", ";", "=", "a=b;;", "audioParam;DMB_FORCE_SPEAKER=off"}) {
        EXPECT_EQ(AudioSystem::setParameters(AUDIO_IO_HANDLE_NONE, android::String8(pPairs)),
                  android::NO_ERROR);
    }
    EXPECT_EQ(AudioSystem::getDeviceConnectionState(AUDIO_DEVICE_OUT_SPEAKER, ""),
              AUDIO_POLICY_DEVICE_STATE_UNAVAILABLE);
}

}  // namespace
}  // namespace orvhost
