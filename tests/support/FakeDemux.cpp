#include "support/FakeDemux.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

namespace orvtest {

FakeDemux& FakeDemux::instance() {
    static FakeDemux only;
    return only;
}

void FakeDemux::reset() {
    std::lock_guard<std::mutex> guard(mLock);
    mFilters.clear();
    mStarted.clear();
    mRefused.clear();
    mAtNextStop = nullptr;
    mLie = 0;
    mSelectError = 0;
    mSelects = 0;
}

void FakeDemux::feed(unsigned short pid, const std::vector<uint8_t>& bytes) {
    std::lock_guard<std::mutex> guard(mLock);
    for (auto& [handle, filter] : mFilters) {
        if (filter.pid == pid) {
            filter.queue.insert(filter.queue.end(), bytes.begin(), bytes.end());
        }
    }
    mFed.notify_all();
}

void FakeDemux::refuse(unsigned short pid) {
    std::lock_guard<std::mutex> guard(mLock);
    mRefused.insert(pid);
}

void FakeDemux::lieAboutReads(int extra) {
    std::lock_guard<std::mutex> guard(mLock);
    mLie = extra;
}

void FakeDemux::failSelects(int code) {
    std::lock_guard<std::mutex> guard(mLock);
    mSelectError = code;
    mFed.notify_all();
}

void FakeDemux::atNextStop(std::function<void()> action) {
    std::lock_guard<std::mutex> guard(mLock);
    mAtNextStop = std::move(action);
}

std::vector<FakeDemux::Started> FakeDemux::started() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mStarted;
}

size_t FakeDemux::running() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mFilters.size();
}

size_t FakeDemux::selects() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mSelects;
}

size_t FakeDemux::waiting(unsigned short pid) const {
    std::lock_guard<std::mutex> guard(mLock);
    size_t bytes = 0;
    for (const auto& [handle, filter] : mFilters) {
        bytes += filter.pid == pid ? filter.queue.size() : 0;
    }
    return bytes;
}

int FakeDemux::start(unsigned short pid, int kind) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mRefused.count(pid) != 0) {
        return -EMFILE;
    }
    mStarted.push_back({pid, kind});
    const int handle = mNextHandle++ % DEMUX_HANDLE_COUNT;
    mFilters[handle] = {pid, {}};
    return handle;
}

int FakeDemux::stop(int handle) {
    std::unique_lock<std::mutex> guard(mLock);
    if (const auto action = std::exchange(mAtNextStop, nullptr); action != nullptr) {
        guard.unlock();
        action();
        guard.lock();
    }
    return mFilters.erase(handle) != 0 ? 0 : -EBADF;
}

int FakeDemux::takeReady(DemuxBinder_HandleSet* set) {
    DemuxBinder_HandleSet ready;
    DemuxBinder_HandleZERO(&ready);
    int count = 0;
    for (const auto& [handle, filter] : mFilters) {
        if (DemuxBinder_HandleISSET(handle, set) != 0 && !filter.queue.empty()) {
            DemuxBinder_HandleSET(handle, &ready);
            ++count;
        }
    }
    if (count > 0) {
        *set = ready;
    }
    return count;
}

int FakeDemux::select(DemuxBinder_HandleSet* set, int timeoutMs) {
    std::unique_lock<std::mutex> guard(mLock);
    ++mSelects;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (mSelectError != 0) {
            return mSelectError;
        }
        if (const int count = takeReady(set); count > 0) {
            return count;
        }
        if (mFed.wait_until(guard, end) == std::cv_status::timeout) {
            DemuxBinder_HandleZERO(set);
            return 0;
        }
    }
}

int FakeDemux::read(int handle, unsigned char* data, int size) {
    std::lock_guard<std::mutex> guard(mLock);
    const auto found = mFilters.find(handle);
    if (found == mFilters.end()) {
        return -EBADF;
    }
    std::deque<uint8_t>& queue = found->second.queue;
    const auto count =
        static_cast<std::ptrdiff_t>(std::min(queue.size(), static_cast<size_t>(size) / 188 * 188));
    std::copy_n(queue.begin(), count, data);
    queue.erase(queue.begin(), queue.begin() + count);
    return static_cast<int>(count) + mLie;
}

}  // namespace orvtest

using orvtest::FakeDemux;

extern "C" {

int DemuxBinder_StartFiltering(unsigned short pid, int kind) {
    return FakeDemux::instance().start(pid, kind);
}
int DemuxBinder_StopFiltering(int handle) {
    return FakeDemux::instance().stop(handle);
}
int DemuxBinder_Select(DemuxBinder_HandleSet* set, int timeoutMs) {
    return FakeDemux::instance().select(set, timeoutMs);
}
int DemuxBinder_ReadData(int handle, unsigned char* data, int size) {
    return FakeDemux::instance().read(handle, data, size);
}
void DemuxBinder_HandleZERO(DemuxBinder_HandleSet* set) {
    memset(set, 0, sizeof *set);
}
void DemuxBinder_HandleSET(int handle, DemuxBinder_HandleSet* set) {
    if (handle >= 0) {
        set->bits[handle / 64] |= uint64_t{1} << handle % 64;
    }
}
int DemuxBinder_HandleISSET(int handle, const DemuxBinder_HandleSet* set) {
    return handle >= 0 && (set->bits[handle / 64] >> handle % 64 & 1) != 0 ? 1 : 0;
}

}  // extern "C"
