#include <cstdio>

#include "ControlSocket.h"
#include "ExitCode.h"
#include "RecordCommand.h"

namespace orvplay {

namespace {

using nlohmann::json;

int fail(int code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

// The player that is meant: the only one, unless it was named. 0 after one line on why there is
// none; *code is the exit code then.
int choosePlayer(int wanted, int* code) {
    std::string error;
    const std::vector<int> players = runningPlayers(&error);
    std::string list;
    for (const int player : players) {
        if (player == wanted) {
            return player;
        }
        list += (list.empty() ? "" : ", ") + std::to_string(player);
    }
    if (players.size() == 1 && wanted == 0) {
        return players.front();
    }
    if (wanted != 0) {
        *code = fail(EXIT_NOT_FOUND, "no player with process number " + std::to_string(wanted) +
                                         "; there are: " + (list.empty() ? "none" : list));
    } else if (players.empty()) {
        *code = fail(EXIT_SERVICE, !error.empty() ? error
                                                  : "nothing plays; begin with: orvplay play "
                                                    "SOURCE, or record without watching: orvplay "
                                                    "record SOURCE");
    } else {
        *code = fail(EXIT_USAGE, "several players run (" + list + "); choose one with --player");
    }
    return 0;
}

json requestOf(const RecordSwitchOptions& options) {
    if (!options.start) {
        return {{"command", "record.stop"}, {"keep", !options.discard}};
    }
    json request = {{"command", "record.start"}, {"name", options.name}};
    if (options.storage.has_value()) {
        request["storage"] = *options.storage;
    }
    return request;
}

}  // namespace

int recordSwitchCommand(const RecordSwitchOptions& options) {
    int code = EXIT_OK;
    const int player = choosePlayer(options.player, &code);
    if (player == 0) {
        return code;
    }
    json answer;
    std::string error;
    if (!askPlayer(player, requestOf(options), &answer, &error)) {
        return fail(EXIT_SERVICE, error);
    }
    if (!answer.value("ok", false)) {
        return fail(answer.value("code", static_cast<int>(EXIT_FAILED)),
                    answer.value("message", "the player did not do it"));
    }
    printf("%d\n", answer.value("number", 0));
    return EXIT_OK;
}

}  // namespace orvplay
