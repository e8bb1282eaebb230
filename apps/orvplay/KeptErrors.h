#pragma once

#include <string>
#include <vector>

namespace orvplay {

// Keeps what is written to standard error from a screen that is drawn on the terminal.
//
// From beginning to end standard error is a pipe, for this process and those that it starts: no
// line of either tears the screen, and whoever draws it shows the lines itself. At the end
// standard error is what it was, and gets all of them. Nobody who writes ever waits: what finds the
// pipe full is lost. One thread at a time.
class KeptErrors {
public:
    // With `isWanted`, from here on; that is before threads run and processes are started. Where
    // there is no pipe to be had nothing is kept.
    explicit KeptErrors(bool isWanted);
    ~KeptErrors();
    KeptErrors(const KeptErrors&) = delete;  // has a pipe
    KeptErrors& operator=(const KeptErrors&) = delete;

    // The lines that came since the last call.
    std::vector<std::string> take();

private:
    void begin();
    void read();

    int mPipe = -1;    // its reading end; -1: standard error is as it was
    int mErrors = -1;  // what standard error was
    std::string mKept;
    size_t mTaken = 0;    // of that
    bool mIsCut = false;  // more came than is kept
};

}  // namespace orvplay
