#include "Interrupt.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <initializer_list>

#include "ExitCode.h"

namespace orvplay {

namespace {

std::atomic<bool> gRequested{false};
std::atomic<bool> gDumpRequested{false};
std::atomic<void (*)()> gBeforeSecond{nullptr};
static_assert(std::atomic<bool>::is_always_lock_free);  // handlers use them
static_assert(std::atomic<void (*)()>::is_always_lock_free);

void onSignal(int) {
    if (gRequested.exchange(true)) {
        if (void (*const action)() = gBeforeSecond; action != nullptr) {
            action();
        }
        _exit(EXIT_INTERRUPTED);
    }
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
    return gRequested;
}

void Interrupt::beforeSecond(void (*action)()) {
    gBeforeSecond = action;
}

bool Interrupt::takeDumpRequest() {
    return gDumpRequested.exchange(false);
}

}  // namespace orvplay
