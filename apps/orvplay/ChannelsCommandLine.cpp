#include "CommandLine.h"

namespace orvplay {

namespace {

using Action = ChannelsOptions::Action;

void addFormat(CLI::App* command, std::string& format) {
    command
        ->add_option("--format", format,
                     "dvbv5 (as dvbv5-scan writes it), or m3u; by the file's name where not given")
        ->check(CLI::IsMember({"dvbv5", "m3u"}))
        ->type_name("dvbv5|m3u");
}

void addJson(CLI::App* command, bool& json) {
    command->add_flag("--json", json, "Print JSON, one object a line");
}

}  // namespace

CLI::App* addChannels(CLI::App& app, ChannelsOptions& options) {
    CLI::App* channels =
        app.add_subcommand("channels", "Look after the channels that play by name or number");
    channels->require_subcommand(1);
    channels->footer(
        "They stand in $XDG_CONFIG_HOME/orvplayer: channels.conf, as dvbv5-scan writes it, for\n"
        "what an adapter receives, and channels.m3u, a play list, for the rest.");
    const auto add = [&](const char* name, const char* what, Action action) {
        CLI::App* command = channels->add_subcommand(name, what);
        command->callback([&options, action] { options.action = action; });
        return command;
    };
    addJson(add("list", "List the channels", Action::LIST), options.json);
    CLI::App* search = add("search", "List the channels of a name or number", Action::SEARCH);
    search
        ->add_option("TEXT", options.text,
                     "Words of the name, whatever their case and accents, or how the number begins")
        ->required();
    addJson(search, options.json);
    CLI::App* import = add("import", "Add the channels of a file", Action::IMPORT);
    import->add_option("FILE", options.file, "The file")->required();
    addFormat(import, options.format);
    CLI::App* exported = add("export", "Write the channels as a file", Action::EXPORT);
    exported->add_option("FILE", options.file, "Where to (standard output)");
    addFormat(exported, options.format);
    return channels;
}

CLI::App* addScan(CLI::App& app, ScanOptions& options) {
    CLI::App* scan =
        app.add_subcommand("scan", "Find the channels of a source, and add them to the list");
    scan->add_option("SOURCE", options.source,
                     "A transport stream file, udp://... or rtp://... (a DVB adapter)");
    scan->add_option("--region", options.region,
                     "Whose channels the adapter is tuned to: Brazil (the default) or Japan")
        ->check(CLI::IsMember({"br", "jp"}))
        ->type_name("br|jp");
    constexpr int MOST_ADAPTERS = 63;
    scan->add_option("--adapter", options.adapter, "Which DVB adapter (0)")
        ->check(CLI::Range(0, MOST_ADAPTERS))
        ->type_name("N");
    constexpr double LONGEST_S = 30.0;
    scan->add_option("--timeout", options.timeoutS,
                     "Seconds to wait for packets, on each channel of an adapter (3)")
        ->check(CLI::Range(0.01, LONGEST_S))
        ->type_name("SECONDS");
    scan->add_flag("!--no-add", options.keep, "Print them only");
    addJson(scan, options.json);
    return scan;
}

}  // namespace orvplay
