#pragma once

#include <cstddef>
#include <cstdint>

#include "dtv/Services.h"

namespace orvhost {

// Reads the samples of a stream's clock from its packets: the PCR of one PID or, in a stream that
// shows no PCR, the decoding time stamps in the PES headers of one PID. The first PCR ends that.
//
// Both in 27 MHz ticks over the same wrap. A time stamp is ahead of the PCR it belongs to, so the
// change looks like a jump back. Not thread-safe.
class StreamClock {
public:
    // The PID whose PCR counts; PID_NONE takes the first PID that carries one. True for a change.
    bool setPcrPid(uint16_t pid);
    uint16_t pcrPid() const { return mPcrPid; }

    // The PID whose time stamps count where there is no PCR; PID_NONE takes the first with some.
    // Nothing changes once choose() had packets to look at.
    void setStampPid(uint16_t pid) { mStampPid = mChosen ? mStampPid : pid; }

    // Looks once, at the first packets there are, for what they bring.
    void choose(const uint8_t* packets, size_t count);

    // The clock at this packet, -1 when it does not say.
    int64_t sampleOf(const uint8_t* packet);

    // The PIDs brought nothing for long: any will do.
    void takeAnyPid();

    // After a jump in the source.
    void forgetStamp() { mLastStamp = -1; }

private:
    int64_t stampOf(const uint8_t* packet);

    uint16_t mPcrPid = PID_NONE;
    uint16_t mStampPid = PID_NONE;
    bool mChosen = false;
    bool mByStamps = false;
    int64_t mLastStamp = -1;
};

// The DTS of the PES packet that starts in this packet, else its PTS (ISO/IEC 13818-1 2.4.3.7), in
// 27 MHz ticks; -1 without one.
int64_t decodingTimeOf(const uint8_t* packet);
// Likewise, but always the PTS.
int64_t presentationTimeOf(const uint8_t* packet);

}  // namespace orvhost
