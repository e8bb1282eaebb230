#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Options.h"

namespace orvplay {

// Every command of orvplay with its options: what the command line is parsed by, and what manual
// page and completion are written from.
class CommandTree {
public:
    CommandTree();
    CommandTree(const CommandTree&) = delete;  // the options are written here
    CommandTree& operator=(const CommandTree&) = delete;

    // Parses the command line and runs its command; the exit code.
    int run(int argc, char** argv);

    const CLI::App& root() const { return mApp; }

private:
    struct Command {
        const CLI::App* node;
        std::function<int()> run;
    };

    void add(CLI::App* command, std::function<int()> run);
    int printCompletion() const;

    CLI::App mApp;
    std::vector<Command> mCommands;
    PlayOptions mPlay;
    SnapshotOptions mSnapshot;
    ProbeOptions mProbe;
    UnitsOptions mUnits;
    CaptionsOptions mCaptions;
    PlotOptions mPlot;
    RecordCommandLine mRecord;
    ChannelsOptions mChannels;
    ScanOptions mScan;
    bool mDoctorJson = false;
    FleetOptions mFleet;
    ZapOptions mZap;
    std::string mShell;  // to complete for
};

}  // namespace orvplay
