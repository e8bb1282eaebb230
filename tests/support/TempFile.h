#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvtest {

// A file of the given bytes that goes away with the object.
class TempFile {
public:
    explicit TempFile(const std::vector<uint8_t>& bytes) {
        const int fd = mkstemp(mPath.data());
        size_t done = 0;
        while (fd >= 0 && done < bytes.size()) {
            const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
            if (n <= 0) {
                break;
            }
            done += static_cast<size_t>(n);
        }
        close(fd);
    }
    ~TempFile() { unlink(mPath.c_str()); }
    TempFile(const TempFile&) = delete;  // owns its file
    TempFile& operator=(const TempFile&) = delete;

    const std::string& path() const { return mPath; }

private:
    std::string mPath = "/tmp/orvtest-XXXXXX";
};

}  // namespace orvtest
