#include "binder/CallTimeout.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace orvhost {

namespace {

thread_local std::optional<CallTimeout::Clock::time_point> earliest;

}  // namespace

CallTimeout::CallTimeout(std::chrono::milliseconds timeout) : mOuter(earliest) {
    const auto end = Clock::now() + timeout;
    earliest = mOuter.has_value() ? std::min(*mOuter, end) : end;
}

CallTimeout::~CallTimeout() {
    earliest = mOuter;
}

std::optional<CallTimeout::Clock::time_point> CallTimeout::deadline() {
    return earliest;
}

int CallTimeout::leftMs() {
    if (!earliest.has_value()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*earliest - Clock::now());
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, std::numeric_limits<int>::max()));
}

}  // namespace orvhost
