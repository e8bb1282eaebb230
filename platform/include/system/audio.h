#pragma once

#include <cstdint>

// The audio vocabulary of the platform: only the codes that the player and the host's AudioTrack
// and AudioSystem use. Values are part of the interface (the player holds some of them as plain
// numbers).

typedef int audio_io_handle_t;  // an output of the platform; 0 addresses "the default one"
typedef int audio_session_t;    // names one track to effects and visualisers
typedef uint32_t audio_channel_mask_t;
typedef uint32_t audio_devices_t;

enum : audio_io_handle_t { AUDIO_IO_HANDLE_NONE = 0 };
enum : audio_session_t { AUDIO_SESSION_ALLOCATE = 0 };  // asks for a new session

enum audio_stream_type_t : int {
    AUDIO_STREAM_DEFAULT = -1,
    AUDIO_STREAM_MUSIC = 3,
};

enum audio_format_t : uint32_t {
    AUDIO_FORMAT_DEFAULT = 0,  // 16-bit PCM
    AUDIO_FORMAT_PCM_16_BIT = 1,
    AUDIO_FORMAT_INVALID = 0xFFFFFFFFu,
};

enum audio_output_flags_t : uint32_t { AUDIO_OUTPUT_FLAG_NONE = 0 };

// One bit per loudspeaker. PCM is interleaved in the order of the bits, lowest first.
enum : audio_channel_mask_t {
    AUDIO_CHANNEL_NONE = 0x0,
    AUDIO_CHANNEL_OUT_FRONT_LEFT = 0x1,
    AUDIO_CHANNEL_OUT_FRONT_RIGHT = 0x2,
    AUDIO_CHANNEL_OUT_FRONT_CENTER = 0x4,
    AUDIO_CHANNEL_OUT_LOW_FREQUENCY = 0x8,
    AUDIO_CHANNEL_OUT_BACK_LEFT = 0x10,
    AUDIO_CHANNEL_OUT_BACK_RIGHT = 0x20,
    AUDIO_CHANNEL_OUT_FRONT_LEFT_OF_CENTER = 0x40,
    AUDIO_CHANNEL_OUT_FRONT_RIGHT_OF_CENTER = 0x80,
    AUDIO_CHANNEL_OUT_BACK_CENTER = 0x100,
    AUDIO_CHANNEL_OUT_SIDE_LEFT = 0x200,
    AUDIO_CHANNEL_OUT_SIDE_RIGHT = 0x400,

    AUDIO_CHANNEL_OUT_MONO = 0x1,
    AUDIO_CHANNEL_OUT_STEREO = 0x3,
    AUDIO_CHANNEL_OUT_2POINT1 = 0xB,
    AUDIO_CHANNEL_OUT_QUAD = 0x33,
    AUDIO_CHANNEL_OUT_PENTA = 0x37,
    AUDIO_CHANNEL_OUT_5POINT1 = 0x3F,
    AUDIO_CHANNEL_OUT_6POINT1 = 0x13F,
    AUDIO_CHANNEL_OUT_7POINT1 = 0x63F,
    AUDIO_CHANNEL_INVALID = 0xC0000000u,
};

// Outputs, one bit each.
enum : audio_devices_t {
    AUDIO_DEVICE_NONE = 0x0,
    AUDIO_DEVICE_OUT_SPEAKER = 0x2,
    AUDIO_DEVICE_OUT_WIRED_HEADSET = 0x4,
    AUDIO_DEVICE_OUT_WIRED_HEADPHONE = 0x8,
    AUDIO_DEVICE_OUT_BLUETOOTH_SCO = 0x10,
    AUDIO_DEVICE_OUT_BLUETOOTH_SCO_HEADSET = 0x20,
    AUDIO_DEVICE_OUT_BLUETOOTH_SCO_CARKIT = 0x40,
    AUDIO_DEVICE_OUT_BLUETOOTH_A2DP = 0x80,
    AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES = 0x100,
    AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_SPEAKER = 0x200,
    AUDIO_DEVICE_OUT_AUX_DIGITAL = 0x400,  // HDMI
};

enum audio_policy_dev_state_t : int {
    AUDIO_POLICY_DEVICE_STATE_UNAVAILABLE = 0,
    AUDIO_POLICY_DEVICE_STATE_AVAILABLE = 1,
};

// What a forced route is for. The host routes media; the others are kept and have no effect.
enum audio_policy_force_use_t : int {
    AUDIO_POLICY_FORCE_FOR_COMMUNICATION = 0,
    AUDIO_POLICY_FORCE_FOR_MEDIA = 1,
    AUDIO_POLICY_FORCE_FOR_RECORD = 2,
    AUDIO_POLICY_FORCE_FOR_DOCK = 3,
    AUDIO_POLICY_FORCE_FOR_SYSTEM = 4,
    AUDIO_POLICY_FORCE_USE_CNT = 5,
};

enum audio_policy_forced_cfg_t : int {
    AUDIO_POLICY_FORCE_NONE = 0,
    AUDIO_POLICY_FORCE_SPEAKER = 1,
    AUDIO_POLICY_FORCE_HEADPHONES = 2,
    AUDIO_POLICY_FORCE_BT_SCO = 3,
    AUDIO_POLICY_FORCE_BT_A2DP = 4,
    AUDIO_POLICY_FORCE_CFG_CNT = 15,  // codes from 5 on are valid and change nothing on this host
};

struct audio_offload_info_t;  // never given: this host decodes in software
struct audio_attributes_t;
