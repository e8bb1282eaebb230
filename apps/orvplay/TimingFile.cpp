#include "TimingFile.h"

#include <cerrno>
#include <utility>

namespace orvplay {

TimingFile::~TimingFile() {
    finish();
}

int TimingFile::open(const std::string& path) {
    mFile = fopen(path.c_str(), "we");
    if (mFile == nullptr) {
        return errno;
    }
    mThread = std::thread(&TimingFile::run, this);
    return 0;
}

void TimingFile::write(const std::string& line) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mWaiting.size() + line.size() >= MOST_BYTES) {
            ++mMissed;
            return;
        }
        tellMissed();
        mWaiting += line;
        mWaiting += '\n';
    }
    mWake.notify_one();
}

void TimingFile::miss(uint64_t count) {
    std::lock_guard<std::mutex> guard(mLock);
    mMissed += count;
}

// With mLock held.
void TimingFile::tellMissed() {
    if (mMissed > 0) {
        mWaiting +=
            R"({"kind":"missed","count":)" + std::to_string(std::exchange(mMissed, 0)) + "}\n";
    }
}

void TimingFile::run() {
    std::unique_lock<std::mutex> guard(mLock);
    while (!mEnding || !mWaiting.empty()) {
        mWake.wait(guard, [this] { return mEnding || !mWaiting.empty(); });
        const std::string lines = std::exchange(mWaiting, {});
        guard.unlock();
        const bool isWritten =
            fwrite(lines.data(), 1, lines.size(), mFile) == lines.size() && fflush(mFile) == 0;
        const int error = isWritten ? 0 : errno;
        guard.lock();
        mError = mError != 0 ? mError : error;
    }
}

int TimingFile::finish() {
    if (mFile == nullptr) {
        return 0;
    }
    {
        std::lock_guard<std::mutex> guard(mLock);
        tellMissed();
        mEnding = true;
    }
    mWake.notify_one();
    mThread.join();
    const int closeError = fclose(std::exchange(mFile, nullptr)) == 0 ? 0 : errno;
    return mError != 0 ? mError : closeError;
}

}  // namespace orvplay
