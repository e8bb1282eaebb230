#include <malloc.h>
#include <CLI/CLI.hpp>

#include "ConfigCheck.h"
#include "Daemon.h"
#include "Options.h"

namespace {

using namespace orvplayerd;

// Heaps of the allocator. By default it makes one for each of dozens of threads, and what a
// playback leaves in them differs from one to the next.
constexpr int HEAPS = 2;

void addOptions(CLI::App& app, Options& options) {
    auto* where = app.add_option_group("where", "Where applications reach the player (one of)");
    where->add_option("--peer-fd", options.peerFd, "On this connected socket, for one application")
        ->check(CLI::Range(3, 1 << 20))
        ->type_name("FD");
    where->add_flag("--session", options.session, "On the bus of the user's session");
    where->add_flag("--system", options.system, "On the system's bus");
    where->add_option("--bus-address", options.busAddress, "On the bus with this D-Bus address")
        ->type_name("ADDRESS");
    where->add_flag("--check-config", options.checkConfig,
                    "Nowhere: check the environment and the permissions file, and end");
    where->require_option(1);
}

}  // namespace

int main(int argc, char** argv) {
    mallopt(M_ARENA_MAX, HEAPS);
    CLI::App app("OrvPlayer's service: plays television for the applications that drive it",
                 "orvplayerd");
    app.set_version_flag("--version", "orvplayerd " ORV_VERSION);
    app.footer(
        "SIGTERM and SIGINT end it; SIGUSR1 writes the player's state to standard error.\n"
        "Exit codes: 0 ended as asked, or by an internal fault; 1 failure, or the bus is gone;\n"
        "2 usage; 3 no bus, or another process is the service already.");
    Options options;
    addOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
    }
    return options.checkConfig ? checkConfig() : Daemon(options).run();
}
