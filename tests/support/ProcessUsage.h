#pragma once

#include <dirent.h>

#include <cstddef>

namespace orvtest {

// How many threads and open descriptors this process has.
struct ProcessUsage {
    size_t threads = 0;
    size_t descriptors = 0;

    static ProcessUsage now() { return {entriesOf("/proc/self/task"), entriesOf("/proc/self/fd")}; }

private:
    static size_t entriesOf(const char* folder) {
        size_t count = 0;
        DIR* const entries = opendir(folder);
        while (entries != nullptr && readdir(entries) != nullptr) {
            ++count;
        }
        closedir(entries);
        return count;
    }
};

}  // namespace orvtest
