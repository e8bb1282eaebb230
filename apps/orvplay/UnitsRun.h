#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Options.h"
#include "StatusLine.h"
#include "StreamSelection.h"
#include "UnitChain.h"
#include "tsreceiver/TSReceiver.h"

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

    // Returns the exit code.
    int run();

private:
    // One stream: its chain, and what its units are called.
    struct Stream {
        std::string name;
        uint16_t pid;
        std::unique_ptr<UnitChain> chain;
        uint64_t index = 0;
    };

    void addStream(const std::string& name, OrvPlayer::TSReceiverPIDType role, uint16_t pid,
                   UnitChain::Extraction extraction);
    bool openOut();
    bool open();
    bool take(Stream& stream, const Unit& unit);
    int work();
    int workOff(Stream& stream);
    void showProgress();
    void printSummary();
    int lastCode(int code);

    const UnitsOptions mOptions;
    const StreamSelection mSelection;
    std::vector<std::unique_ptr<Stream>> mStreams;
    android::sp<OrvPlayer::TSReceiver> mReceiver;
    FILE* mOut = nullptr;
    int64_t mBeginNs = 0;
    StatusLine mStatus;
    int mPasses = 0;
    int mPrintError = 0;  // errno values
    int mOutError = 0;
};

}  // namespace orvplay
