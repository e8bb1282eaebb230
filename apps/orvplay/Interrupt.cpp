#include "Interrupt.h"

#include <unistd.h>
#include <csignal>
#include <initializer_list>

#include "ExitCode.h"

namespace orvplay {

namespace {

volatile sig_atomic_t gRequested = 0;

void onSignal(int) {
    if (gRequested != 0) {
        _exit(EXIT_INTERRUPTED);
    }
    gRequested = 1;
}

}  // namespace

void Interrupt::install() {
    struct sigaction action = {};
    action.sa_handler = onSignal;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
    signal(SIGPIPE, SIG_IGN);
}

bool Interrupt::requested() {
    return gRequested != 0;
}

}  // namespace orvplay
