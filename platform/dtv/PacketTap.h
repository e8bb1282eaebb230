#pragma once

#include <cstdint>
#include <vector>

namespace orvhost {

// Gets the packets of several PIDs in the order of the feed, each as the source carried it: sent
// twice, damaged or scrambled, whatever it is. What other PIDs carry costs the feed nothing.
//
// Every call comes from the thread that feeds or leaves the source, with the demultiplexer's lock
// held: it may neither wait nor call the demultiplexer.
class PacketTap {
public:
    virtual ~PacketTap() = default;

    // What is wanted. Asked when the tap begins and after each onPacket() that said so.
    virtual const std::vector<uint16_t>& pids() const = 0;

    // One packet of these. True when pids() has changed with it: from the next packet on those are
    // delivered.
    virtual bool onPacket(const uint8_t* packet) = 0;

    // Everything that was fed at once has been seen, tapped or not.
    virtual void onBatchEnd() = 0;

    // Whether it takes another batch, asked before one of a source that nothing paces: such a
    // source waits until Demultiplexer::tapHasRoom() was called. Nothing else ever waits for a tap.
    virtual bool hasRoom() = 0;

    // The tuner left the source; what comes next is of another one.
    virtual void onSourceLeft() = 0;
};

}  // namespace orvhost
