// Writes manual pages and completion of the programs into a folder, as they are installed:
//
//   FOLDER/man/man1/orvplay.1                FOLDER/bash-completion/completions/orvplay
//   FOLDER/man/man8/orvplayerd.8             FOLDER/zsh/vendor-completions/_orvplay
//                                            FOLDER/fish/vendor_completions.d/orvplay.fish

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "CommandTree.h"
#include "Completion.h"
#include "DaemonCommandLine.h"
#include "ManualPage.h"

namespace {

using namespace orvmanual;
namespace fs = std::filesystem;

const ManualSection VARIABLES{
    "ENVIRONMENT",
    {{"ORV_TRACE", "What is traced: off, error, warning, info or entry."},
     {"ORV_TRACE_FILE", "The file that the trace goes to instead of standard error."},
     {"ORV_AUDIO",
      "The sound output: auto, pulse (PulseAudio or PipeWire), or silent, which keeps the time."},
     {"NO_COLOR", "When it is set, no colours and no status line."}}};

const ManualSection PLAYER_FILES{
    "FILES",
    {{"$XDG_DATA_HOME/orvplayer/recordings", "Recordings; ~/.local/share without the variable."},
     {"$XDG_RUNTIME_DIR/orvplay/PID.sock", "Where each player that runs takes requests."}}};

const ManualSection DAEMON_FILES{
    "FILES",
    {{"/etc/orvplayer/permissions.conf",
      "Who besides the service's own user may do what; ORV_PERMISSIONS names another file."}}};

bool write(const fs::path& path, const std::string& text) {
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    std::ofstream file(path, std::ios::trunc);
    file << text << std::flush;
    if (!file) {
        std::cerr << "orvmanual: " << path.string() << ": " << std::strerror(errno) << '\n';
    }
    return static_cast<bool>(file);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "Usage: orvmanual FOLDER\n";
        return 2;
    }
    const fs::path folder = argv[1];
    const orvplay::CommandTree tree;
    const CommandText player = describe(tree.root());
    orvplayerd::Options options;
    const CommandText daemon = describe(*orvplayerd::commandLine(options));
    const ManualPage playerPage{1, ORV_VERSION, {VARIABLES, PLAYER_FILES}, {"orvplayerd(8)"}};
    const ManualPage daemonPage{8, ORV_VERSION, {VARIABLES, DAEMON_FILES}, {"orvplay(1)"}};
    const bool written =
        write(folder / "man/man1/orvplay.1", manualPage(player, playerPage)) &&
        write(folder / "man/man8/orvplayerd.8", manualPage(daemon, daemonPage)) &&
        write(folder / "bash-completion/completions/orvplay", bashCompletion(player)) &&
        write(folder / "zsh/vendor-completions/_orvplay", zshCompletion(player)) &&
        write(folder / "fish/vendor_completions.d/orvplay.fish", fishCompletion(player));
    return written ? 0 : 1;
}
