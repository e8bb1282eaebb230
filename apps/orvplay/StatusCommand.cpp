#include <cstdio>

#include "ControlSocket.h"
#include "ExitCode.h"
#include "FleetCommand.h"
#include "PlayerChoice.h"
#include "StatusText.h"

namespace orvplay {

namespace {

int fail(int code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

}  // namespace

int statusCommand(const FleetOptions& options) {
    const PlayerChoice choice = choosePlayer(options.player, EXIT_NOT_FOUND);
    if (choice.pid == 0) {
        return fail(choice.code, choice.message);
    }
    nlohmann::json status;
    std::string error;
    if (const int code = askFor("status", choice.pid, &status, &error); code != EXIT_OK) {
        return fail(code, error);
    }
    const std::string text = options.json ? status.dump() + "\n" : statusText(status);
    return fputs(text.c_str(), stdout) >= 0 && fflush(stdout) == 0
               ? EXIT_OK
               : fail(EXIT_FAILED, "standard output cannot be written");
}

}  // namespace orvplay
