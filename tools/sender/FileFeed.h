#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "dtv/ByteSource.h"
#include "dtv/PacketWindow.h"
#include "dtv/PcrPacer.h"

namespace orvtest {

// The packets of a file at the pace of its PCR. Knows no clock: times are handed in.
class FileFeed {
public:
    // Null, and one line, when the file cannot be read.
    static std::unique_ptr<FileFeed> open(const std::string& path, bool loop, std::string* error);

    // Hands over every packet that is due. False at the end, or when there is no packet at all.
    bool feed(int64_t nowNs, const std::function<void(const uint8_t* packet)>& sink);

    // What comes is so much later.
    void pause(int64_t lengthNs) { mPacer.shift(lengthNs); }

private:
    FileFeed(std::unique_ptr<orvhost::ByteSource> source, bool loop)
        : mSource(std::move(source)), mLoop(loop) {}
    void readAhead();

    const std::unique_ptr<orvhost::ByteSource> mSource;
    const bool mLoop;
    orvhost::PacketWindow mWindow;
    orvhost::PcrPacer mPacer;
    uint64_t mReadThisLap = 0;
    bool mEnded = false;
};

}  // namespace orvtest
