#pragma once

#include <dtv/DemuxBinder.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <vector>

// A demultiplexer service that serves what a test feeds it; link FakeDemux.cpp instead of the real
// one. One for the whole program: reset() it in every test's set-up.

namespace orvtest {

class FakeDemux {
public:
    struct Started {
        unsigned short pid;
        int kind;
        bool operator==(const Started&) const = default;
    };

    static FakeDemux& instance();

    // Stops every filter and forgets every misbehaviour.
    void reset();

    // Makes bytes ready for every filter of the PID that runs.
    void feed(unsigned short pid, const std::vector<uint8_t>& bytes);
    // Starting a filter on the PID fails.
    void refuse(unsigned short pid);
    // Every read claims to have given this much more than it did, without touching the memory.
    void lieAboutReads(int extra);
    // Every select fails with this code; 0 ends it.
    void failSelects(int code);
    // Runs at the next stop of a filter, before it.
    void atNextStop(std::function<void()> action);

    std::vector<Started> started() const;  // since reset(), in order, refused ones left out
    size_t running() const;
    size_t selects() const;                    // calls since reset()
    size_t waiting(unsigned short pid) const;  // bytes not read yet

    int start(unsigned short pid, int kind);
    int stop(int handle);
    int select(DemuxBinder_HandleSet* set, int timeoutMs);
    int read(int handle, unsigned char* data, int size);

private:
    struct Filter {
        unsigned short pid;
        std::deque<uint8_t> queue;
    };

    int takeReady(DemuxBinder_HandleSet* set);

    mutable std::mutex mLock;
    std::condition_variable mFed;
    std::map<int, Filter> mFilters;
    std::vector<Started> mStarted;
    std::set<unsigned short> mRefused;
    std::function<void()> mAtNextStop;
    int mNextHandle = 0;
    int mLie = 0;
    int mSelectError = 0;
    size_t mSelects = 0;
};

}  // namespace orvtest
