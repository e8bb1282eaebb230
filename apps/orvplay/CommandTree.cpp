#include "CommandTree.h"

#include <iostream>
#include <memory>
#include <utility>

#include "CaptionsCommand.h"
#include "ChannelsCommand.h"
#include "CommandLine.h"
#include "CommandText.h"
#include "Completion.h"
#include "DoctorCommand.h"
#include "ExitCode.h"
#include "FleetCommand.h"
#include "PlayCommand.h"
#include "PlotCommand.h"
#include "ProbeCommand.h"
#include "SnapshotCommand.h"
#include "TimingPlot.h"
#include "UnitsCommand.h"
#include "ZapCommand.h"

namespace orvplay {

namespace {

constexpr char EXIT_CODES[] =
    "Exit codes: 0 ok, 1 failure, 2 usage, 3 player service not reachable or lost, 4 source cannot "
    "be\n"
    "opened, 5 no signal or no data, 6 playback error, 7 recording failed or disk full, 8 "
    "service,\n"
    "PID, channel or recording not found, 130 interrupted.";

CLI::App* addPlay(CLI::App& app, PlayOptions& options) {
    CLI::App* play = app.add_subcommand("play", "Play a broadcast, a recording or a media file");
    play->add_option("SOURCE", options.source,
                     "A channel by name or number, a transport stream file, which plays as live "
                     "television, - for one on standard input, udp://[INTERFACE@]ADDRESS:PORT, "
                     "rtp://..., recording:N, or a media file. Without it the channel that played "
                     "last, or the first one");
    addStreams(play, options);
    addPid(play, "--pcr-pid", options.pcrPid, "clock");
    addPlayback(play, options);
    play->add_flag(
            "--as-live{-}", options.asLive,
            "Play a transport stream file for ever as if it were on air, with the faults "
            "of a script: lost packets, gaps, bit errors, jumps of the clock (docs/faults.md)")
        ->type_name("[=SCRIPT]");
    return play;
}

CLI::App* addSnapshot(CLI::App& app, SnapshotOptions& options) {
    constexpr int MOST = 1'000'000;
    constexpr int DAY_MS = 86'400'000;
    CLI::App* snapshot =
        app.add_subcommand("snapshot", "Save stills of a broadcast or a media file as PNG");
    snapshot
        ->add_option("SOURCE", options.source,
                     "A channel by name or number, a transport stream file, - for one on standard "
                     "input, udp://..., rtp://..., or a media file")
        ->required();
    addStreams(snapshot, options);
    addPid(snapshot, "--pcr-pid", options.pcrPid, "clock");
    addService(snapshot, options);
    snapshot->add_option("-n,--count", options.count, "How many stills (default 1)")
        ->check(CLI::Range(1, MOST))
        ->type_name("COUNT");
    snapshot->add_option("--every", options.everyMs, "Milliseconds between stills (default 1000)")
        ->check(CLI::Range(1, DAY_MS))
        ->type_name("MS");
    snapshot->add_option("--at", options.atS, "Of a media file: the position of the first (0)")
        ->check(CLI::Range(0.0, DAY_MS / 1000.0))
        ->type_name("SECONDS");
    snapshot
        ->add_option("-o,--out", options.out,
                     "Where to: a file, a folder, or - for standard output (one still only)")
        ->type_name("FILE|-");
    snapshot->footer(
        "Plays without window and sound and prints the name of each file. By default it is\n"
        "orvplay-SERVICE-2026-11-21-143015.png in this folder. No file is ever overwritten: a "
        "name\n"
        "that is taken gets -1, -2 and so on.");
    return snapshot;
}

CLI::App* addProbe(CLI::App& app, ProbeOptions& options) {
    CLI::App* probe = app.add_subcommand("probe", "Show what is in a transport stream");
    addSource(probe, options.source)->required();
    addAdapter(probe, options);
    probe
        ->add_option("--duration", options.durationS,
                     "Seconds to read from standard input or a network (a file is read to its "
                     "end)")
        ->check(CLI::PositiveNumber)
        ->type_name("SECONDS");
    probe->add_flag("--json", options.json, "Print JSON, one object a line");
    return probe;
}

CLI::App* addUnits(CLI::App& app, UnitsOptions& options) {
    CLI::App* units = app.add_subcommand(
        "units", "Print every access unit that the player cuts out of a stream, as JSON");
    addSource(units, options.source)->required();
    addStreams(units, options);
    units->add_option("--stream", options.stream, "Only the picture, the sound or the captions")
        ->check(CLI::IsMember({"video", "audio", "captions"}))
        ->type_name("video|audio|captions");
    units
        ->add_option("--stage", options.stage,
                     "What to print: access units (the default) or PES packets")
        ->check(CLI::IsMember({"units", "pes"}))
        ->type_name("units|pes");
    units->add_option("--out", options.out, "Write the bytes of the units there, one after another")
        ->type_name("FILE");
    units->add_flag("--quiet", options.quiet, "Print the summary alone");
    units->footer(
        "Nothing is lost and nothing waits for a clock. With --video-pid, --audio-pid or\n"
        "--caption-pid only the streams named are taken. The last PES packet of a stream is never\n"
        "complete. Units of captions are their texts.");
    return units;
}

CLI::App* addCaptions(CLI::App& app, CaptionsOptions& options) {
    CLI::App* captions = app.add_subcommand(
        "captions", "Write the captions of a transport stream as text or subtitles");
    addSource(captions, options.source)->required();
    captions->add_option("--service", options.service,
                         "Service to take, by name or number (the first one with captions)");
    addPid(captions, "--caption-pid", options.captionPid, "captions");
    addAdapter(captions, options);
    captions
        ->add_option("--format", options.format,
                     "Text (the default), SubRip, WebVTT or JSON, one object a line")
        ->check(CLI::IsMember({"txt", "srt", "vtt", "jsonl"}))
        ->type_name("txt|srt|vtt|jsonl");
    captions->add_option("--out", options.out, "Write there instead of standard output")
        ->type_name("FILE");
    captions->footer(
        "Times count from the first picture, or the first sound where there is no picture. A\n"
        "caption ends when the next one begins, after 5 seconds at the latest: that a broadcast\n"
        "cleared its screen is not told. A caption of blanks ends the one before and is left out.\n"
        "After a jump back in the time stamps the next caption begins a second later.");
    return captions;
}

CLI::App* addDoctor(CLI::App& app, bool& json) {
    CLI::App* doctor = app.add_subcommand(
        "doctor", "Check what playing stands on, and print the commands that mend it");
    doctor->add_flag("--json", json, "Print JSON, one object a line");
    doctor->footer(
        "Looks at tuner, display, sound server, fonts, codecs, player service, session bus,\n"
        "folders and limits, and changes nothing. A note or a warning hinders nothing; what is\n"
        "missing makes the exit code 1.");
    return doctor;
}

CLI::App* addZap(CLI::App& app, ZapOptions& options) {
    CLI::App* zap = app.add_subcommand(
        "zap", "Change the channel of a running player, and show where the time goes");
    zap->add_option("CHANNEL", options.channel,
                    "A channel by name or number, or next (the default), previous, last");
    zap->add_option("--player", options.player, "Which one, by process number")
        ->check(CLI::PositiveNumber)
        ->type_name("PID");
    zap->add_option("--count", options.count,
                    "Change so often, three seconds after each picture, and show the median and "
                    "the worst")
        ->check(CLI::Range(1, 1000))
        ->type_name("N");
    zap->add_flag("--history", options.history, "Show the last changes, whoever asked for them")
        ->excludes("--player")
        ->excludes("--count");
    zap->add_option("-n", options.lines, "How many of them (default 20)")
        ->check(CLI::Range(1, 1000))
        ->type_name("N");
    zap->add_flag("--json", options.json, "Print JSON, one object a line");
    zap->footer(
        "The whole is the time from the command to the first picture on the screen. Its parts\n"
        "follow one another: to the tuned source (tune), to the streams of the service (tables),\n"
        "until its clock runs (pcr), to the first picture that stands by itself (idr), to the\n"
        "first sound (audio), and until both are due and shown (gate).");
    return zap;
}

CLI::App* addPlot(CLI::App& app, PlotOptions& options) {
    CLI::App* plot =
        app.add_subcommand("plot", "Draw what play --timing wrote: skew, waits, buffers, faults");
    plot->add_option("FILE", options.file, "What play --timing wrote, - for standard input")
        ->required();
    plot->add_option("-o,--out", options.out, "The picture (default timing.png)")
        ->check([](const std::string& path) {
            return orvplot::canPlotTo(path) ? std::string()
                                            : path + ": the name must end in .png or .svg";
        })
        ->type_name("FILE.png|.svg");
    return plot;
}

CLI::App* addCompletion(CLI::App& app, std::string& shell) {
    CLI::App* completion =
        app.add_subcommand("completion", "Print what makes a shell complete orvplay's commands");
    completion->add_option("bash|zsh|fish", shell, "Which shell")
        ->check(CLI::IsMember({"bash", "zsh", "fish"}))
        ->required();
    completion->footer(
        "For one session of bash or zsh: source <(orvplay completion bash). For fish:\n"
        "orvplay completion fish | source. An installed orvplay brings these along.");
    return completion;
}

}  // namespace

CommandTree::CommandTree() : mApp("OrvPlayer: ISDB-T / SBTVD digital television", "orvplay") {
    mApp.formatter(std::make_shared<orvmanual::HelpText>());
    mApp.set_version_flag("--version", "orvplay " ORV_VERSION);
    mApp.require_subcommand(1);
    mApp.footer(EXIT_CODES);
    add(addPlay(mApp, mPlay), [this] { return playCommand(mPlay); });
    add(addSnapshot(mApp, mSnapshot), [this] { return snapshotCommand(mSnapshot); });
    add(addProbe(mApp, mProbe), [this] { return probeCommand(mProbe); });
    add(addUnits(mApp, mUnits), [this] { return unitsCommand(mUnits); });
    add(addCaptions(mApp, mCaptions), [this] { return captionsCommand(mCaptions); });
    add(mRecord.addTo(mApp), [this] { return mRecord.run(); });
    add(addChannels(mApp, mChannels), [this] { return channelsCommand(mChannels); });
    add(addZap(mApp, mZap), [this] { return zapCommand(mZap); });
    add(addScan(mApp, mScan), [this] { return scanCommand(mScan); });
    add(addDoctor(mApp, mDoctorJson), [this] { return doctorCommand(mDoctorJson); });
    add(addStatus(mApp, mFleet), [this] { return statusCommand(mFleet); });
    add(addStats(mApp, mFleet), [this] { return statsCommand(mFleet); });
    add(addEvents(mApp, mFleet), [this] { return eventsCommand(mFleet); });
    add(addPlot(mApp, mPlot), [this] { return plotCommand(mPlot); });
    add(addCompletion(mApp, mShell), [this] { return printCompletion(); });
}

void CommandTree::add(CLI::App* command, std::function<int()> run) {
    mCommands.push_back({command, std::move(run)});
}

int CommandTree::printCompletion() const {
    const orvmanual::CommandText program = orvmanual::describe(mApp);
    std::cout << (mShell == "bash"  ? orvmanual::bashCompletion(program)
                  : mShell == "zsh" ? orvmanual::zshCompletion(program)
                                    : orvmanual::fishCompletion(program))
              << std::flush;
    return std::cout ? EXIT_OK : EXIT_FAILED;
}

int CommandTree::run(int argc, char** argv) {
    try {
        mApp.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return mApp.exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
    }
    for (const Command& command : mCommands) {
        if (command.node->parsed()) {
            return command.run();
        }
    }
    return EXIT_USAGE;
}

}  // namespace orvplay
