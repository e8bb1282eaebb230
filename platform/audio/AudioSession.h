#pragma once

#include <system/audio.h>

namespace orvhost {

// A number for an output of the process: positive, and another one with each call. Any thread.
audio_session_t newAudioSession();

}  // namespace orvhost
