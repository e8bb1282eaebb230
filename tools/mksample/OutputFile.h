#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "mksample/Options.h"

namespace mksample {

// Writes to a file or standard output; a file that was not finished is removed again.
class OutputFile {
public:
    // Throws Failure.
    explicit OutputFile(const std::string& path) : mPath(path) {
        mFile = path == "-" ? stdout : std::fopen(path.c_str(), "wbe");
        if (mFile == nullptr) {
            throw Failure("cannot write " + path + ": " + std::strerror(errno));
        }
        struct stat status {};
        mRemovable = path != "-" && fstat(fileno(mFile), &status) == 0 && S_ISREG(status.st_mode);
    }
    OutputFile(const OutputFile&) = delete;  // owns the stream
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile() {
        if (mFile != nullptr && mFile != stdout) {
            std::fclose(mFile);
        }
        if (!mFinished && mRemovable) {
            std::remove(mPath.c_str());
        }
    }

    // Throws Failure.
    void write(const void* bytes, size_t size) {
        if (size > 0 && std::fwrite(bytes, size, 1, mFile) != 1) {
            fail();
        }
    }

    // Throws Failure when not all could be written.
    void finish() {
        FILE* file = mFile;
        mFile = nullptr;
        if ((file == stdout ? std::fflush(file) : std::fclose(file)) != 0) {
            fail();
        }
        mFinished = true;
    }

private:
    [[noreturn]] void fail() const {
        const std::string name = mPath == "-" ? "standard output" : mPath;
        throw Failure("cannot write " + name + ": " + std::strerror(errno));
    }

    const std::string mPath;
    FILE* mFile = nullptr;
    bool mRemovable = false;
    bool mFinished = false;
};

}  // namespace mksample
