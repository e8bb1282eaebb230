#include "ServiceErrors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string_view>

namespace orvplay {

namespace {

constexpr char FAULT[] = "orvplayer: internal fault";
constexpr char REASON[] = " cannot be played: ";
constexpr size_t LONGEST_LINE = 4096;
constexpr size_t MOST_KEPT = 65536;

}  // namespace

ServiceErrors::~ServiceErrors() {
    look();
    if (!mHasFault) {
        mKept += mPart;  // it had no end to tell
        fputs(mKept.c_str(), stderr);
    }
    if (mRead >= 0) {
        close(mRead);
        close(mWrite);
    }
}

int ServiceErrors::open() {
    int ends[2];
    if (mRead < 0 && pipe2(ends, O_CLOEXEC) == 0) {
        mRead = ends[0];
        mWrite = ends[1];
        fcntl(mRead, F_SETFL, O_NONBLOCK);
    }
    return mWrite;
}

void ServiceErrors::look() {
    char piece[4096];
    ssize_t got = 0;
    while (mRead >= 0 && (got = read(mRead, piece, sizeof piece)) > 0) {
        for (const char c : std::string_view(piece, static_cast<size_t>(got))) {
            mPart.push_back(c);
            if (c == '\n' || mPart.size() >= LONGEST_LINE) {
                onLine(mPart);
                mPart.clear();
            }
        }
    }
}

void ServiceErrors::onLine(const std::string& line) {
    mHasFault = mHasFault || line.starts_with(FAULT);
    const size_t reason = line.find(REASON);
    if (reason != std::string::npos) {
        mReason = line.substr(reason + sizeof REASON - 1);
        mReason.erase(mReason.find_last_not_of(" \r\n") + 1);
    }
    if (!mHasFault && mReason.empty()) {
        fputs(line.c_str(), stderr);
    } else if (mKept.size() < MOST_KEPT) {
        mKept += line;
    }
}

}  // namespace orvplay
