#include "PlayCommand.h"

#include "ExitCode.h"
#include "Interrupt.h"
#include "PlayRun.h"
#include "ServiceChoice.h"
#include "WindowLoader.h"
#include "audio/AudioOutput.h"
#include "dtv/Tuner.h"

namespace orvplay {

int playCommand(const PlayOptions& given) {
    PlayOptions options = given;
    options.headless = options.headless || !isDisplayAvailable();
    if (!options.audio) {
        orvhost::setAudioOutput(orvhost::AudioOutput::SILENT);
    }
    Interrupt::install();
    orvhost::TuneOptions tuning;
    tuning.keepGaps = options.keepGaps;
    StreamSelection selection;
    if (const int code = tuneTo(options, tuning, &selection); code != EXIT_OK) {
        return code;
    }
    const int code = PlayRun(options, selection).run();
    orvhost::Tuner::instance().untune();
    return code;
}

}  // namespace orvplay
