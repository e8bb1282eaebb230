#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "common/PresentationLog.h"
#include "service/PlaybackFigures.h"

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

// Has the player note how it times what it presents, and takes what it noted since the last call:
// see PresentationLog, which forgets its reader after a while without calls. One caller at a time.
__attribute__((visibility("default"))) size_t OrvPlayer_takePresentation(
    OrvPlayer::PresentationRecord* records, size_t most, uint64_t* missed);

// How full the ring buffers of what plays are; 0 while nothing does.
__attribute__((visibility("default"))) size_t OrvPlayer_bufferFills(OrvPlayer::BufferFill* fills,
                                                                    size_t most);
}
