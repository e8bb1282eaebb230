#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "dtv/ByteSource.h"
#include "dtv/dvb/DvbAdapter.h"

namespace orvhost {

// The transport stream that an adapter receives. It comes at the transmitter's pace and has no end;
// while the frontend has no lock nothing comes.
class DvbSource : public ByteSource {
public:
    // Tunes, without waiting for a lock. Null with the reason in `result`.
    static std::unique_ptr<DvbSource> open(const DvbParameters& parameters, TuneResult& result);

    ~DvbSource() override;
    DvbSource(const DvbSource&) = delete;  // owns descriptors
    DvbSource& operator=(const DvbSource&) = delete;

    ssize_t read(uint8_t* data, size_t size, int timeoutMs) override;
    bool rewind() override { return false; }
    bool seek(uint64_t) override { return false; }
    int duplicate() const override { return -1; }
    bool isLive() const override { return true; }
    void interrupt() override;
    FrontendStatistics frontend() const override;
    std::string silence() const override;

    // As it was within the last second of reading. Any thread, at once: asking the frontend itself
    // may take long.
    DvbSignal signal() const;
    // How often the kernel's buffer ran over: each time packets were lost.
    uint64_t overflows() const { return mOverflows.load(std::memory_order_relaxed); }
    const DvbParameters& parameters() const { return mParameters; }

private:
    DvbSource(const DvbParameters& parameters, std::unique_ptr<DvbAdapter> adapter, int wake)
        : mParameters(parameters), mAdapter(std::move(adapter)), mWake(wake) {}

    void refreshSignal();

    const DvbParameters mParameters;
    const std::unique_ptr<DvbAdapter> mAdapter;
    const int mWake;                 // an event counter: set once and for all
    int64_t mNextSignalNs = 0;       // the reader's
    mutable std::mutex mSignalLock;  // the next one
    DvbSignal mSignal;
    std::atomic<uint64_t> mOverflows{0};
};

}  // namespace orvhost
