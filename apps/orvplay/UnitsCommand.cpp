#include "UnitsCommand.h"

#include "ChannelSource.h"
#include "ExitCode.h"
#include "Interrupt.h"
#include "ServiceNames.h"
#include "StreamSelection.h"
#include "TuneFailure.h"
#include "TuneHere.h"
#include "UnitsRun.h"
#include "dtv/Tuner.h"

namespace orvplay {

namespace {

constexpr int TABLES_TIMEOUT_MS = 3000;

int fail(ExitCode code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

// Leaves the streams that were asked for: those of one kind, or those whose PIDs were named.
void narrow(const UnitsOptions& options, StreamSelection* selection) {
    const bool named = options.videoPid || options.audioPid || options.captionPid;
    const auto leave = [&](const char* kind, const std::optional<uint16_t>& pid, uint16_t* chosen) {
        const bool otherKind = !options.stream.empty() && options.stream != kind;
        if (otherKind || (named && !pid.has_value())) {
            *chosen = 0;
        }
    };
    leave("video", options.videoPid, &selection->videoPid);
    leave("audio", options.audioPid, &selection->audioPid);
    leave("captions", options.captionPid, &selection->captionPid);
    // One file cannot hold two streams one after the other.
    const bool several =
        (selection->videoPid != 0) + (selection->audioPid != 0) + (selection->captionPid != 0) > 1;
    if (!options.out.empty() && several) {
        const bool picture = selection->videoPid != 0;
        fprintf(stderr, "orvplay: %s gets the %s; --stream chooses another\n", options.out.c_str(),
                picture ? "picture" : "sound");
        selection->audioPid = picture ? 0 : selection->audioPid;
        selection->captionPid = 0;
    }
}

int chooseStreams(const UnitsOptions& options, StreamSelection* selection) {
    const orvhost::ServiceList list = namedServices(orvhost::Tuner::instance(), TABLES_TIMEOUT_MS);
    const bool named = options.videoPid || options.audioPid || options.captionPid;
    if (list.services.empty() && !named) {
        return fail(exitCodeOf(list.result.status), list.result.message);
    }
    std::string error;
    if (!selectStreams(list.services, options, selection, &error)) {
        return fail(EXIT_NOT_FOUND, error);
    }
    narrow(options, selection);
    if (selection->videoPid == 0 && selection->audioPid == 0 && selection->captionPid == 0) {
        return fail(EXIT_NOT_FOUND, "no " + options.stream +
                                        " in the service; try: orvplay probe " + options.source);
    }
    return EXIT_OK;
}

}  // namespace

int unitsCommand(const UnitsOptions& given) {
    Interrupt::install();
    UnitsOptions options = given;
    if (const int resolved = resolveChannel(&options); resolved != EXIT_OK) {
        return resolved;
    }
    orvhost::Tuner& tuner = orvhost::Tuner::instance();
    orvhost::TuneOptions tuning;
    tuning.paced = false;
    tuning.follow = false;
    if (const orvhost::TuneResult tuned = tuneHere(options.source, tuning); !tuned.ok()) {
        return fail(exitCodeOf(tuned.status), tuned.message);
    }
    StreamSelection selection;
    int code = chooseStreams(options, &selection);
    if (code == EXIT_OK) {
        code = UnitsRun(options, selection).run();
    }
    tuner.untune();
    return code;
}

}  // namespace orvplay
