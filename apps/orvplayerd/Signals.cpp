#include "Signals.h"

#include <sys/signalfd.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <initializer_list>

namespace orvplayerd {

namespace {

volatile sig_atomic_t gExitCode = 0;
std::atomic<bool> gIsEnding{false};

void onDeadline(int) {
    _exit(gExitCode);
}

}  // namespace

Signals::Signals() {
    signal(SIGPIPE, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGUSR1}) {
        sigaddset(&signals, number);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    mFd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

Signals::~Signals() {
    if (mFd >= 0) {
        close(mFd);
    }
}

int Signals::take() {
    signalfd_siginfo info = {};
    return read(mFd, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

void endProcessBy(int milliseconds, int code) {
    if (gIsEnding.exchange(true)) {
        return;
    }
    gExitCode = code;
    struct sigaction action = {};
    action.sa_handler = onDeadline;
    sigaction(SIGALRM, &action, nullptr);
    const itimerval timer = {{0, 0}, {milliseconds / 1000, milliseconds % 1000 * 1000}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace orvplayerd
