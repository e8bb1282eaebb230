// The entry of the player as a library: what a hosting process may call. Everything else stays
// inside (see orvplayer.map).

#include "service/PlayerLibrary.h"

#include "service/MainController.h"

extern "C" OrvPlayer::ControllerInterface* OrvPlayer_createController() {
    auto* controller = new OrvPlayer::MainController;
    controller->incStrong(nullptr);
    return controller;
}

extern "C" void OrvPlayer_releaseController(OrvPlayer::ControllerInterface* controller) {
    if (controller != nullptr) {
        dynamic_cast<OrvPlayer::MainController*>(controller)->decStrong(nullptr);
    }
}
