// Multiplexes elementary streams and tables into a transport stream of constant rate.
//
// Every packet slot has an exact time on the 27 MHz clock, counted from the first picture's
// presentation. A slot goes to the first of these that wants it:
//
//   1. a PCR that is due (every 25 ms at the latest, stamped with its own byte's time)
//   2. a table packet that is due
//   3. the PES packet with the earliest decoding time whose release time has come
//      (decoding time minus the stream's lead); a stream may limit its rate within that
//   4. a null packet
//
// A PES packet that cannot be sent before its decoding time ends the run with a Failure, so
// whatever comes out keeps the promise that no data is late.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "mksample/PesSource.h"
#include "mksample/Tables.h"
#include "mksample/TsPacket.h"

namespace mksample {

// Takes the finished packets. Throws Failure.
class PacketSink {
public:
    virtual ~PacketSink() = default;
    virtual void write(const TsPacket& packet) = 0;
    // The last packet of a caption was written. The PTS is as in its header.
    virtual void captionWritten(uint64_t /*pts90k*/, const std::string& /*text*/) {}
};

struct MuxSettings {
    int64_t rate = 0;       // bit/s
    uint64_t startPts = 0;  // time stamp of the first picture
    // Jump at this time: what was being sent stays incomplete, a stretch of content is missing,
    // counters jump and another time base begins, as where two recordings were joined.
    std::optional<double> cutAtS;
};

class TsMuxer {
public:
    TsMuxer(const MuxSettings& settings, PacketSink& sink);

    // The source must outlive the run. peakRate (bit/s) 0 is the rate of the multiplex.
    void addStream(uint16_t pid, uint8_t streamId, PesSource& source, int64_t lead90k,
                   int64_t peakRate);
    void addTable(const Table& table);
    // On the PID of a stream it travels in that stream's packets, else in packets of its own.
    void addPcrPid(uint16_t pid);

    // Sends everything to the end of all streams. progress is called now and then with the seconds
    // of content sent.
    void run(const std::function<void(double)>& progress);

private:
    struct Stream {
        uint16_t pid;
        uint8_t streamId;
        PesSource* source;
        int64_t lead90k;
        int64_t packetGap27M;  // least distance of two packets
        uint8_t counter = 0;

        bool hasUnit = false;
        PesUnit unit;     // with the header in front once its first packet is sent
        size_t sent = 0;  // of PES header and payload together
        int64_t earliest27M = INT64_MIN;
    };
    struct TableState {
        std::vector<TsPacket> packets;
        Table table;
        int64_t period27M;
        int64_t nextDue27M = INT64_MIN;
        size_t nextPacket = 0;
        uint8_t counter = 0;
    };
    struct PcrState {
        uint16_t pid;
        int64_t nextDue27M = INT64_MIN;
        uint8_t counter = 0;
    };

    void fetch(Stream& stream);
    Stream* streamOf(uint16_t pid);
    Stream* chooseStream(int64_t now27M);
    bool sendPcr(int64_t now27M);
    bool sendTable(int64_t now27M);
    static void packetize(TableState* state);
    void sendStream(Stream& stream, int64_t now27M, bool withPcr);
    void cut(int64_t now27M);

    int64_t elapsed27M(int64_t extraBits) const;
    uint64_t stamp90k(int64_t time90k) const;
    uint64_t pcr27M() const;

    const MuxSettings mSettings;
    PacketSink& mSink;
    std::vector<Stream> mStreams;
    std::vector<TableState> mTables;
    std::vector<PcrState> mPcrs;
    const TsPacket mNull = nullPacket();
    int64_t mPacketsSent = 0;
    int64_t mBase27M = 0;         // content time of the first slot
    int64_t mStampOffset90k = 0;  // of the present time base
    bool mCutDone = false;
};

}  // namespace mksample
