#pragma once

#include <cstdint>
#include <cstdio>

// What the player's library exports to the process that hosts it. Everything else is reached as
// the binder service "OrvPlayer". Any thread.

extern "C" {

// As OrvPlayer::PlaybackFigures.
struct OrvPlayer_Figures {
    uint64_t framesTimed;
    int64_t lastFrameTimedNs;
    int64_t audioEarlyMs;
    uint64_t audioEarlyCount;
    int64_t firstPcrUs;
};

// Makes the service and registers it as "OrvPlayer" with the default service manager; a second call
// changes nothing. It lives until the process ends.
__attribute__((visibility("default"))) void OrvPlayer_instantiate();

// Writes the state of the controller that there is: ring buffers, modules, clock. Commands wait
// meanwhile, so the stream must not block. Nothing without the service or a controller.
__attribute__((visibility("default"))) void OrvPlayer_dump(FILE* stream);

// All 0 without the service.
__attribute__((visibility("default"))) void OrvPlayer_figures(OrvPlayer_Figures* figures);
}
