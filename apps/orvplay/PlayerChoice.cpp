#include "PlayerChoice.h"

#include <algorithm>
#include <vector>

#include "ControlSocket.h"

namespace orvplay {

PlayerChoice choosePlayer(int wanted, ExitCode ifNone, const std::string& adviceIfNone) {
    std::string error;
    const std::vector<int> players = runningPlayers(&error);
    if (std::find(players.begin(), players.end(), wanted) != players.end()) {
        return {wanted, EXIT_OK, ""};
    }
    std::string list;
    for (const int player : players) {
        list += (list.empty() ? "" : ", ") + std::to_string(player);
    }
    if (wanted != 0) {
        return {0, EXIT_NOT_FOUND,
                "no player with process number " + std::to_string(wanted) +
                    "; there are: " + (list.empty() ? "none" : list)};
    }
    if (players.size() > 1) {
        return {0, EXIT_USAGE, "several players run (" + list + "); choose one with --player"};
    }
    if (players.empty()) {
        return {0, ifNone,
                !error.empty() ? error
                               : "nothing plays; begin with: orvplay play SOURCE" + adviceIfNone};
    }
    return {players.front(), EXIT_OK, ""};
}

int askFor(const std::string& what, int pid, nlohmann::json* told, std::string* error) {
    nlohmann::json answer;
    if (!askPlayer(pid, {{"command", what}}, &answer, error)) {
        return EXIT_SERVICE;
    }
    if (!answer.value("ok", false) || !answer.contains(what) || !answer[what].is_object()) {
        *error = answer.value("message", "the player does not tell its " + what);
        return answer.value("code", static_cast<int>(EXIT_FAILED));
    }
    *told = answer[what];
    return EXIT_OK;
}

}  // namespace orvplay
