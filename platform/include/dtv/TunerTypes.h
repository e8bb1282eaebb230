#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What the tuner tells and is told, in plain types: for its users on either side of a process
// border.
namespace orvhost {

constexpr uint16_t PID_NONE = 0x1FFF;  // the null packets' PID: "no PID" everywhere here

enum class StreamKind {
    Unknown,
    Video,      // 0x01, 0x02, 0x1B, 0x24
    AudioLatm,  // 0x11
    AudioAdts,  // 0x0F
    AudioMpeg,  // 0x03, 0x04
    Caption,    // 0x06, private PES: captions and superimposed text
};

// A descriptor as the table had it (ISO/IEC 13818-1 2.6), without its two header bytes.
struct Descriptor {
    uint8_t tag = 0;
    std::vector<uint8_t> data;
};

// One elementary stream of a PMT.
struct ElementaryStream {
    uint16_t pid = PID_NONE;
    uint8_t streamType = 0;
    StreamKind kind = StreamKind::Unknown;
    std::string language;   // ISO 639-2, empty when no descriptor names one
    int componentTag = -1;  // stream identifier descriptor, -1 without one
    std::vector<Descriptor> descriptors;
};

// One programme: a PMT with what the SDT says about it.
struct Service {
    uint16_t serviceId = 0;
    uint16_t pmtPid = PID_NONE;
    uint16_t pcrPid = PID_NONE;
    uint8_t serviceType = 0;       // service descriptor; 0 without an SDT
    std::vector<uint8_t> rawName;  // in the broadcast's own character coding
    std::string name;              // best effort, valid UTF-8: the Latin part of rawName
    std::string provider;          // likewise
    std::vector<ElementaryStream> streams;
};

enum class TuneStatus {
    Ok,
    NotTuned,
    NoSuchFile,
    IsDirectory,
    PermissionDenied,
    EmptySource,  // a file of no bytes, a pipe closed before its first one
    NoData,       // a pipe that stayed silent
    NoSync,       // bytes, but no transport stream in them
    NoTables,     // a transport stream without a PAT and PMT (so far)
    ReadError,
    Cancelled,    // untuned, or tuned elsewhere, by another thread meanwhile
    ServiceLost,  // the process of the tuner is gone, or did not understand
    Busy,         // too many wait for the tuner already
    BadUri,       // a source that cannot be understood, or of a kind that is not known
    CannotOpen,   // no such interface, no such address here, the port is taken ...
    NeedsSocket,  // not tuned: the client is to open that socket and to tune with it
};

// How a request ended, with one line for the user that says what to do about a failure.
struct TuneResult {
    TuneStatus status = TuneStatus::Ok;
    std::string message;

    bool ok() const { return status == TuneStatus::Ok; }
};

struct TuneOptions {
    // Paced: the source is fed at the pace of its PCR (without one, of its time stamps), and a
    // filter whose queue is full loses its oldest packets, as on air. Otherwise as fast as the
    // filters are read, on the thread that reads them, and nothing is lost.
    bool paced = true;
    uint16_t serviceId = 0;      // whose PCR paces; 0: the first service that has one
    uint16_t pcrPid = PID_NONE;  // goes before serviceId
    bool keepGaps = false;       // be silent where packets of 0.5 to 60 s are missing
    bool loop = false;           // a file starts again at its end
    // Count packets per PID and read the tables all the time, not just while looking at the head.
    bool follow = true;
    bool freeRunning = false;  // read on also while no filter runs (for statistics alone)
    // A file that is played as a recording: paced, but for the first 1.6 s, which are handed over
    // at once, as after each reposition; can be paused and repositioned; tells its end, and errors,
    // as playback events (<dtv/RecPlayerBinder.h>). A file that grows is followed. Without effect
    // on a source that is no file.
    bool recorded = false;
    int timeoutMs = 5000;  // longest wait of tune() for the first packets
    // A file comes like a broadcast that has no end: its packets come at their pace whoever reads,
    // and its beginning goes on where its end is, with times and counters that go on. `faults`, a
    // script (docs/faults.md), says what happens to it on the way.
    bool asLive = false;
    std::string faults{};
};

struct ServiceList {
    TuneResult result;
    std::vector<Service> services;
    std::string networkName;  // from the NIT, empty when there is none
};

struct PidStatistics {
    uint16_t pid = PID_NONE;
    uint64_t packets = 0;
    uint64_t continuityErrors = 0;
    uint64_t transportErrors = 0;  // packets with transport_error_indicator
    uint64_t scrambled = 0;
    uint64_t pcrCount = 0;
    int64_t maxPcrIntervalNs = 0;  // in stream time, discontinuities left out
};

// What a source did to its packets on purpose.
struct SourceFault {
    int64_t timeNs = 0;    // CLOCK_MONOTONIC: when it began
    int64_t lengthMs = 0;  // 0: a moment
    std::string text;      // as its script has it
};

// What came over the network, in datagrams, since tune().
struct NetworkStatistics {
    uint64_t datagrams = 0;
    uint64_t badDatagrams = 0;  // in which there is no transport stream
    uint64_t lost = 0;          // missing between RTP sequence numbers
    uint64_t reordered = 0;     // came behind a later one, and were put in their place
    uint64_t duplicates = 0;
    uint64_t kernelDrops = 0;  // came to this machine, and were not taken in time
    uint64_t restarts = 0;     // the sender began anew
    uint64_t jitterUs = 0;     // of arrival against the PCR, smoothed as in RFC 3550 6.4.1
};

// A figure of reception in the scale that its driver measures it in.
struct DvbFigure {
    enum class Scale { NONE, DECIBEL, PERCENT };
    Scale scale = Scale::NONE;
    double value = 0.0;  // dBm for a strength in decibels
};

// How the frontend of a DVB adapter receives.
struct DvbSignal {
    bool carrier = false;
    bool lock = false;
    DvbFigure strength;
    DvbFigure carrierToNoise;
    double bitErrorRate = -1.0;     // before the last correction; -1: not measured
    double packetErrorRate = -1.0;  // of blocks that could not be corrected; -1: not measured
};

struct FrontendStatistics {
    bool present = false;    // the source is an adapter
    DvbSignal signal;        // as it was within the last second
    uint64_t overflows = 0;  // of the kernel's buffer: each time packets were lost
};

// Counts since tune(); what the look at the head of the source read counts once, when it is fed.
struct TunerStatistics {
    uint64_t packets = 0;
    uint64_t bytes = 0;  // of the source, whatever its packet size
    uint64_t syncLosses = 0;
    uint64_t skippedBytes = 0;        // outside of packets
    uint64_t droppedPackets = 0;      // by full filter queues
    uint64_t repeatedPackets = 0;     // sent twice and given to a filter once
    std::vector<PidStatistics> pids;  // those that were seen, ascending
    NetworkStatistics network;        // all 0 for other sources
    FrontendStatistics frontend;
};

// How reception stands: the totals of TunerStatistics, over all PIDs.
struct TunerSignal {
    bool tuned = false;
    bool atEnd = false;  // the last packet of the source went to the player
    uint64_t packets = 0;
    uint64_t bytes = 0;
    uint64_t continuityErrors = 0;
    uint64_t transportErrors = 0;
    uint64_t scrambled = 0;  // packets
    uint64_t syncLosses = 0;
    uint64_t skippedBytes = 0;
    uint64_t droppedPackets = 0;
    NetworkStatistics network;
    FrontendStatistics frontend;
};

}  // namespace orvhost
