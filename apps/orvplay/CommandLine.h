#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "Options.h"

namespace orvplay {

// Parts that several commands of the command line have.

void addPid(CLI::App* command, const std::string& name, std::optional<uint16_t>& pid,
            const std::string& what);
void addStreams(CLI::App* command, StreamOptions& options);
// For commands that take a channel by name.
void addAdapter(CLI::App* command, StreamOptions& options);
void addService(CLI::App* command, ServiceOptions& options);
CLI::Option* addSource(CLI::App* command, std::string& source);
void addStorage(CLI::App* command, int& storage);
void addStorage(CLI::App* command, std::optional<int>& storage);
// What the recorder does not take as a name: one line, empty for what it does.
std::string checkLabel(const std::string& name);
// Of `play` but for what is played.
void addPlayback(CLI::App* command, PlayOptions& options);

// `orvplay channels` with all that is below it, and `orvplay scan`.
CLI::App* addChannels(CLI::App& app, ChannelsOptions& options);
CLI::App* addScan(CLI::App& app, ScanOptions& options);

// `orvplay status`, `stats` and `events`.
CLI::App* addStatus(CLI::App& app, FleetOptions& options);
CLI::App* addStats(CLI::App& app, FleetOptions& options);
CLI::App* addEvents(CLI::App& app, FleetOptions& options);

// `orvplay record` and all that is below it.
class RecordCommandLine {
public:
    RecordCommandLine() = default;
    RecordCommandLine(const RecordCommandLine&) = delete;  // the command line writes here
    RecordCommandLine& operator=(const RecordCommandLine&) = delete;

    CLI::App* addTo(CLI::App& app);
    // Runs what was asked for; the exit code.
    int run();

private:
    void addSwitch();
    void addRecordings();

    CLI::App* mRecord = nullptr;
    RecordOptions mSingle;  // record SOURCE
    RecordSwitchOptions mSwitch;
    RecordingsOptions mRecordings;
    PlayOptions mPlay;
    int mPlayNumber = 0;
};

}  // namespace orvplay
