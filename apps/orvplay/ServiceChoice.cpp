#include "ServiceChoice.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "ExitCode.h"
#include "MonotonicTime.h"
#include "ServiceNames.h"
#include "TuneFailure.h"

namespace orvplay {

namespace {

constexpr int TABLES_TIMEOUT_MS = 3000;
constexpr int TABLES_STEP_MS = 50;

int fail(ExitCode code, const std::string& message) {
    fprintf(stderr, "orvplay: %s\n", message.c_str());
    return code;
}

// Picks the streams in the tables. Without tables the PIDs that the user gave must do.
int choose(const orvhost::ServiceList& list, const StreamOptions& options,
           StreamSelection* selection, std::string* error) {
    if (!list.result.ok() && list.services.empty() && !options.videoPid && !options.audioPid) {
        *error = list.result.message;
        return exitCodeOf(list.result.status);
    }
    if (!selectStreams(list.services, options, selection, error)) {
        return EXIT_NOT_FOUND;
    }
    if (selection->videoPid == 0 && selection->audioPid == 0) {
        *error = "neither picture nor sound to play in " + options.source +
                 "; try: orvplay probe " + options.source;
        return EXIT_NOT_FOUND;
    }
    return EXIT_OK;
}

bool isThere(const orvhost::ServiceList& list, const std::string& number) {
    return std::any_of(
        list.services.begin(), list.services.end(), [&number](const orvhost::Service& service) {
            return std::to_string(service.serviceId) == number && !service.streams.empty();
        });
}

// Names come seconds after the streams where a source is new. An answer before its time is the last
// word.
orvhost::ServiceList servicesWith(orvclient::Tuner& tuner, const std::string& number) {
    constexpr int64_t MS = 1'000'000;
    const int64_t endNs = monotonicNs() + TABLES_TIMEOUT_MS * MS;
    for (int waitMs = 0;; waitMs = TABLES_STEP_MS) {
        const int64_t beginNs = monotonicNs();
        orvhost::ServiceList list = namedServices(tuner, waitMs);
        const int64_t nowNs = monotonicNs();
        const bool isFinal = nowNs - beginNs < waitMs * MS;
        if (isThere(list, number) || isFinal || nowNs >= endNs) {
            return list;
        }
    }
}

}  // namespace

int findStreams(orvclient::Tuner& tuner, const StreamOptions& options, StreamSelection* selection) {
    std::string error;
    const int code = choose(namedServices(tuner, TABLES_TIMEOUT_MS), options, selection, &error);
    return code == EXIT_OK ? EXIT_OK : fail(static_cast<ExitCode>(code), error);
}

int findStreams(orvclient::Tuner& tuner, const StreamOptions& options, StreamSelection* selection,
                std::string* error) {
    return choose(servicesWith(tuner, options.service), options, selection, error);
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
