#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

namespace OrvPlayer {

// The codec output buffers whose pictures are on their way through the renderer.
//
// Frames come back in the order in which they left. A renderer that is stopped while it waits
// keeps its frame for good: without this list every pause would cost the codec one of its few
// output buffers, and quick ones all of them before any frame comes back. And after the codec was
// rebuilt a frame of the run before may come back, whose index now belongs to another picture.
//
// Thread-safe; the lock is a leaf.
class OutstandingFrames {
public:
    // A frame leaves for the renderer. Output thread.
    void add(uint32_t index, uint64_t pts) {
        std::lock_guard<std::mutex> guard(mLock);
        mFrames.push_back({index, pts});
    }

    // A frame came back. False when it is none of this run; else it and all that left before it
    // are struck off, and `skipped` receives the indices of the latter.
    bool takeBack(uint32_t index, uint64_t pts, std::vector<size_t>* skipped) {
        std::lock_guard<std::mutex> guard(mLock);
        for (auto frame = mFrames.begin(); frame != mFrames.end(); ++frame) {
            if (frame->index == index && frame->pts == pts) {
                for (auto earlier = mFrames.begin(); earlier != frame; ++earlier) {
                    skipped->push_back(earlier->index);
                }
                mFrames.erase(mFrames.begin(), frame + 1);
                return true;
            }
        }
        return false;
    }

    // Strikes off frames that never come back, when all `buffers` of the codec are out and so no
    // later frame can bring them along. A renderer has one frame in hand at most: of those whose
    // records it has taken, all but the last are lost. `recordsWaiting` is how many records it has
    // not taken, a number read before the call.
    void takeLost(size_t buffers, size_t recordsWaiting, std::vector<size_t>* lost) {
        std::lock_guard<std::mutex> guard(mLock);
        if (mFrames.size() < buffers) {
            return;
        }
        while (mFrames.size() > recordsWaiting + 1) {
            lost->push_back(mFrames.front().index);
            mFrames.pop_front();
        }
    }

    // The codec run has ended: every index has lost its meaning.
    void clear() {
        std::lock_guard<std::mutex> guard(mLock);
        mFrames.clear();
    }

private:
    struct Frame {
        uint32_t index;
        uint64_t pts;
    };

    std::mutex mLock;
    std::deque<Frame> mFrames;
};

}  // namespace OrvPlayer
