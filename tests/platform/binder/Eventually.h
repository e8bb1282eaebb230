#pragma once

#include <chrono>
#include <thread>

// True as soon as the condition holds; false when it does not within the bound.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds bound = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
