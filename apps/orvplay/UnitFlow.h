#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "StreamSelection.h"
#include "UnitChain.h"
#include "tsreceiver/TSReceiver.h"

namespace orvplay {

// A source, already tuned unpaced, taken apart: the receiver, and one chain for each of the chosen
// streams.
//
//     tuner -> TSReceiver -> UnitChain of the picture -> Sink
//                        `-> UnitChain of the sound   -> Sink    and so on
//
// The same source gives the same units in the same order. Everything happens on the caller's
// thread.
class UnitFlow {
public:
    struct Stream {
        std::string name;  // "video", "audio" or "captions"
        OrvPlayer::TSReceiverPIDType role = OrvPlayer::PID_TYPE_VIDEO;
        uint16_t pid = 0;
        std::unique_ptr<UnitChain> chain;
    };
    // The unit's bytes are readable until it returns. False: no more of any stream.
    using Sink = std::function<bool(const Stream& stream, const Unit& unit)>;

    enum class End {
        WORKED_OFF,
        INTERRUPTED,
        NO_MORE_WANTED,  // by a sink
        SCRAMBLED,       // for good; see scrambledPid()
        NO_MEMORY
    };

    // What comes out: the units of every stream, its PES packets instead, or units of the captions
    // and PES packets of the rest.
    enum class Cut { UNITS, PES, CAPTIONS };

    UnitFlow(const StreamSelection& selection, Cut cut, Sink sink);
    UnitFlow(const UnitFlow&) = delete;  // its chains know it by address
    UnitFlow& operator=(const UnitFlow&) = delete;

    // Works the source off, once. `progress` is called now and then.
    End run(const std::function<void()>& progress = [] {});

    const std::vector<std::unique_ptr<Stream>>& streams() const { return mStreams; }
    uint16_t scrambledPid() const { return mScrambledPid; }

private:
    void addStream(const char* name, OrvPlayer::TSReceiverPIDType role, uint16_t pid,
                   UnitChain::Extraction extraction);
    bool open();
    End work(const std::function<void()>& progress);
    End workOff(Stream& stream);

    const Sink mSink;
    std::vector<std::unique_ptr<Stream>> mStreams;  // in the order of their roles
    android::sp<OrvPlayer::TSReceiver> mReceiver;
    uint16_t mScrambledPid = 0;
};

}  // namespace orvplay
