#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "ExitCode.h"

namespace orvplay {

// Which of the players of this user a command is about.
struct PlayerChoice {
    int pid = 0;  // 0: none, and this is why, in one line
    ExitCode code = EXIT_OK;
    std::string message;
};

// The one with this process number; 0: the only one that runs. What is to be said, besides that
// nothing plays, where none does.
PlayerChoice choosePlayer(int wanted, ExitCode ifNone, const std::string& adviceIfNone = "");

// Asks a player for what it has under this name, which is both the request and where the answer
// holds it. EXIT_OK, or the exit code, and one line in *error.
int askFor(const std::string& what, int pid, nlohmann::json* told, std::string* error);

}  // namespace orvplay
