#pragma once

#include <CLI/CLI.hpp>
#include <memory>

#include "DaemonOptions.h"

namespace orvplayerd {

// The command line of orvplayerd, which writes into `options` when it is parsed.
std::unique_ptr<CLI::App> commandLine(Options& options);

}  // namespace orvplayerd
