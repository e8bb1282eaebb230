#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace orvhost {

struct FrontendStatistics;
struct NetworkStatistics;
struct SourceFault;
struct TuneResult;

// Where the bytes of a stream come from. One thread reads; interrupt() may come from any.
class ByteSource {
public:
    virtual ~ByteSource() = default;

    // Reads what is there, at most `size` bytes. Waits up to timeoutMs for the first one. Returns
    // their number, 0 at the end, -EAGAIN when nothing came in time, -EINTR after interrupt(), or
    // another negative errno.
    virtual ssize_t read(uint8_t* data, size_t size, int timeoutMs) = 0;

    // Back to the beginning; false where there is no way back.
    virtual bool rewind() = 0;

    // To a place in the whole file, wherever reading of it began; false where there is none.
    virtual bool seek(uint64_t offset) = 0;

    // A descriptor of the file that the caller closes, -1 where there is no file. Any thread.
    virtual int duplicate() const = 0;

    // Whether it comes at a sender's pace, asked for or not, and has no end.
    virtual bool isLive() const { return false; }

    // Whether every read gives whole packets of 188 bytes and nothing else.
    virtual bool givesPackets() const { return false; }

    // What came over the network. Any thread.
    virtual NetworkStatistics network() const;

    // How an adapter receives. Any thread, at once.
    virtual FrontendStatistics frontend() const;

    // Why nothing may have come, and what to do, for people. Any thread.
    virtual std::string silence() const;

    // The faults that it made on purpose since the last call. Any thread.
    virtual std::vector<SourceFault> takeFaults();

    // Ends a waiting read() and every later one.
    virtual void interrupt() = 0;
};

// Opens a file, a FIFO or "-"; never waits. Null with the reason in `result`.
std::unique_ptr<ByteSource> openByteSource(const std::string& path, TuneResult& result);

// Reads a descriptor of any such kind through a duplicate of its own. `name` is for messages.
std::unique_ptr<ByteSource> adoptByteSource(int descriptor, const std::string& name,
                                            TuneResult& result);

}  // namespace orvhost
