#pragma once

extern "C" {

// Tells the recorder service the time stamp of the audio PES that was received last, in
// milliseconds. Called for every audio PES: never waits. The host keeps the last value, see
// dtv/RecPlayerState.h.
void RecPlayerBinder_NotifyAudioPTS(unsigned long ms);

}  // extern "C"
