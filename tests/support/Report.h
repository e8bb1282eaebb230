#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <string>
#include <utility>
#include <vector>

namespace orvtest {

// What dump(stream, indent) writes of an object.
template <typename Dumped>
std::string reportOf(Dumped& dumped, int indent = 0) {
    char* text = nullptr;
    size_t size = 0;
    FILE* memory = open_memstream(&text, &size);
    dumped.dump(memory, indent);
    fclose(memory);
    std::string report(text);
    free(text);
    return report;
}

// Whether `other`, on a thread of its own, gets through at every moment at which dump() writes: the
// stream may be a pipe that nobody empties, and must not hold the pipeline up.
template <typename Dumped>
bool letsOthersThrough(Dumped& dumped, std::function<void()> other) {
    struct Probe {
        std::function<void()> other;
        std::vector<std::future<void>> calls;
        bool inTime = true;
    } probe{std::move(other), {}, true};
    cookie_io_functions_t slow{};
    slow.write = [](void* cookie, const char*, size_t size) -> ssize_t {
        auto& p = *static_cast<Probe*>(cookie);
        if (p.inTime) {
            p.calls.push_back(std::async(std::launch::async, p.other));
            p.inTime =
                p.calls.back().wait_for(std::chrono::seconds(5)) == std::future_status::ready;
        }
        return static_cast<ssize_t>(size);
    };
    FILE* stream = fopencookie(&probe, "w", slow);
    setvbuf(stream, nullptr, _IONBF, 0);
    dumped.dump(stream, 0);
    fclose(stream);
    return probe.inTime && !probe.calls.empty();
}

}  // namespace orvtest
