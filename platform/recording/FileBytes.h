#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <utility>

namespace orvhost {

// A descriptor that is closed with its holder. -1 holds none.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : mFd(fd) {}
    ~UniqueFd() {
        if (mFd >= 0) {
            close(mFd);
        }
    }
    UniqueFd(UniqueFd&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(mFd, other.mFd);
        return *this;
    }
    int get() const { return mFd; }
    explicit operator bool() const { return mFd >= 0; }

private:
    int mFd = -1;
};

// Reads up to `size` bytes at `offset` without moving the descriptor's own. Returns how many there
// were: fewer at the end of the file, and where it cannot be read, then with errno not 0.
size_t readAllAt(int fd, uint8_t* data, size_t size, uint64_t offset);

// False, with errno, when not all of it could be written.
bool writeAllAt(int fd, const uint8_t* data, size_t size, uint64_t offset);

// Of a regular file; 0 for anything else.
uint64_t sizeOfFile(int fd);

}  // namespace orvhost
