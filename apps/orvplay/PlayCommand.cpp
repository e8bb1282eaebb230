#include "PlayCommand.h"

#include "ChannelSource.h"
#include "ExitCode.h"
#include "Interrupt.h"
#include "PlayRun.h"
#include "WindowLoader.h"

namespace orvplay {

int playCommand(const PlayOptions& given) {
    PlayOptions options = given;
    const int code = options.source.empty() ? resumeChannel(&options) : resolveChannel(&options);
    if (code != EXIT_OK) {
        return code;
    }
    options.headless = options.headless || !isDisplayAvailable();
    options.silent = !options.audio;
    Interrupt::install();
    return PlayRun(options).run();
}

}  // namespace orvplay
