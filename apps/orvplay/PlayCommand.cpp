#include "PlayCommand.h"

#include "Interrupt.h"
#include "PlayRun.h"
#include "WindowLoader.h"

namespace orvplay {

int playCommand(const PlayOptions& given) {
    PlayOptions options = given;
    options.headless = options.headless || !isDisplayAvailable();
    options.silent = !options.audio;
    Interrupt::install();
    return PlayRun(options).run();
}

}  // namespace orvplay
