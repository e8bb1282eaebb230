#include "CaptionsCommand.h"

#include <algorithm>
#include <cstring>

#include "CaptionFile.h"
#include "ChannelSource.h"
#include "ExitCode.h"
#include "Interrupt.h"
#include "ServiceNames.h"
#include "StatusLine.h"
#include "StreamSelection.h"
#include "TuneFailure.h"
#include "TuneHere.h"
#include "UnitFlow.h"
#include "dtv/Tuner.h"

namespace orvplay {

namespace {

constexpr int TABLES_TIMEOUT_MS = 3000;

int fail(ExitCode code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

bool hasCaptions(const orvhost::Service& service) {
    return std::any_of(service.streams.begin(), service.streams.end(), orvhost::isCaptions);
}

// Of the service that was named, else of the first one that has captions.
int chooseCaptions(CaptionsOptions options, StreamSelection* selection) {
    const orvhost::ServiceList list = namedServices(orvhost::Tuner::instance(), TABLES_TIMEOUT_MS);
    if (list.services.empty() && !options.captionPid) {
        return fail(exitCodeOf(list.result.status), list.result.message);
    }
    const auto found = std::find_if(list.services.begin(), list.services.end(), hasCaptions);
    if (options.service.empty() && !options.captionPid && found != list.services.end()) {
        options.service = std::to_string(found->serviceId);
    }
    std::string error;
    if (!selectStreams(list.services, options, selection, &error)) {
        return fail(EXIT_NOT_FOUND, error);
    }
    if (selection->captionPid == 0) {
        return fail(EXIT_NOT_FOUND, "no captions in service " +
                                        std::to_string(selection->serviceId) + " of " +
                                        options.source + "; try: orvplay probe " + options.source);
    }
    // One other stream tells where the programme begins.
    if (selection->videoPid != 0) {
        selection->audioPid = 0;
    }
    return EXIT_OK;
}

int exitCodeOf(UnitFlow::End end, const UnitFlow& flow, const std::string& source) {
    switch (end) {
        case UnitFlow::End::INTERRUPTED:
            return EXIT_INTERRUPTED;
        case UnitFlow::End::SCRAMBLED:
            return fail(EXIT_PLAYBACK, "PID " + std::to_string(flow.scrambledPid()) +
                                           " is scrambled; choose a clear service (orvplay probe " +
                                           source + ")");
        case UnitFlow::End::NO_MEMORY:
            return fail(EXIT_FAILED, "the streams cannot be set up: out of memory");
        default:
            return EXIT_OK;
    }
}

int writeCaptions(const CaptionsOptions& options, const StreamSelection& selection) {
    CaptionFile file(*captionFormatNamed(options.format));
    const std::string out = options.out.empty() ? "-" : options.out;
    const std::string outName = out == "-" ? "standard output" : out;
    if (const int error = file.open(out); error != 0) {
        return fail(EXIT_FAILED, outName + ": cannot be written: " + strerror(error));
    }
    UnitFlow flow(
        selection, UnitFlow::Cut::CAPTIONS,
        [&file](const UnitFlow::Stream& stream, const Unit& unit) {
            if (stream.role == OrvPlayer::PID_TYPE_CLOSED_CAPTION) {
                file.add(unit.pts90k, {reinterpret_cast<const char*>(unit.bytes), unit.size});
            } else {
                file.setOrigin(unit.pts90k);
            }
            return file.error() == 0;
        });
    StatusLine status;
    const UnitFlow::End end = flow.run([&status] {
        const uint64_t bytes = orvhost::Tuner::instance().statistics().bytes;
        status.show("reading: " + std::to_string(bytes >> 20) + " MiB");
    });
    status.clear();
    if (const int error = file.finish(); error != 0 && error != EPIPE) {
        return fail(EXIT_FAILED, outName + ": cannot be written: " + strerror(error));
    }
    const int code = exitCodeOf(end, flow, options.source);
    if (code == EXIT_OK && file.count() == 0) {
        fprintf(stderr, "orvplay: %s: PID %u shows no captions\n", options.source.c_str(),
                selection.captionPid);
    }
    return code;
}

}  // namespace

int captionsCommand(const CaptionsOptions& given) {
    Interrupt::install();
    CaptionsOptions options = given;
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
    int code = chooseCaptions(options, &selection);
    if (code == EXIT_OK) {
        code = writeCaptions(options, selection);
    }
    tuner.untune();
    return code;
}

}  // namespace orvplay
