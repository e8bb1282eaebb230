#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "recording/FileBytes.h"
#include "recording/IndexFile.h"
#include "recording/RecordingScanner.h"

namespace orvhost {

namespace {

constexpr int64_t FLUSH_27M = PCR_HZ;

class FileIndexWriter : public RecordingIndexWriter {
public:
    FileIndexWriter(UniqueFd fd, const IndexedProgramme& programme)
        : mFd(std::move(fd)), mScanner(programme) {
        mHeader.programme = programme;
    }

    bool begin() { return writeHeader(); }

    bool add(const uint8_t* packets, size_t count) override {
        if (mHeader.headBytes == 0) {
            takeHead(packets, count);
        }
        mScanner.chooseClock(packets, count);
        for (size_t i = 0; i < count; ++i) {
            mScanner.add(packets + i * TS_PACKET_BYTES, mBytes, &mPoints);
            mBytes += TS_PACKET_BYTES;
        }
        return mScanner.duration27M() < mFlushAt27M || flush();
    }

    bool finish(int recordingFd) override {
        mHead.resize(INDEX_HEAD_BYTES);
        mHead.resize(readAllAt(recordingFd, mHead.data(), mHead.size(), 0));
        setHead();
        if (!flush()) {
            return false;
        }
        mHeader.whole = true;
        mHeader.pointCount = static_cast<uint32_t>(mWritten);
        mHeader.scannedBytes = mBytes;
        mHeader.duration27M = mScanner.duration27M();
        return writeHeader();
    }

    int64_t durationMs() const override { return mScanner.duration27M() / (PCR_HZ / 1000); }

private:
    void takeHead(const uint8_t* packets, size_t count) {
        const size_t missing = INDEX_HEAD_BYTES - mHead.size();
        mHead.insert(mHead.end(), packets, packets + std::min(count * TS_PACKET_BYTES, missing));
        if (mHead.size() == INDEX_HEAD_BYTES) {
            setHead();
            writeHeader();
        }
    }

    void setHead() {
        mHeader.headBytes = static_cast<uint32_t>(mHead.size());
        mHeader.headHash = hashOfHead(mHead.data(), mHead.size());
    }

    bool writeHeader() {
        uint8_t bytes[INDEX_HEADER_BYTES];
        encodeIndexHeader(mHeader, bytes);
        return write(bytes, sizeof(bytes), 0);
    }

    bool flush() {
        mFlushAt27M = mScanner.duration27M() + FLUSH_27M;
        const size_t fresh = mPoints.size() - mKnown;
        if (fresh == 0) {
            return !mFailed;
        }
        std::vector<uint8_t> bytes(fresh * INDEX_POINT_BYTES);
        for (size_t i = 0; i < fresh; ++i) {
            encodeIndexPoint(mPoints[mKnown + i], static_cast<uint32_t>(mWritten + i),
                             bytes.data() + i * INDEX_POINT_BYTES);
        }
        const bool done =
            write(bytes.data(), bytes.size(), INDEX_HEADER_BYTES + mWritten * INDEX_POINT_BYTES);
        mWritten += fresh;
        mPoints.erase(mPoints.begin(), mPoints.end() - 1);
        mKnown = 1;
        return done;
    }

    bool write(const uint8_t* data, size_t size, size_t offset) {
        mFailed = mFailed || !writeAllAt(mFd.get(), data, size, offset);
        return !mFailed;
    }

    UniqueFd mFd;
    RecordingScanner mScanner;
    IndexHeader mHeader;
    std::vector<uint8_t> mHead;
    size_t mWritten = 0;                     // points
    std::vector<RandomAccessPoint> mPoints;  // the next ones, behind the last of those ...
    size_t mKnown = 0;                       // ... which the scanner looks at: 1 once there is one
    uint64_t mBytes = 0;
    int64_t mFlushAt27M = 0;
    bool mFailed = false;
};

}  // namespace

std::unique_ptr<RecordingIndexWriter> RecordingIndexWriter::create(
    const std::string& indexPath, const IndexedProgramme& programme) {
    UniqueFd fd(
        open(indexPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (fd.get() < 0) {
        return nullptr;
    }
    auto writer = std::make_unique<FileIndexWriter>(std::move(fd), programme);
    return writer->begin() ? std::move(writer) : nullptr;
}

bool saveIndex(const std::string& indexPath, const RecordingIndex& index, int recordingFd) {
    IndexHeader header;
    header.programme = index.programme;
    header.packetBytes = index.packetBytes;
    header.whole = true;
    header.pointCount = static_cast<uint32_t>(index.points.size());
    header.scannedBytes = index.scannedBytes;
    header.duration27M = index.duration27M;
    std::vector<uint8_t> head(INDEX_HEAD_BYTES);
    head.resize(readAllAt(recordingFd, head.data(), head.size(), 0));
    header.headBytes = static_cast<uint32_t>(head.size());
    header.headHash = hashOfHead(head.data(), head.size());

    std::vector<uint8_t> bytes(INDEX_HEADER_BYTES + index.points.size() * INDEX_POINT_BYTES);
    encodeIndexHeader(header, bytes.data());
    uint8_t* out = bytes.data() + INDEX_HEADER_BYTES;
    for (size_t i = 0; i < index.points.size(); ++i, out += INDEX_POINT_BYTES) {
        encodeIndexPoint(index.points[i], static_cast<uint32_t>(i), out);
    }
    const std::string fresh = indexPath + ".new";
    UniqueFd fd(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (fd.get() < 0) {
        return false;
    }
    if (writeAllAt(fd.get(), bytes.data(), bytes.size(), 0) &&
        rename(fresh.c_str(), indexPath.c_str()) == 0) {
        return true;
    }
    const int error = errno;
    unlink(fresh.c_str());
    errno = error;
    return false;
}

}  // namespace orvhost
