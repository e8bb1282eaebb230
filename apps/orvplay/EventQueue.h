#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace orvplay {

// Event lines on their way from the threads that write them to the one that hands them on to other
// commands. Bounded: while nobody takes them the newest are counted instead of kept. Any thread.
class EventQueue {
public:
    static constexpr size_t MAX_LINES = 2048;

    // Until this was said nothing is kept, and nobody needs to make a line.
    void want(bool isWanted) { mIsWanted = isWanted; }
    bool isWanted() const { return mIsWanted; }

    // A line without its end.
    void put(std::string line);
    struct Taken {
        std::vector<std::string> lines;
        uint64_t missed = 0;  // so many came after them and were not kept
    };
    Taken take();

private:
    std::atomic<bool> mIsWanted{false};
    std::mutex mLock;  // what follows
    Taken mKept;
};

}  // namespace orvplay
