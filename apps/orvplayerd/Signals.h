#pragma once

namespace orvplayerd {

// Signals as bytes to be read: SIGTERM, SIGINT, SIGHUP and SIGUSR1 stay pending in every thread and
// come out of a descriptor, so that no code of ours runs inside another's. Made before the first
// thread. A closed pipe is an error of the write.
class Signals {
public:
    Signals();
    ~Signals();
    Signals(const Signals&) = delete;  // owns the descriptor
    Signals& operator=(const Signals&) = delete;

    // Readable when a signal waits; -1 when there is none to be had.
    int fd() const { return mFd; }
    // The next signal, 0 when none waits.
    int take();

private:
    int mFd = -1;
};

// The process ends with `code` so many milliseconds from now, whatever its threads do until then.
// The first call counts.
void endProcessBy(int milliseconds, int code);

}  // namespace orvplayerd
