#pragma once

#include "service/ControllerInterface.h"

// What the player's library exports to the process that hosts it.

extern "C" {

// A controller for one transport stream, owned by the caller until it is released.
__attribute__((visibility("default"))) OrvPlayer::ControllerInterface* OrvPlayer_createController();

// Stops the controller, whatever its state, and destroys it. Null is passed over.
__attribute__((visibility("default"))) void OrvPlayer_releaseController(
    OrvPlayer::ControllerInterface* controller);
}
