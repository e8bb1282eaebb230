#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ControlSocket.h"
#include "ExitCode.h"
#include "FleetCommand.h"
#include "Interrupt.h"
#include "PlayerChoice.h"

namespace orvplay {

namespace {

int fail(int code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

}  // namespace

int eventsCommand(const FleetOptions& options) {
    constexpr int LOOK_MS = 200;
    const PlayerChoice choice = choosePlayer(options.player, EXIT_NOT_FOUND);
    if (choice.pid == 0) {
        return fail(choice.code, choice.message);
    }
    Interrupt::install();
    PlayerLines lines;
    nlohmann::json answer;
    std::string error;
    if (!lines.ask(choice.pid, {{"command", "events"}}, &answer, &error)) {
        return Interrupt::requested() ? EXIT_INTERRUPTED : fail(EXIT_SERVICE, error);
    }
    if (!answer.value("ok", false)) {
        return fail(answer.value("code", static_cast<int>(EXIT_FAILED)),
                    answer.value("message", "the player did not tell"));
    }
    std::string line;
    while (!Interrupt::requested()) {
        const PlayerLines::Got got = lines.next(&line, LOOK_MS);
        if (got == PlayerLines::Got::END) {
            return EXIT_OK;
        }
        if (got == PlayerLines::Got::LINE && (puts(line.c_str()) == EOF || fflush(stdout) != 0)) {
            return errno == EPIPE
                       ? EXIT_OK  // whoever read them has seen enough
                       : fail(EXIT_FAILED,
                              std::string("standard output cannot be written: ") + strerror(errno));
        }
    }
    return EXIT_INTERRUPTED;
}

}  // namespace orvplay
