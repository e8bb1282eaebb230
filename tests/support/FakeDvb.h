#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "dtv/dvb/DvbAdapter.h"
#include "support/Bits.h"

namespace orvtest {

// What is on air, and what adapters of this machine did about it. Any thread.
struct FakeBand {
    std::map<uint32_t, Bytes> onAir;  // by frequency in Hz; at most what a pipe holds, 1 MB
    int error = 0;                    // what every adapter answers to being tuned
    std::atomic<int> overflows{0};    // that its next reads find
    std::mutex mutex;
    std::vector<orvhost::DvbParameters> tuned;
};

// An adapter that receives each stream of the band once, at once; where nothing is on air it has
// no lock.
class FakeDvbAdapter : public orvhost::DvbAdapter {
public:
    explicit FakeDvbAdapter(FakeBand& band) : mBand(band) {}
    ~FakeDvbAdapter() override {
        close(mPipe[0]);
        close(mPipe[1]);
    }
    FakeDvbAdapter(const FakeDvbAdapter&) = delete;  // owns a pipe
    FakeDvbAdapter& operator=(const FakeDvbAdapter&) = delete;

    int start(const orvhost::DvbParameters& parameters) override {
        std::lock_guard lock(mBand.mutex);
        if (mBand.error != 0 || pipe2(mPipe, O_NONBLOCK | O_CLOEXEC) != 0) {
            return mBand.error != 0 ? -mBand.error : -errno;
        }
        mBand.tuned.push_back(parameters);
        fcntl(mPipe[1], F_SETPIPE_SZ, 1 << 20);
        const auto found = mBand.onAir.find(parameters.frequencyHz);
        mLock = found != mBand.onAir.end();
        if (mLock) {
            const ssize_t n = write(mPipe[1], found->second.data(), found->second.size());
            return n == static_cast<ssize_t>(found->second.size()) ? 0 : -EIO;
        }
        return 0;
    }
    int descriptor() const override { return mPipe[0]; }
    ssize_t read(uint8_t* data, size_t size) override {
        if (mBand.overflows > 0) {
            --mBand.overflows;
            return -EOVERFLOW;
        }
        const ssize_t got = ::read(mPipe[0], data, size);
        return got >= 0 ? got : -errno;
    }
    orvhost::DvbSignal signal() override {
        orvhost::DvbSignal signal;
        signal.carrier = signal.lock = mLock;
        signal.carrierToNoise = {orvhost::DvbFigure::Scale::DECIBEL, mLock ? 24.5 : 0.0};
        return signal;
    }

private:
    FakeBand& mBand;
    int mPipe[2] = {-1, -1};
    std::atomic<bool> mLock{false};
};

// While it lives, adapters of this process receive that band.
class BandOnAir {
public:
    explicit BandOnAir(FakeBand& band) {
        orvhost::setDvbAdapterFactory([&band] { return std::make_unique<FakeDvbAdapter>(band); });
    }
    ~BandOnAir() { orvhost::setDvbAdapterFactory(nullptr); }
    BandOnAir(const BandOnAir&) = delete;  // ends once
    BandOnAir& operator=(const BandOnAir&) = delete;
};

}  // namespace orvtest
