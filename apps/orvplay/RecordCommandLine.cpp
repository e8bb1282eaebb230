#include "CommandLine.h"
#include "PlayCommand.h"
#include "RecordCommand.h"

namespace orvplay {

namespace {

using Action = RecordingsOptions::Action;

void addName(CLI::App* command, const std::string& option, std::string& name,
             const std::string& what) {
    command->add_option(option, name, what)->check(checkLabel)->type_name("NAME");
}

void addNumbers(CLI::App* command, std::vector<int>& numbers) {
    command->add_option("N", numbers, "Numbers of recordings, as listed")
        ->check(CLI::PositiveNumber)
        ->required();
}

}  // namespace

CLI::App* RecordCommandLine::addTo(CLI::App& app) {
    mRecord = app.add_subcommand("record", "Record a transport stream, and look after recordings");
    mRecord->require_subcommand(0, 1);
    addSource(mRecord, mSingle.source);
    addStreams(mRecord, mSingle);
    addService(mRecord, mSingle);
    mRecord->add_option("--duration", mSingle.durationS, "Seconds to record (to the end)")
        ->check(CLI::PositiveNumber)
        ->type_name("SECONDS");
    addName(mRecord, "--name", mSingle.name, "What the recording is called besides its channel");
    addStorage(mRecord, mSingle.storage);
    mRecord->add_flag("--json", mSingle.json, "Print events and the recording as JSON");
    mRecord->footer(
        "With SOURCE it records without watching and prints the recording at the end; Ctrl-C\n"
        "ends it, and keeps what there is.");
    mRecord->callback([this] {
        const bool hasCommand = !mRecord->get_subcommands().empty();
        if (hasCommand == !mSingle.source.empty()) {
            throw CLI::ValidationError(hasCommand ? "record: either SOURCE or a command"
                                                  : "record: SOURCE, or a command, is required");
        }
    });
    addSwitch();
    addRecordings();
    return mRecord;
}

void RecordCommandLine::addSwitch() {
    const auto addPlayer = [this](CLI::App* command) {
        command->add_option("--player", mSwitch.player, "Which one, by process number")
            ->check(CLI::PositiveNumber)
            ->type_name("PID");
    };
    CLI::App* start =
        mRecord->add_subcommand("start", "Record what a running \"orvplay play\" plays");
    addName(start, "--name", mSwitch.name, "What the recording is called besides its channel");
    addStorage(start, mSwitch.storage);
    addPlayer(start);
    CLI::App* stop = mRecord->add_subcommand("stop", "End that recording");
    stop->add_flag("--discard", mSwitch.discard, "Throw it away");
    addPlayer(stop);
}

void RecordCommandLine::addRecordings() {
    const auto add = [this](const char* name, const char* what, Action action) {
        CLI::App* command = mRecord->add_subcommand(name, what);
        command->add_flag("--json", mRecordings.json, "Print JSON, one object a line");
        addService(command, mRecordings);
        command->callback([this, action] { mRecordings.action = action; });
        return command;
    };
    add("list", "List the recordings", Action::LIST);
    addNumbers(add("show", "Show all that is known of recordings", Action::SHOW),
               mRecordings.numbers);
    addNumbers(add("rm", "Remove recordings and their files", Action::REMOVE), mRecordings.numbers);
    CLI::App* import =
        add("import", "Copy a transport stream file among the recordings", Action::IMPORT);
    import->add_option("FILE", mRecordings.file, "A transport stream file")->required();
    addName(import, "--channel", mRecordings.channel, "Its channel (what the file says)");
    addName(import, "--name", mRecordings.name, "What it is called besides");
    addStorage(import, mRecordings.storage);
    CLI::App* playOne = mRecord->add_subcommand("play", "Play a recording, as play recording:N");
    playOne->add_option("N", mPlayNumber, "Number of the recording, as listed")
        ->check(CLI::PositiveNumber)
        ->required();
    addPlayback(playOne, mPlay);
}

int RecordCommandLine::run() {
    if (mRecord->got_subcommand("play")) {
        mPlay.source = "recording:" + std::to_string(mPlayNumber);
        return playCommand(mPlay);
    }
    if (mRecord->got_subcommand("start") || mRecord->got_subcommand("stop")) {
        mSwitch.start = mRecord->got_subcommand("start");
        return recordSwitchCommand(mSwitch);
    }
    return mRecord->get_subcommands().empty() ? recordCommand(mSingle)
                                              : recordingsCommand(mRecordings);
}

}  // namespace orvplay
