#pragma once

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

namespace orvplay {

// Writes lines to a file on a thread of its own, so that a slow storage holds up nobody: what it
// cannot keep up with is left out, and {"kind":"missed","count":N} stands in its place.
class TimingFile {
public:
    // What waits to be written, at most.
    static constexpr size_t MOST_BYTES = 4 << 20;

    TimingFile() = default;
    ~TimingFile();
    TimingFile(const TimingFile&) = delete;  // a thread points at it
    TimingFile& operator=(const TimingFile&) = delete;

    // Opens the file, emptying it. 0, or an errno.
    int open(const std::string& path);
    // One line, without its end. Any thread; never waits for the storage.
    void write(const std::string& line);
    // Lines that were lost before they came here. Any thread.
    void miss(uint64_t count);
    // Writes what is left. 0, or the errno of the first write that failed.
    int finish();

private:
    void run();
    void tellMissed();

    FILE* mFile = nullptr;
    std::thread mThread;

    std::mutex mLock;  // all below
    std::condition_variable mWake;
    std::string mWaiting;
    uint64_t mMissed = 0;  // not told yet
    bool mEnding = false;
    int mError = 0;
};

}  // namespace orvplay
