#include <cstdio>
#include <utility>
#include <vector>

#include "ControlSocket.h"
#include "ExitCode.h"
#include "FigureTable.h"
#include "FleetCommand.h"
#include "PlayerChoice.h"

namespace orvplay {

namespace {

int fail(int code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

// Of each player with figures to tell; one that ends meanwhile has none. EXIT_OK, or what was
// said to be wrong.
int collect(const std::vector<int>& players, std::vector<Figures>* figures) {
    int code = EXIT_OK;
    for (const int pid : players) {
        Figures told;
        std::string error;
        if (const int failed = askFor("stats", pid, &told, &error); failed != EXIT_OK) {
            code = fail(failed, error);
        } else {
            figures->push_back(std::move(told));
        }
    }
    return figures->empty() ? code : EXIT_OK;
}

}  // namespace

int statsCommand(const FleetOptions& options) {
    std::string error;
    std::vector<int> players = runningPlayers(&error);
    if (options.player != 0 || players.empty()) {
        const PlayerChoice choice = choosePlayer(options.player, EXIT_NOT_FOUND);
        if (choice.pid == 0) {
            return fail(choice.code, choice.message);
        }
        players = {choice.pid};
    }
    std::vector<Figures> figures;
    if (const int code = collect(players, &figures); code != EXIT_OK) {
        return code;
    }
    std::string text = options.openMetrics ? figuresOpenMetrics(figures) : "";
    for (size_t i = 0; i < figures.size() && !options.openMetrics; ++i) {
        if (options.json) {
            text += figures[i].dump() + "\n";
            continue;
        }
        text += (i > 0 ? "\n" : "") + ("Player " + figures[i].value("pid", Figures()).dump()) +
                "\n" + figuresText(figures[i]);
    }
    return fputs(text.c_str(), stdout) >= 0 && fflush(stdout) == 0
               ? EXIT_OK
               : fail(EXIT_FAILED, "standard output cannot be written");
}

}  // namespace orvplay
