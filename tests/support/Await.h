#pragma once

#include <chrono>
#include <thread>

namespace orvtest {

// Asks again and again until the condition holds; false when it did not in time. The bound is far
// beyond what a machine that is merely busy needs.
template <typename Condition>
bool await(Condition condition, std::chrono::milliseconds bound = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
}

}  // namespace orvtest
