#pragma once

#include <cstdio>

#include "Options.h"
#include "StatusLine.h"
#include "StreamSelection.h"
#include "UnitFlow.h"

namespace orvplay {

// A source, already tuned unpaced, taken apart into the units of its chosen streams: one line a
// unit, a summary last.
//
//     {"stream":"video","index":0,"pts":132132,"size":51324,"flags":16,"md5":"..."}
//     {"stream":"video","index":0,"pts":..,"dts":..,"streamId":224,"size":..,"md5":".."}   (PES)
//     {"event":"summary","units":902,"bytes":..,"seconds":0.02,...}
//
// Time stamps are in 90 kHz ticks modulo 2^33 for PES packets; those of units may run past that.
// The same source gives the same lines in the same order. Everything happens on the caller's
// thread.
class UnitsRun {
public:
    UnitsRun(const UnitsOptions& options, const StreamSelection& selection);
    ~UnitsRun();
    UnitsRun(const UnitsRun&) = delete;  // its flow knows it by address
    UnitsRun& operator=(const UnitsRun&) = delete;

    // Returns the exit code.
    int run();

private:
    bool openOut();
    bool take(const UnitFlow::Stream& stream, const Unit& unit);
    int exitCodeOf(UnitFlow::End end);
    void printSummary();
    int lastCode(int code);

    const UnitsOptions mOptions;
    UnitFlow mFlow;
    FILE* mOut = nullptr;
    int64_t mBeginNs = 0;
    StatusLine mStatus;
    int mPrintError = 0;  // errno values
    int mOutError = 0;
};

}  // namespace orvplay
