#pragma once

#include "Options.h"

namespace orvplay {

// `orvplay status`: what a player that runs plays. The exit code, as of the others.
int statusCommand(const FleetOptions& options);

// `orvplay stats`: the figures of players that run.
int statsCommand(const FleetOptions& options);

// `orvplay events`: the events of a player that runs, as `play --json` prints them, until it ends.
int eventsCommand(const FleetOptions& options);

}  // namespace orvplay
