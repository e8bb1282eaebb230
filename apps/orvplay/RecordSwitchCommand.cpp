#include <cstdio>

#include "ControlSocket.h"
#include "ExitCode.h"
#include "PlayerChoice.h"
#include "RecordCommand.h"

namespace orvplay {

namespace {

using nlohmann::json;

int fail(int code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
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
    const PlayerChoice choice = choosePlayer(options.player, EXIT_SERVICE,
                                             ", or record without watching: orvplay record SOURCE");
    if (choice.pid == 0) {
        return fail(choice.code, choice.message);
    }
    json answer;
    std::string error;
    if (!askPlayer(choice.pid, requestOf(options), &answer, &error)) {
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
