#pragma once

#include "ExitCode.h"
#include "recording/RecordingDetails.h"

namespace orvplay {

// What the program ends with when the recordings' service cannot do something.
inline ExitCode exitCodeOf(orvhost::RecordingStatus status) {
    using orvhost::RecordingStatus;
    switch (status) {
        case RecordingStatus::Ok:
            return EXIT_OK;
        case RecordingStatus::NoSuchRecording:
        case RecordingStatus::NoSuchStorage:
            return EXIT_NOT_FOUND;
        case RecordingStatus::BadFile:
            return EXIT_SOURCE;
        case RecordingStatus::NoFolder:
        case RecordingStatus::ReadOnly:
        case RecordingStatus::NoSpace:
        case RecordingStatus::StorageError:
            return EXIT_RECORDING;
        case RecordingStatus::Cancelled:
            return EXIT_INTERRUPTED;
        case RecordingStatus::ServiceLost:
            return EXIT_SERVICE;
        default:
            return EXIT_FAILED;
    }
}

}  // namespace orvplay
