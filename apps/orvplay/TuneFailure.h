#pragma once

#include <dtv/TunerTypes.h>

#include "ExitCode.h"

namespace orvplay {

// What the program ends with when the tuner cannot deliver.
inline ExitCode exitCodeOf(orvhost::TuneStatus status) {
    switch (status) {
        case orvhost::TuneStatus::Ok:
            return EXIT_OK;
        case orvhost::TuneStatus::NoSuchFile:
        case orvhost::TuneStatus::IsDirectory:
        case orvhost::TuneStatus::PermissionDenied:
        case orvhost::TuneStatus::EmptySource:
        case orvhost::TuneStatus::ReadError:
        case orvhost::TuneStatus::CannotOpen:
            return EXIT_SOURCE;
        case orvhost::TuneStatus::BadUri:
            return EXIT_USAGE;
        case orvhost::TuneStatus::NoData:
        case orvhost::TuneStatus::NoSync:
        case orvhost::TuneStatus::NoTables:
            return EXIT_NO_DATA;
        case orvhost::TuneStatus::Cancelled:
            return EXIT_INTERRUPTED;
        case orvhost::TuneStatus::ServiceLost:
            return EXIT_SERVICE;
        default:
            return EXIT_FAILED;
    }
}

}  // namespace orvplay
