#include <CLI/CLI.hpp>
#include <cstdlib>
#include <string>

#include "ExitCode.h"
#include "PlayCommand.h"
#include "ProbeCommand.h"
#include "UnitsCommand.h"

namespace {

using namespace orvplay;

constexpr char EXIT_CODES[] =
    "Exit codes: 0 ok, 1 failure, 2 usage, 4 source cannot be opened, 5 no signal or no data,\n"
    "6 playback error, 8 service or PID not found, 130 interrupted.";

void addPid(CLI::App* command, const std::string& name, std::optional<uint16_t>& pid,
            const std::string& what) {
    command->add_option(name, pid, "PID of the " + what + " (0: none)")
        ->check(CLI::Range(0, 0x1FFF))
        ->type_name("PID");
}

void addStreams(CLI::App* command, StreamOptions& options) {
    command->add_option("--service", options.service, "Service to take, by name or number");
    addPid(command, "--video-pid", options.videoPid, "picture");
    addPid(command, "--audio-pid", options.audioPid, "sound");
}

void addPlay(CLI::App& app, PlayOptions& options) {
    CLI::App* play = app.add_subcommand("play", "Play a transport stream as live television");
    play->add_option("SOURCE", options.source, "A transport stream file, or - for standard input")
        ->required();
    addStreams(play, options);
    addPid(play, "--caption-pid", options.captionPid, "captions");
    addPid(play, "--pcr-pid", options.pcrPid, "clock");
    play->add_flag("--headless", options.headless,
                   "Open no window (the default without a display)");
    play->add_flag("!--no-audio", options.audio, "Play no sound");
    play->add_option("--duration", options.durationS, "Seconds to play, from the first picture")
        ->check(CLI::PositiveNumber)
        ->type_name("SECONDS");
    play->add_option("--snapshot", options.snapshot, "Save the last picture shown")
        ->type_name("FILE.png");
    play->add_flag("--json", options.json, "Print events and the summary as JSON, one a line");
    play->footer("Keys in the window: q or Escape quits, f toggles full screen.");
}

void addProbe(CLI::App& app, ProbeOptions& options) {
    CLI::App* probe = app.add_subcommand("probe", "Show what is in a transport stream");
    probe->add_option("SOURCE", options.source, "A transport stream file, or - for standard input")
        ->required();
    probe
        ->add_option("--duration", options.durationS,
                     "Seconds to read from standard input (a file is read to its end)")
        ->check(CLI::PositiveNumber)
        ->type_name("SECONDS");
    probe->add_flag("--json", options.json, "Print JSON, one object a line");
}

void addUnits(CLI::App& app, UnitsOptions& options) {
    CLI::App* units = app.add_subcommand(
        "units", "Print every access unit that the player cuts out of a stream, as JSON");
    units->add_option("SOURCE", options.source, "A transport stream file, or - for standard input")
        ->required();
    addStreams(units, options);
    units->add_option("--stream", options.stream, "Only the picture or only the sound")
        ->check(CLI::IsMember({"video", "audio"}))
        ->type_name("video|audio");
    units
        ->add_option("--stage", options.stage,
                     "What to print: access units (the default) or PES packets")
        ->check(CLI::IsMember({"units", "pes"}))
        ->type_name("units|pes");
    units->add_option("--out", options.out, "Write the bytes of the units there, one after another")
        ->type_name("FILE");
    units->add_flag("--quiet", options.quiet, "Print the summary alone");
    units->footer(
        "Nothing is lost and nothing waits for a clock. With --video-pid or --audio-pid only the\n"
        "streams named are taken. The last PES packet of a stream is never complete.");
}

}  // namespace

int main(int argc, char** argv) {
    // The program's own messages say what matters to its user: of the trace, errors are enough.
    setenv("ORV_TRACE", "error", 0);
    CLI::App app("OrvPlayer: ISDB-T / SBTVD digital television", "orvplay");
    app.set_version_flag("--version", "orvplay " ORV_VERSION);
    app.require_subcommand(1);
    app.footer(EXIT_CODES);
    PlayOptions play;
    ProbeOptions probe;
    UnitsOptions units;
    addPlay(app, play);
    addProbe(app, probe);
    addUnits(app, units);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
    }
    if (app.got_subcommand("units")) {
        return unitsCommand(units);
    }
    return app.got_subcommand("play") ? playCommand(play) : probeCommand(probe);
}
