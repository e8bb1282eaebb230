#include "Interrupt.h"

#include <unistd.h>
#include <atomic>
#include <csignal>
#include <initializer_list>

#include "ExitCode.h"

namespace orvplay {

namespace {

volatile sig_atomic_t gRequested = 0;
std::atomic<bool> gDumpRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free);  // a handler writes it

void onSignal(int) {
    if (gRequested != 0) {
        _exit(EXIT_INTERRUPTED);
    }
    gRequested = 1;
}

void onDumpSignal(int) {
    gDumpRequested = true;
}

}  // namespace

void Interrupt::install() {
    struct sigaction action = {};
    action.sa_handler = onSignal;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
    action.sa_handler = onDumpSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGUSR1, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

bool Interrupt::requested() {
    return gRequested != 0;
}

bool Interrupt::takeDumpRequest() {
    return gDumpRequested.exchange(false);
}

}  // namespace orvplay
