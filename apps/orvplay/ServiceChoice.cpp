#include "ServiceChoice.h"

#include <cstdio>

#include "ExitCode.h"
#include "ServiceNames.h"
#include "TuneFailure.h"

namespace orvplay {

namespace {

constexpr int TABLES_TIMEOUT_MS = 3000;

int fail(ExitCode code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

}  // namespace

// Finds the streams in the tables. Without tables the PIDs that the user gave must do.
int findStreams(orvclient::Tuner& tuner, const StreamOptions& options, StreamSelection* selection) {
    const orvhost::ServiceList list = namedServices(tuner, TABLES_TIMEOUT_MS);
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

int tuneTo(orvclient::Tuner& tuner, const StreamOptions& options,
           const orvhost::TuneOptions& tuning, StreamSelection* selection) {
    if (const orvhost::TuneResult tuned = tuner.tune(options.source, tuning); !tuned.ok()) {
        return fail(exitCodeOf(tuned.status), tuned.message);
    }
    const int code = findStreams(tuner, options, selection);
    if (code != EXIT_OK) {
        tuner.untune();
    }
    return code;
}

}  // namespace orvplay
