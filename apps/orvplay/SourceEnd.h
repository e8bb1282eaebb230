#pragma once

#include <algorithm>
#include <cstdint>

namespace orvplay {

// Tells when a source that has nothing more was played to its last picture. One thread.
class SourceEnd {
public:
    // The source has nothing more, while the player may still hold pictures of it.
    bool seen() const { return mSeenNs != 0; }

    // To be asked now and then: whether the source is at its end, and when the player's last
    // picture was due, 0 for none. `moreNs`: so much longer it must be quiet, where the player
    // itself tells its end.
    bool drained(int64_t nowNs, bool atEnd, int64_t lastFrameNs, int64_t moreNs = 0) {
        if (!atEnd) {
            mSeenNs = 0;
            return false;
        }
        if (mSeenNs == 0) {
            mSeenNs = nowNs;
        }
        const int64_t quietSinceNs = std::max(mSeenNs, lastFrameNs);
        return nowNs - quietSinceNs - moreNs >= (lastFrameNs != 0 ? DRAIN_NS : NOTHING_NS);
    }

private:
    static constexpr int64_t DRAIN_NS = 500'000'000;
    // Without any picture: the player's own delay must pass before that is certain.
    static constexpr int64_t NOTHING_NS = 5'000'000'000;

    int64_t mSeenNs = 0;
};

}  // namespace orvplay
