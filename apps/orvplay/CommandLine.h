#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "Options.h"

namespace orvplay {

// Parts that several commands of the command line have.

void addPid(CLI::App* command, const std::string& name, std::optional<uint16_t>& pid,
            const std::string& what);
void addStreams(CLI::App* command, StreamOptions& options);
void addService(CLI::App* command, ServiceOptions& options);
CLI::Option* addSource(CLI::App* command, std::string& source);
void addStorage(CLI::App* command, int& storage);
void addStorage(CLI::App* command, std::optional<int>& storage);
// What the recorder does not take as a name: one line, empty for what it does.
std::string checkLabel(const std::string& name);
// Of `play` but for what is played.
void addPlayback(CLI::App* command, PlayOptions& options);

}  // namespace orvplay
