#include "TerminalDisplay.h"

#include <cstdio>

#include "MonotonicTime.h"

namespace orvplay {

namespace {

constexpr int POLL_MS = 50;
constexpr int64_t REDRAW_NS = 500'000'000;  // what goes by time: clock, bars, what expires
constexpr int64_t STATUS_NS = 2'000'000'000;
constexpr int64_t MESSAGE_NS = 10'000'000'000;
constexpr char PREFIX[] = "orvplay: ";

}  // namespace

bool TerminalDisplay::open() {
    if (mTerminal.open()) {
        mScreen.setHasBlocks(CursesTerminal::hasBlocks());
        return true;
    }
    fputs("orvplay: no screen can be drawn on this terminal; use --headless\n", stderr);
    return false;
}

void TerminalDisplay::showCaption(const std::string& utf8) {
    mScreen.showCaption(utf8, monotonicNs());
    mChanged = true;
}

// What was also written to standard error is told by that, and longer. What stays is seen in the
// state.
void TerminalDisplay::showStatus(const std::string& utf8, bool) {
    const int64_t nowNs = monotonicNs();
    takeMessages(nowNs);
    if (utf8 != mLastMessage) {
        mScreen.showMessage(utf8, nowNs, STATUS_NS);
        mChanged = true;
    }
}

void TerminalDisplay::showState(const ScreenState& state) {
    mScreen.showState(state);
    mChanged = true;
}

void TerminalDisplay::showChannels(const ChannelRows& channels) {
    mScreen.showChannels(channels);
    mChanged = true;
}

void TerminalDisplay::takeMessages(int64_t nowNs) {
    for (std::string& line : mErrors.take()) {
        mLastMessage = line.starts_with(PREFIX) ? line.substr(sizeof PREFIX - 1) : std::move(line);
        mScreen.showMessage(mLastMessage, nowNs, MESSAGE_NS);
        mChanged = true;
    }
}

std::vector<UserRequest> TerminalDisplay::handleEvents() {
    std::vector<UserRequest> requests;
    if (!mTerminal.wait(POLL_MS)) {
        return {{Request::QUIT}};
    }
    while (const auto key = mTerminal.readKey()) {
        for (UserRequest& request : mScreen.onKey(*key)) {
            requests.push_back(std::move(request));
        }
        mChanged = true;
    }
    const int64_t nowNs = monotonicNs();
    takeMessages(nowNs);
    mChanged |= mTerminal.takeDamage();
    if (mChanged || nowNs - mDrawnNs >= REDRAW_NS) {
        mTerminal.draw(mScreen.rows(mTerminal.columns(), mTerminal.rows(), nowNs));
        mDrawnNs = nowNs;
        mChanged = false;
    }
    return requests;
}

}  // namespace orvplay
