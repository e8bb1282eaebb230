#include "CommandLine.h"

namespace orvplay {

namespace {

CLI::App* add(CLI::App& app, const char* name, const char* what, FleetOptions& options) {
    CLI::App* command = app.add_subcommand(name, what);
    command->add_option("--player", options.player, "Which one, by process number")
        ->check(CLI::PositiveNumber)
        ->type_name("PID");
    return command;
}

}  // namespace

CLI::App* addStatus(CLI::App& app, FleetOptions& options) {
    CLI::App* status = add(app, "status", "Tell what a running \"orvplay play\" plays", options);
    status->add_flag("--json", options.json, "Print JSON, one object");
    return status;
}

CLI::App* addStats(CLI::App& app, FleetOptions& options) {
    CLI::App* stats = add(app, "stats", "Print the figures of running players", options);
    CLI::Option* json =
        stats->add_flag("--json", options.json, "Print JSON, one object a line for each player");
    stats
        ->add_flag("--openmetrics", options.openMetrics,
                   "Print OpenMetrics text, every player by its label \"pid\"")
        ->excludes(json);
    return stats;
}

CLI::App* addEvents(CLI::App& app, FleetOptions& options) {
    CLI::App* events =
        add(app, "events", "Print the events of a running \"orvplay play\" until it ends", options);
    events->footer(
        "One JSON object a line, as play --json prints them. Who reads too slowly loses lines and\n"
        "is told how many: {\"event\":\"missed\",\"count\":N}.");
    return events;
}

}  // namespace orvplay
