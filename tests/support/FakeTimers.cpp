#include "support/FakeTimers.h"

#include <cerrno>
#include <cstdint>
#include <thread>

namespace orvtest {

FakeTimers& FakeTimers::instance() {
    static FakeTimers only;
    return only;
}

void FakeTimers::reset() {
    std::lock_guard<std::mutex> guard(mLock);
    mTimers.clear();
    mCreationError = 0;
    mSettingError = 0;
}

void FakeTimers::failCreation(int error) {
    std::lock_guard<std::mutex> guard(mLock);
    mCreationError = error;
}

void FakeTimers::failSetting(int error) {
    std::lock_guard<std::mutex> guard(mLock);
    mSettingError = error;
}

size_t FakeTimers::created() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mTimers.size();
}

std::optional<long> FakeTimers::armedFor(size_t timer) const {
    std::lock_guard<std::mutex> guard(mLock);
    return timer < mTimers.size() ? mTimers[timer].seconds : std::nullopt;
}

std::optional<long> FakeTimers::periodMs(size_t timer) const {
    std::lock_guard<std::mutex> guard(mLock);
    return timer < mTimers.size() ? mTimers[timer].periodMs : std::nullopt;
}

void FakeTimers::fire(size_t timer) {
    sigevent event;
    {
        std::lock_guard<std::mutex> guard(mLock);
        event = mTimers.at(timer).event;
        mTimers[timer].seconds.reset();
    }
    std::thread(event.sigev_notify_function, event.sigev_value).join();
}

FakeTimers::Timer* FakeTimers::find(timer_t id) {
    const auto number = reinterpret_cast<uintptr_t>(id);
    const bool known = number >= 1 && number <= mTimers.size() && mTimers[number - 1].exists;
    return known ? &mTimers[number - 1] : nullptr;
}

int FakeTimers::create(const sigevent& event, timer_t* id) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mCreationError != 0) {
        return mCreationError;
    }
    mTimers.push_back({event, std::nullopt, std::nullopt});
    *id = reinterpret_cast<timer_t>(static_cast<uintptr_t>(mTimers.size()));
    return 0;
}

int FakeTimers::set(timer_t id, const itimerspec& time) {
    std::lock_guard<std::mutex> guard(mLock);
    Timer* timer = find(id);
    if (timer == nullptr || mSettingError != 0) {
        return timer == nullptr ? EINVAL : mSettingError;
    }
    timer->seconds.reset();
    if (time.it_value.tv_sec != 0) {
        timer->seconds = time.it_value.tv_sec;
    }
    timer->periodMs.reset();
    // A first expiry that is not a period away is none that the player asks for.
    if (time.it_interval.tv_sec == time.it_value.tv_sec &&
        time.it_interval.tv_nsec == time.it_value.tv_nsec && time.it_value.tv_nsec != 0) {
        timer->periodMs = time.it_value.tv_sec * 1000 + time.it_value.tv_nsec / 1'000'000;
    }
    return 0;
}

int FakeTimers::remove(timer_t id) {
    std::lock_guard<std::mutex> guard(mLock);
    Timer* timer = find(id);
    if (timer == nullptr) {
        return EINVAL;
    }
    timer->exists = false;
    timer->seconds.reset();
    timer->periodMs.reset();
    return 0;
}

}  // namespace orvtest

namespace {

int answer(int error) {
    errno = error;
    return error == 0 ? 0 : -1;
}

}  // namespace

extern "C" {

int timer_create(clockid_t, sigevent* event, timer_t* id) noexcept {
    return answer(orvtest::FakeTimers::instance().create(*event, id));
}
int timer_settime(timer_t id, int, const itimerspec* time, itimerspec*) noexcept {
    return answer(orvtest::FakeTimers::instance().set(id, *time));
}
int timer_delete(timer_t id) noexcept {
    return answer(orvtest::FakeTimers::instance().remove(id));
}
}
