// Makes a sound transport stream into a bad or an unusual one, the same way every time.
//
//   TsDamage stream(readWholeFile("small.ts"));
//   stream.losePackets(1e-3);
//   stream.flipBits(1e-5);
//   write(stream.take());
//
// Two kinds of changes: what reception does (lost, doubled and swapped packets, bit errors), and
// what other multiplexers do (ISO/IEC 13818-1 allows it, or receivers meet it all the same). Each
// call works on the whole packets of the stream as the call before left it; rates are per packet
// unless they say otherwise. The bytes must begin with a packet. Which packet of the sound stream
// each one was is kept, so that what a receiver loses can be held against what was hit.

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

namespace orvtest {

class TsDamage {
public:
    // A packet of the damaged stream.
    struct Remnant {
        size_t origin;  // which packet of the sound stream it was
        size_t offset;  // where it is now
    };

    explicit TsDamage(std::vector<uint8_t> stream, uint64_t seed = 1);

    std::vector<uint8_t> take() { return std::move(mBytes); }
    // In the order of the damaged stream. Packets that were cut are not among them.
    const std::vector<Remnant>& remnants() const { return mRemnants; }

    // ---- reception
    void flipBits(double ratePerBit);
    void losePackets(double rate);
    // Holes of `packets` each, spread evenly.
    void loseBursts(size_t packets, size_t bursts);
    void setTransportErrors(double rate);
    void setScramblingBits(double rate);
    void swapNeighbours(double rate);
    void duplicatePackets(double rate);
    // A part of the stream, 0 to 1: all of it is lost, or what it has of one PID; so many of its
    // bits are wrong.
    void losePart(double from, double to);
    void losePart(double from, double to, uint16_t pid);
    // From so many seconds into the stream on, which its PCRs tell: all is lost for so long, as
    // while the signal is gone. Several holes keep their places.
    void loseSpan(double fromS, double lengthS);
    void corruptPart(double from, double to, double ratePerBit);
    // Takes bytes out at a part of the stream, 0 to 1; 1 to 187 of them, `slips` times. Call them
    // last.
    void slip(double at, size_t bytes);
    void slipBytes(size_t slips);

    // ---- multiplexers
    // Without these many packets of its beginning.
    void cutHead(size_t packets);
    void removePid(uint16_t pid);
    // PCRs from the middle of the stream on, or from so many seconds on, are this much later.
    void jumpPcr(int64_t ticks27M);
    void jumpPcr(int64_t ticks27M, double fromS);
    // All times are this much later, modulo their wrap.
    void shiftTimes(int64_t ticks90k);
    // The sender's clock runs fast by so many millionths: PCRs and time stamps from the first on.
    void skewClock(double ppm);
    // No PCR in this part of the stream, 0 to 1.
    void removePcrs(double from, double to);
    // PES packets of the PID without a time stamp, a packet.
    void removePts(uint16_t pid, double rate);
    void randomizePts(uint16_t pid, double rate);
    // A wrong PES_packet_length in every PES packet of the PID that has room for a header.
    void lieAboutPesLengths(uint16_t pid);
    void setStreamId(uint16_t pid, uint8_t streamId);
    // Every second PES packet of the PID loses its header, so that its unit follows the one before
    // in the same PES packet.
    void mergePesPackets(uint16_t pid);
    // H.264 access unit delimiters become filler data.
    void hideAccessUnitDelimiters(uint16_t pid);
    // The PMTs of all services list no streams.
    void emptyPmts();
    // Four bytes before every packet, as disc recorders write them. Call it last.
    void toTimestampedPackets();
    // Bytes that are no packets, before the first one. Call it last.
    void prependGarbage(size_t bytes);

private:
    using Packet = uint8_t*;  // 188 bytes

    size_t count() const;
    double timeOf(size_t index) const;
    Packet packet(size_t index);
    bool chance(double rate);
    bool isInside(size_t index, double from, double to) const;
    void flipBits(size_t firstBit, size_t endBit, double ratePerBit);
    void forEach(uint16_t pid, const std::function<void(Packet)>& change);
    void keepIf(const std::function<bool(size_t index, Packet packet)>& keep);

    void multiply(const std::function<int(size_t index, Packet packet)>& copies);
    void forEachTime(const std::function<int64_t(int64_t ticks27M)>& change);

    std::vector<uint8_t> mBytes;
    std::vector<Remnant> mRemnants;
    double mPacketS = 0.0;  // of the sound stream
    std::mt19937_64 mRandom;
};

}  // namespace orvtest
