#include "sender/FileFeed.h"

#include <dtv/TunerTypes.h>

namespace orvtest {

namespace {

constexpr size_t READ_BYTES = 64 << 10;
constexpr int64_t AHEAD_NS = 200'000'000;
constexpr size_t MOST_PACKETS = 1 << 16;  // kept, where there is no clock to go by

}  // namespace

std::unique_ptr<FileFeed> FileFeed::open(const std::string& path, bool loop, std::string* error) {
    orvhost::TuneResult result;
    auto source = orvhost::openByteSource(path, result);
    *error = result.message;
    return source == nullptr ? nullptr
                             : std::unique_ptr<FileFeed>(new FileFeed(std::move(source), loop));
}

// The pace goes over the end of a file that is sent again.
void FileFeed::readAhead() {
    while (!mEnded && mPacer.bufferedNs() < AHEAD_NS && mWindow.count() < MOST_PACKETS) {
        const ssize_t got = mWindow.fill(*mSource, READ_BYTES, 0);
        mPacer.add(mWindow.fresh(), mWindow.freshCount());
        mReadThisLap += mWindow.freshCount();
        if (got <= 0 && !(mLoop && mReadThisLap > 0 && mSource->rewind())) {
            mPacer.finish();
            mEnded = true;
        } else if (got <= 0) {
            mReadThisLap = 0;
        }
    }
}

bool FileFeed::feed(int64_t nowNs, const std::function<void(const uint8_t*)>& sink) {
    readAhead();
    const size_t due = mPacer.takeDue(nowNs);
    for (size_t i = 0; i < due; ++i) {
        sink(mWindow.packets() + i * orvhost::TS_PACKET_BYTES);
    }
    mWindow.release(due);
    return !mEnded || mWindow.count() > 0;
}

}  // namespace orvtest
