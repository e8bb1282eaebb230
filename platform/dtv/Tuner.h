#pragma once

#include <dtv/BroadcastTypes.h>
#include <dtv/TunerTypes.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "dtv/Demultiplexer.h"
#include "dtv/HostClock.h"
#include "dtv/ServiceTables.h"
#include "dtv/Services.h"

namespace orvhost {

class ByteSource;
class TunerSession;

// A source that is played as a recording.
struct RecordedSource {
    uint64_t tuning = 0;  // another one with each tune()
    std::string name;     // what it was tuned by: a path, or what the client called the descriptor
    TuneOptions options;
    bool wasFed = false;  // since it was tuned or repositioned
};

// Hears of a recording that is played, and when nobody listens to it any more.
class PlaybackListener {
public:
    virtual ~PlaybackListener() = default;

    // A RecPlayerBinder_PlayerEvent, on the feeding thread. It must not call the tuner.
    virtual void onPlaybackEvent(int event) = 0;

    // No filter runs; on the thread that stopped the last one, before that returns.
    virtual void onFiltersStopped() = 0;
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

    // Leaves the present source and opens a file, a FIFO, "-" (standard input) or what a URI names
    // ("udp://239.255.1.1:5000"). Waits until packets are found, at most options.timeoutMs;
    // untune() from another thread ends the wait. On failure nothing is tuned.
    //
    // A live source that is tuned already, under whatever spelling, stays: its packets go on, for
    // filters that run and for those that are started next, and its counts.
    TuneResult tune(const std::string& source, const TuneOptions& options);

    // The same for a URI that a client in another process names. One of a network is not opened
    // here when it is not tuned already: NeedsSocket, with nothing tuned, and the client hands it
    // over.
    TuneResult tuneForClient(const std::string& uri, const TuneOptions& options);

    // The same for an open descriptor, which stays the caller's and may be closed after the call.
    // A regular file is read from its present offset on, without moving it. Messages call it
    // `name`; for a socket (DatagramSocket) that is the URI which it was opened for.
    TuneResult tune(int descriptor, const TuneOptions& options, const std::string& name = {});

    // Leaves the source: within 50 ms, whatever it was waiting for. Filters stay.
    void untune();

    // Also while tune() waits for packets.
    bool isTuned() const { return session() != nullptr; }

    // Goes back to the beginning of a file: what the filters hold is dropped, the next packet they
    // get is the first one. False when the source cannot (a pipe), or nothing is tuned.
    bool rewind();

    // The services of the source. Waits until PAT, all PMTs and the SDT are there, at most
    // timeoutMs; after that returns what is known, NoTables when that is nothing. A source without
    // an SDT costs the whole time-out only if it never ends.
    ServiceList services(int timeoutMs);

    // What the source tells of itself, its clock and what is on air. Waits until that is known of
    // every service, at most timeoutMs; after that returns what is known. A source that nobody
    // reads (no filter runs, nor is it free-running) is not waited for.
    BroadcastInformation information(int timeoutMs);

    // The service of the source with streams on these PIDs, as far as its tables are known, see
    // ServiceTables. Nothing when none has them, or nothing is tuned.
    std::optional<TunedProgramme> findProgramme(int videoPid, int audioPid) const;

    // The source, when it is played as a recording.
    std::optional<RecordedSource> recording() const;

    // A descriptor of its file that the caller closes, -1 when nothing is tuned, or no file.
    int duplicateSource() const;

    // Stops the feed of a recording, before it returns, and goes on from there: what comes is as
    // much later. False when no recording is tuned.
    bool setPaused(bool paused);

    // The feed of a recording goes on from the packet at this byte of its file, paused or not; what
    // filters hold is dropped. False when another source is tuned than that.
    bool reposition(uint64_t tuning, uint64_t offset);

    // It stays the caller's, who takes it away while nothing is tuned and no filter runs.
    void setPlaybackListener(PlaybackListener* listener) { mPlaybackListener = listener; }

    TunerStatistics statistics() const;

    // The faults that the source made on purpose (TuneOptions::faults) since the last call.
    std::vector<SourceFault> takeFaults();

    // True once the last packet of the source went to the filters and, where nothing paces them,
    // a reader asked for more.
    bool atEnd() const;

    // `callback` runs on the feeding thread each time the end is reached. It must not call the
    // tuner; it may stop filters. Set it while nothing is tuned.
    void setEndCallback(std::function<void()> callback);

    Demultiplexer& demultiplexer() { return mDemultiplexer; }

private:
    enum class Sockets { OPENED_HERE, FROM_CLIENT };
    TuneResult tuneUri(const std::string& uri, const TuneOptions& options, Sockets sockets);
    std::unique_ptr<ByteSource> asAsked(std::unique_ptr<ByteSource> source, const std::string& name,
                                        const TuneOptions& options, TuneResult& result);
    TuneResult begin(std::unique_ptr<ByteSource> source, const std::string& name,
                     const TuneOptions& options);
    TuneResult settled(const TuneResult& result, const std::shared_ptr<TunerSession>& mine);
    std::shared_ptr<TunerSession> session() const;
    std::shared_ptr<TunerSession> replaceSession(std::shared_ptr<TunerSession> next);

    HostClock& mClock;
    Demultiplexer mDemultiplexer;
    std::mutex mChangeMutex;    // held while sessions change; taken before mMutex
    mutable std::mutex mMutex;  // the two below
    std::shared_ptr<TunerSession> mSession;
    std::function<void()> mEndCallback;
    uint64_t mTunings = 0;
    std::atomic<PlaybackListener*> mPlaybackListener{nullptr};
};

}  // namespace orvhost
