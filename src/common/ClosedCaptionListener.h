#pragma once

namespace OrvPlayer {

// Receives caption text when it is due: `text` holds `length` bytes, valid during the call.
class ClosedCaptionListener {
public:
    virtual ~ClosedCaptionListener() = default;
    virtual void onClosedCaptionReceived(unsigned char* text, int length) = 0;
};

}  // namespace OrvPlayer
