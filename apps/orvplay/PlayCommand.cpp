#include "PlayCommand.h"

#include "AsLive.h"
#include "ChannelSource.h"
#include "ExitCode.h"
#include "Interrupt.h"
#include "Messages.h"
#include "PlayRun.h"
#include "TerminalLoader.h"
#include "WindowLoader.h"

namespace orvplay {

namespace {

// Where playback is to be seen: what is not asked for is the best that there is.
int choosePlace(PlayOptions* options) {
    if (options->terminal) {
        const std::string problem = terminalProblem();
        return problem.empty()
                   ? EXIT_OK
                   : Messages().fail(EXIT_USAGE, "--terminal: " + problem + "; use --headless");
    }
    if (!options->headless && !isDisplayAvailable()) {
        options->terminal = !options->json && isOnTerminal() && terminalProblem().empty();
        options->headless = !options->terminal;
    }
    return EXIT_OK;
}

}  // namespace

int playCommand(const PlayOptions& given) {
    PlayOptions options = given;
    int code = options.source.empty() ? resumeChannel(&options) : resolveChannel(&options);
    if (code == EXIT_OK) {
        Messages messages;
        code = readFaultScript(&options, messages);
    }
    if (code == EXIT_OK) {
        code = choosePlace(&options);
    }
    if (code != EXIT_OK) {
        return code;
    }
    options.silent = !options.audio;
    Interrupt::install();
    return PlayRun(options).run();
}

}  // namespace orvplay
