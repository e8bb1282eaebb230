#include "SnapshotCommand.h"

#include <unistd.h>

#include <cstdio>

#include "ChannelSource.h"
#include "ExitCode.h"
#include "Interrupt.h"
#include "SnapshotRun.h"

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
    Interrupt::install();
    SnapshotOptions silently = options;
    silently.silent = true;
    if (const int code = resolveChannel(&silently); code != EXIT_OK) {
        return code;
    }
    return SnapshotRun(silently).run();
}

}  // namespace orvplay
