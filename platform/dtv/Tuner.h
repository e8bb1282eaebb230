#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "dtv/Demultiplexer.h"
#include "dtv/HostClock.h"
#include "dtv/Services.h"

namespace orvhost {

class ByteSource;
class TunerSession;

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
    Cancelled,  // untuned, or tuned elsewhere, by another thread meanwhile
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
    int timeoutMs = 5000;      // longest wait of tune() for the first packets
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

// Counts since tune(); what the look at the head of the source read counts once, when it is fed.
struct TunerStatistics {
    uint64_t packets = 0;
    uint64_t bytes = 0;  // of the source, whatever its packet size
    uint64_t syncLosses = 0;
    uint64_t skippedBytes = 0;        // outside of packets
    uint64_t droppedPackets = 0;      // by full filter queues
    uint64_t repeatedPackets = 0;     // sent twice and given to a filter once
    std::vector<PidStatistics> pids;  // those that were seen, ascending
};

// The tuner of this process: one source, fed through the PID filters of the demultiplexer.
//
//   TuneResult r = Tuner::instance().tune("news.ts", {});
//   ServiceList list = Tuner::instance().services(2000);   // tells the PIDs
//   ... the player starts its filters: the feed begins at the start of the source ...
//   Tuner::instance().untune();
//
// tune() looks at the head of the source and keeps it: nothing is lost to that look, also of a
// pipe. The feed begins with the first filter, pauses when the last one stops and goes on from
// there with the next first one. Every function may be called from any thread.
class Tuner {
public:
    static Tuner& instance();

    explicit Tuner(HostClock& clock = HostClock::monotonic());
    ~Tuner();
    Tuner(const Tuner&) = delete;  // filters and threads know us by address
    Tuner& operator=(const Tuner&) = delete;

    // Leaves the present source and opens a file, a FIFO, or "-" (standard input). Waits until
    // packets are found, at most options.timeoutMs; untune() from another thread ends the wait. On
    // failure nothing is tuned.
    TuneResult tune(const std::string& source, const TuneOptions& options);

    // The same for an open descriptor, which stays the caller's and may be closed after the call.
    // A regular file is read from its present offset on, without moving it.
    TuneResult tune(int descriptor, const TuneOptions& options);

    // Leaves the source: within 50 ms, whatever it was waiting for. Filters stay.
    void untune();

    // Goes back to the beginning of a file: what the filters hold is dropped, the next packet they
    // get is the first one. False when the source cannot (a pipe), or nothing is tuned.
    bool rewind();

    // The services of the source. Waits until PAT, all PMTs and the SDT are there, at most
    // timeoutMs; after that returns what is known, NoTables when that is nothing. A source without
    // an SDT costs the whole time-out only if it never ends.
    ServiceList services(int timeoutMs);

    TunerStatistics statistics() const;

    // True once the last packet of the source went to the filters and, where nothing paces them,
    // a reader asked for more.
    bool atEnd() const;

    // `callback` runs on the feeding thread each time the end is reached. It must not call the
    // tuner; it may stop filters. Set it while nothing is tuned.
    void setEndCallback(std::function<void()> callback);

    Demultiplexer& demultiplexer() { return mDemultiplexer; }

private:
    TuneResult begin(std::unique_ptr<ByteSource> source, const std::string& name,
                     const TuneOptions& options);
    std::shared_ptr<TunerSession> session() const;
    std::shared_ptr<TunerSession> replaceSession(std::shared_ptr<TunerSession> next);

    HostClock& mClock;
    Demultiplexer mDemultiplexer;
    std::mutex mChangeMutex;    // held while sessions change; taken before mMutex
    mutable std::mutex mMutex;  // the two below
    std::shared_ptr<TunerSession> mSession;
    std::function<void()> mEndCallback;
};

}  // namespace orvhost
