#include "CommandLine.h"

#include "CaptionFile.h"

namespace orvplay {

// As the recorder takes names.
std::string checkLabel(const std::string& name) {
    return name.find_first_of(";#") == std::string::npos
               ? std::string()
               : "\"" + name + "\": a name may hold neither ';' nor '#'";
}

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
    addPid(command, "--caption-pid", options.captionPid, "captions");
    addAdapter(command, options);
}

void addAdapter(CLI::App* command, StreamOptions& options) {
    constexpr int MOST_ADAPTERS = 63;
    command->add_option("--adapter", options.adapter, "Which DVB adapter receives the channel (0)")
        ->check(CLI::Range(0, MOST_ADAPTERS))
        ->type_name("N");
}

void addService(CLI::App* command, ServiceOptions& options) {
    command
        ->add_flag("--connect{session}", options.connect,
                   "Use a player service that runs already, on the session bus or the system bus. "
                   "It serves one application, the one that connected last")
        ->check([](const std::string& bus) {
            return bus == "session" || bus == "system"
                       ? std::string()
                       : "--connect: no bus \"" + bus + "\": session or system";
        })
        ->type_name("[=session|system]");
}

CLI::Option* addSource(CLI::App* command, std::string& source) {
    return command->add_option("SOURCE", source,
                               "A channel by name or number, a transport stream file, - for "
                               "standard input, "
                               "udp://[INTERFACE@]ADDRESS:PORT or rtp://...");
}

template <typename Number>
void addStorageTo(CLI::App* command, Number& storage) {
    constexpr int MOST = 15;
    command->add_option("--storage", storage, "Where the recording goes, by number (0)")
        ->check(CLI::Range(0, MOST))
        ->type_name("N");
}

void addStorage(CLI::App* command, int& storage) {
    addStorageTo(command, storage);
}

void addStorage(CLI::App* command, std::optional<int>& storage) {
    addStorageTo(command, storage);
}

void addPlayback(CLI::App* command, PlayOptions& options) {
    addService(command, options);
    command
        ->add_flag("--restart", options.restart,
                   "Start a player service of our own again when it ends by itself")
        ->excludes("--connect");
    command->add_flag("--headless", options.headless,
                      "Open no window (the default without a display and a terminal)");
    command
        ->add_flag("--terminal", options.terminal,
                   "Show on the terminal what plays, without its pictures (the default on a "
                   "terminal without a display)")
        ->excludes("--headless");
    command->add_flag("!--no-audio", options.audio, "Play no sound");
    command->add_option("--duration", options.durationS, "Seconds to play, from the first picture")
        ->check(CLI::PositiveNumber)
        ->type_name("SECONDS");
    command
        ->add_option("--snapshot", options.snapshot,
                     "Save a still of the screen at the end (never over another file)")
        ->type_name("FILE.png");
    command
        ->add_option("--captions-out", options.captionsOut,
                     "Write the captions there as they come; times count from the first picture")
        ->check([](const std::string& path) {
            return captionFormatOf(path).has_value()
                       ? std::string()
                       : path + ": the name must end in .srt, .vtt, .txt or .jsonl";
        })
        ->type_name("FILE.srt|.vtt");
    command->add_flag("--keep-gaps", options.keepGaps,
                      "Stay silent where 0.5 to 60 s of the source are missing, as it was on air");
    command->add_flag("--resume", options.resume,
                      "Go on where playback of the recording stopped last time");
    command->add_flag("--json", options.json, "Print events and the summary as JSON, one a line")
        ->excludes("--terminal");
    command
        ->add_flag("--record{-}", options.record,
                   "Record what plays, under the name of its channel and this one")
        ->check(checkLabel)
        ->type_name("[=NAME]");
    addStorage(command, options.storage);
    command
        ->add_option("--on-signal-lost", options.onSignalLost,
                     "Run this command by /bin/sh when there is no signal, with ORV_EVENT, "
                     "ORV_CHANNEL, ORV_SERVICE, ORV_SOURCE and ORV_PLAYER_PID in its environment")
        ->type_name("COMMAND");
    command
        ->add_option("--on-signal-back", options.onSignalBack, "The same when there is one again")
        ->type_name("COMMAND");
    command
        ->add_option("--timing", options.timing,
                     "Write there how each frame, block of sound and caption is timed, how full "
                     "the buffers are, and faults, as JSON, one object a line; see orvplay plot")
        ->type_name("FILE.jsonl");
    command->footer(
        "Keys in the window: q or Escape quits, f toggles full screen, # changes to the next\n"
        "sound, v shows the captions, the next ones, or none, space pauses, r records. In a\n"
        "recording or a media file the arrow keys left and right go 5 seconds back and forward,\n"
        "down and up a minute. The terminal has the same keys; there ? lists them all. SIGUSR1 "
        "writes the player's state to standard error.");
}

}  // namespace orvplay
