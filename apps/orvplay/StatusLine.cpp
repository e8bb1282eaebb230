#include "StatusLine.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "MonotonicTime.h"

namespace orvplay {

namespace {

constexpr int64_t PERIOD_NS = 250'000'000;

bool wanted() {
    const char* noColor = getenv("NO_COLOR");
    return isatty(STDERR_FILENO) != 0 && (noColor == nullptr || noColor[0] == '\0');
}

}  // namespace

StatusLine::StatusLine() : mEnabled(wanted()) {}

void StatusLine::show(const std::string& text) {
    const int64_t now = monotonicNs();
    if (!mEnabled || (mShown && now - mLastNs < PERIOD_NS)) {
        return;
    }
    fprintf(stderr, "\r\033[K%s", text.c_str());
    fflush(stderr);
    mShown = true;
    mLastNs = now;
}

void StatusLine::clear() {
    if (mShown) {
        fprintf(stderr, "\r\033[K");
        fflush(stderr);
        mShown = false;
    }
}

}  // namespace orvplay
