#pragma once

namespace orvhost {

enum class AudioOutput {
    AUTO,    // the sound server where there is one, else silence
    PULSE,   // the same, but a missing server is logged as an error
    SILENT,  // never ask for a server
};

// Chooses for the tracks made from now on; goes before the environment variable ORV_AUDIO ("auto",
// "pulse" or "silent"), which is read where nothing was set. Any thread.
void setAudioOutput(AudioOutput output);

AudioOutput audioOutput();

}  // namespace orvhost
