#include "PlayCommand.h"

#include "ChannelSource.h"
#include "ExitCode.h"
#include "Interrupt.h"
#include "PlayRun.h"
#include "WindowLoader.h"

namespace orvplay {

int playCommand(const PlayOptions& given) {
    PlayOptions options = given;
    if (const int code = resolveChannel(&options); code != EXIT_OK) {
        return code;
    }
    options.headless = options.headless || !isDisplayAvailable();
    options.silent = !options.audio;
    Interrupt::install();
    return PlayRun(options).run();
}

}  // namespace orvplay
