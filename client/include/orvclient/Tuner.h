#pragma once

#include <dtv/BroadcastTypes.h>
#include <dtv/TunerTypes.h>
#include <orvclient/Export.h>

#include <memory>
#include <string>

namespace orvclient {

// Where the packets come from: the tuner beside the player. Any thread.
class ORVCLIENT_API Tuner {
public:
    virtual ~Tuner() = default;

    // Opens a file or a FIFO, "-" standing for this process's standard input, here and hands the
    // descriptor to the service: it needs no right to the file, and relative names mean what they
    // mean here. Waits until packets are found.
    //
    // The socket of "udp://239.255.1.1:5000" or "rtp://eth1@[ff15::1]:5004" is opened here
    // likewise; an adapter, "dvb://0?frequency=473142857", by the service (docs/sources.md). What
    // is tuned already stays: stop(), tune(), open() and start() change to another service of the
    // same multiplex without leaving it.
    virtual orvhost::TuneResult tune(const std::string& source,
                                     const orvhost::TuneOptions& options) = 0;
    virtual void untune() = 0;
    // What the source carries, after waiting so long for the tables.
    virtual orvhost::ServiceList services(int timeoutMs) = 0;
    virtual orvhost::TunerSignal signal() = 0;
    // The broadcast's clock, what is on air and what comes next, after waiting so long for the
    // tables. Zero while something plays: those that came are there.
    virtual orvhost::BroadcastInformation information(int timeoutMs) = 0;
    // The faults that a script (TuneOptions::faults) had happen since the last call.
    virtual std::vector<orvhost::SourceFault> takeFaults() = 0;
};

}  // namespace orvclient
