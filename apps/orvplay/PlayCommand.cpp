#include "PlayCommand.h"

#include <cstdio>

#include "ExitCode.h"
#include "Interrupt.h"
#include "PlayRun.h"
#include "StreamSelection.h"
#include "TuneFailure.h"
#include "WindowLoader.h"
#include "audio/AudioOutput.h"
#include "dtv/Tuner.h"

namespace orvplay {

namespace {

constexpr int TABLES_TIMEOUT_MS = 3000;

int fail(ExitCode code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

// Finds the streams in the tables. Without tables the PIDs that the user gave must do.
int findStreams(const PlayOptions& options, StreamSelection* selection) {
    const orvhost::ServiceList list = orvhost::Tuner::instance().services(TABLES_TIMEOUT_MS);
    if (!list.result.ok() && list.services.empty() && !options.videoPid && !options.audioPid) {
        return fail(exitCodeOf(list.result.status), list.result.message);
    }
    std::string error;
    if (!selectStreams(list.services, options, selection, &error)) {
        return fail(EXIT_NOT_FOUND, error);
    }
    if (selection->videoPid == 0 && selection->audioPid == 0) {
        return fail(EXIT_NOT_FOUND, "neither picture nor sound to play in " + options.source +
                                        "; try: orvplay probe " + options.source);
    }
    return EXIT_OK;
}

}  // namespace

int playCommand(const PlayOptions& given) {
    PlayOptions options = given;
    options.headless = options.headless || !isDisplayAvailable();
    if (!options.audio) {
        orvhost::setAudioOutput(orvhost::AudioOutput::SILENT);
    }
    Interrupt::install();
    orvhost::Tuner& tuner = orvhost::Tuner::instance();
    orvhost::TuneOptions tuning;
    tuning.keepGaps = options.keepGaps;
    if (const orvhost::TuneResult tuned = tuner.tune(options.source, tuning); !tuned.ok()) {
        return fail(exitCodeOf(tuned.status), tuned.message);
    }
    StreamSelection selection;
    if (const int code = findStreams(options, &selection); code != EXIT_OK) {
        tuner.untune();
        return code;
    }
    const int code = PlayRun(options, selection).run();
    tuner.untune();
    return code;
}

}  // namespace orvplay
