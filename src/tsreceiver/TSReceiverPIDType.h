#pragma once

namespace OrvPlayer {

// The role of a filtered PID. The order decides which output of the receiver a PID feeds.
enum TSReceiverPIDType {
    PID_TYPE_PCR = 0,
    PID_TYPE_VIDEO = 1,
    PID_TYPE_AUDIO = 2,
    PID_TYPE_CLOSED_CAPTION = 3,
};

}  // namespace OrvPlayer
