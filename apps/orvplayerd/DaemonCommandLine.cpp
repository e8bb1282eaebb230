#include "DaemonCommandLine.h"

#include "CommandText.h"

namespace orvplayerd {

namespace {

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

std::unique_ptr<CLI::App> commandLine(Options& options) {
    auto app = std::make_unique<CLI::App>(
        "OrvPlayer's service: plays television for the applications that drive it", "orvplayerd");
    app->formatter(std::make_shared<orvmanual::HelpText>());
    app->set_version_flag("--version", "orvplayerd " ORV_VERSION);
    app->footer(
        "SIGTERM and SIGINT end it; SIGUSR1 writes the player's state to standard error.\n"
        "Exit codes: 0 ended as asked, or by an internal fault; 1 failure, or the bus is gone;\n"
        "2 usage; 3 no bus, or another process is the service already.");
    addOptions(*app, options);
    return app;
}

}  // namespace orvplayerd
