#include "KeptErrors.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace orvplay {

namespace {

constexpr size_t KEPT_MAX = 262'144;  // bytes: over a thousand lines

}  // namespace

KeptErrors::KeptErrors(bool isWanted) {
    if (isWanted) {
        begin();
    }
}

KeptErrors::~KeptErrors() {
    if (mPipe < 0) {
        return;
    }
    fflush(stderr);
    dup2(mErrors, STDERR_FILENO);
    close(mErrors);
    read();
    close(mPipe);
    fputs(mKept.c_str(), stderr);
    if (mIsCut) {
        fputs("orvplay: more messages came than are kept\n", stderr);
    }
}

void KeptErrors::begin() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    mErrors = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const bool isDone = mErrors >= 0 && dup2(ends[1], STDERR_FILENO) >= 0;
    close(ends[1]);
    if (isDone) {
        mPipe = ends[0];
    } else {
        close(ends[0]);
    }
}

void KeptErrors::read() {
    char piece[4096];
    ssize_t got = 0;
    while ((got = ::read(mPipe, piece, sizeof piece)) > 0) {
        const size_t fitting = std::min(static_cast<size_t>(got), KEPT_MAX - mKept.size());
        mKept.append(piece, fitting);
        mIsCut = mIsCut || fitting < static_cast<size_t>(got);
    }
}

std::vector<std::string> KeptErrors::take() {
    std::vector<std::string> lines;
    if (mPipe < 0) {
        return lines;
    }
    read();
    for (size_t end = 0; (end = mKept.find('\n', mTaken)) != std::string::npos; mTaken = end + 1) {
        lines.push_back(mKept.substr(mTaken, end - mTaken));
    }
    return lines;
}

}  // namespace orvplay
