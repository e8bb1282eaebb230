#include <malloc.h>
#include <CLI/CLI.hpp>
#include <memory>

#include "ConfigCheck.h"
#include "Daemon.h"
#include "DaemonCommandLine.h"
#include "DaemonOptions.h"

namespace {

using namespace orvplayerd;

// Heaps of the allocator. By default it makes one for each of dozens of threads, and what a
// playback leaves in them differs from one to the next.
constexpr int HEAPS = 2;

}  // namespace

int main(int argc, char** argv) {
    mallopt(M_ARENA_MAX, HEAPS);
    Options options;
    const std::unique_ptr<CLI::App> app = commandLine(options);
    try {
        app->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app->exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
    }
    return options.checkConfig ? checkConfig() : Daemon(options).run();
}
