#include "SourceChoice.h"

#include "RecordingFailure.h"
#include "RecordingText.h"

namespace orvplay {

namespace {

int findRecording(PlayerSession& session, int number, Messages& messages, PlaySource* found) {
    orvhost::RecordingDetails details;
    const auto result = session.player().recordings().find(number, &details);
    if (!result.ok()) {
        return messages.fail(exitCodeOf(result.status), result.message);
    }
    *found = {SourceKind::RECORDING, details.path, titleOf(details), number, 0, details.positionMs};
    if (details.state != orvhost::RecordingState::Recording) {
        found->durationMs = details.durationMs;
    }
    return EXIT_OK;
}

}  // namespace

int findSource(PlayerSession& session, const std::string& source, Messages& messages,
               PlaySource* found) {
    const std::optional<int> number = recordingNumberOf(source);
    if (number == 0) {
        return messages.fail(EXIT_USAGE,
                             source + ": a recording has a number; see: orvplay record list");
    }
    if (number.has_value()) {
        return findRecording(session, *number, messages, found);
    }
    if (isMediaFile(source)) {
        *found = mediaSource(source);
    } else {
        found->path = source;
    }
    return EXIT_OK;
}

orvhost::TuneResult tuneTo(PlayerSession& session, const PlaySource& source, bool keepGaps) {
    orvhost::RecordingDetails details;
    orvhost::TuneOptions tuning;
    tuning.keepGaps = keepGaps;
    tuning.asLive = source.asLive;
    tuning.faults = source.faults;
    switch (source.kind) {
        case SourceKind::RECORDING:
            return session.player().tuneRecording(source.number, &details);
        case SourceKind::MEDIA:
            return {};
        default:
            return session.tuner().tune(source.path, tuning);
    }
}

}  // namespace orvplay
