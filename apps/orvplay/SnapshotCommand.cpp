#include "SnapshotCommand.h"

#include <unistd.h>

#include <cstdio>

#include "ExitCode.h"
#include "Interrupt.h"
#include "ServiceChoice.h"
#include "SnapshotRun.h"
#include "audio/AudioOutput.h"
#include "dtv/Tuner.h"

namespace orvplay {

namespace {

int fail(ExitCode code, const char* message) {
    fprintf(stderr, "orvplay: %s\n", message);
    return code;
}

}  // namespace

int snapshotCommand(const SnapshotOptions& options) {
    if (options.out == "-" && options.count != 1) {
        return fail(EXIT_USAGE, "standard output takes one still: -o - goes with -n 1");
    }
    if (options.out == "-" && isatty(STDOUT_FILENO) != 0) {
        return fail(EXIT_USAGE,
                    "a terminal shows no PNG: redirect standard output, or use -o FILE");
    }
    orvhost::setAudioOutput(orvhost::AudioOutput::SILENT);
    Interrupt::install();
    StreamSelection selection;
    if (const int code = tuneTo(options, {}, &selection); code != EXIT_OK) {
        return code;
    }
    int code = EXIT_NOT_FOUND;
    if (selection.videoPid == 0) {
        fprintf(stderr, "orvplay: the service has no picture; see: orvplay probe %s\n",
                options.source.c_str());
    } else {
        code = SnapshotRun(options, selection).run();
    }
    orvhost::Tuner::instance().untune();
    return code;
}

}  // namespace orvplay
