#pragma once

namespace OrvPlayer {

// Told by the presentation clock that its base changed; `pcr` is the stream time now, 33 bits, in
// 90 kHz ticks. May be called with the clock's lock held: must not call back into the clock, nor
// take a lock under which the clock is called.
class PCRListener {
public:
    virtual ~PCRListener() = default;
    virtual void onPCRChanged(unsigned long pcr) = 0;
};

}  // namespace OrvPlayer
