#include "dtv/dvb/DvbSource.h"

#include <dtv/TunerTypes.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "dtv/HostClock.h"
#include "trace/HostLog.h"

namespace orvhost {

namespace {

constexpr int64_t SIGNAL_PERIOD_NS = 1'000'000'000;

TuneResult failure(const DvbParameters& parameters, int error) {
    const std::string adapter = "DVB adapter " + std::to_string(parameters.adapter);
    switch (error) {
        case ENOENT:
        case ENODEV:
        case ENXIO:
            return {TuneStatus::NoSuchFile,
                    adapter + ": there is none; is the tuner plugged in? See: orvplay doctor"};
        case EACCES:
        case EPERM:
            return {
                TuneStatus::PermissionDenied,
                adapter + ": this user may not use it; is it in group video? See: orvplay doctor"};
        case EBUSY:
            return {
                TuneStatus::ReadError,
                adapter + ": another program uses it; end that, or take another one: --adapter N"};
        case ENOTSUP:
            return {TuneStatus::ReadError,
                    adapter + ": receives no ISDB-T; take another one: --adapter N"};
        case EINVAL:
        case ERANGE:
            return {TuneStatus::ReadError, adapter + ": cannot be tuned to " + parameters.shown()};
        default:
            return {TuneStatus::ReadError, adapter + ": " + strerror(error)};
    }
}

}  // namespace

std::unique_ptr<DvbSource> DvbSource::open(const DvbParameters& parameters, TuneResult& result) {
    std::unique_ptr<DvbAdapter> adapter = makeDvbAdapter();
    if (const int started = adapter->start(parameters); started != 0) {
        result = failure(parameters, -started);
        return nullptr;
    }
    const int wake = eventfd(0, EFD_CLOEXEC);
    if (wake < 0) {
        result = failure(parameters, errno);
        return nullptr;
    }
    return std::unique_ptr<DvbSource>(new DvbSource(parameters, std::move(adapter), wake));
}

DvbSource::~DvbSource() {
    close(mWake);
}

ssize_t DvbSource::read(uint8_t* data, size_t size, int timeoutMs) {
    refreshSignal();
    pollfd fds[] = {{mAdapter->descriptor(), POLLIN, 0}, {mWake, POLLIN, 0}};
    if (poll(fds, 2, timeoutMs) < 0) {
        return errno == EINTR ? -EAGAIN : -errno;
    }
    if (fds[1].revents != 0) {
        return -EINTR;
    }
    if (fds[0].revents == 0) {
        return -EAGAIN;
    }
    ssize_t got = mAdapter->read(data, size);
    if (got == -EOVERFLOW) {
        // The packets that are there still come with the next read.
        const uint64_t before = mOverflows.fetch_add(1, std::memory_order_relaxed);
        if (before == 0) {
            HOST_LOGE("%s: packets were not taken from the adapter in time\n", __func__);
        }
        got = mAdapter->read(data, size);
    }
    const bool isNothing = got == 0 || got == -EWOULDBLOCK || got == -EINTR || got == -EOVERFLOW;
    return isNothing ? -EAGAIN : got;
}

void DvbSource::refreshSignal() {
    const int64_t nowNs = HostClock::monotonic().nowNs();
    if (nowNs < mNextSignalNs) {
        return;
    }
    mNextSignalNs = nowNs + SIGNAL_PERIOD_NS;
    const DvbSignal present = mAdapter->signal();
    std::lock_guard lock(mSignalLock);
    mSignal = present;
}

DvbSignal DvbSource::signal() const {
    std::lock_guard lock(mSignalLock);
    return mSignal;
}

FrontendStatistics DvbSource::frontend() const {
    return {true, signal(), overflows()};
}

std::string DvbSource::silence() const {
    const std::string place = mParameters.shown();
    return signal().lock ? "a signal on " + place + ", and no packets in it; is it ISDB-T?"
                         : "no signal on " + place + "; are antenna and cable connected?";
}

void DvbSource::interrupt() {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(mWake, &one, sizeof one);
}

}  // namespace orvhost
