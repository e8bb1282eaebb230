#include "recording/RecordingIndex.h"

#include <fcntl.h>

#include <algorithm>

#include "recording/FileBytes.h"
#include "recording/IndexFile.h"
#include "trace/HostLog.h"

namespace orvhost {

namespace {

constexpr int64_t TICKS_PER_MS = PCR_HZ / 1000;

// A day of two points a second is 7 MB.
constexpr uint64_t MAX_INDEX_BYTES = 256 << 20;

bool agree(uint16_t pid, uint16_t wanted) {
    return wanted == PID_NONE || pid == wanted;
}

bool isOf(const IndexHeader& header, int recordingFd) {
    std::vector<uint8_t> head(header.headBytes);
    return !head.empty() && readAllAt(recordingFd, head.data(), head.size(), 0) == head.size() &&
           hashOfHead(head.data(), head.size()) == header.headHash;
}

}  // namespace

int64_t RecordingIndex::positionMsOf(const RandomAccessPoint& point) const {
    return points.empty() ? 0 : (point.time27M - points.front().time27M) / TICKS_PER_MS;
}

const RandomAccessPoint* RecordingIndex::pointBefore(int64_t positionMs) const {
    if (points.empty()) {
        return nullptr;
    }
    const auto after = std::upper_bound(
        points.begin(), points.end(), positionMs,
        [this](int64_t ms, const RandomAccessPoint& point) { return ms < positionMsOf(point); });
    return after == points.begin() ? &*after : &*std::prev(after);
}

std::string indexPathOf(const std::string& recordingPath) {
    constexpr std::string_view EXTENSION = ".ts";
    const bool isTs = recordingPath.ends_with(EXTENSION);
    const size_t stem = recordingPath.size() - (isTs ? EXTENSION.size() : 0);
    return recordingPath.substr(0, stem) + ".index";
}

std::optional<RecordingIndex> readIndex(const std::string& indexPath, int recordingFd,
                                        const IndexedProgramme& programme) {
    // A FIFO of that name would wait for its writer without O_NONBLOCK.
    const UniqueFd fd(open(indexPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    const uint64_t size = fd ? sizeOfFile(fd.get()) : 0;
    if (size < INDEX_HEADER_BYTES || size > MAX_INDEX_BYTES) {
        return std::nullopt;
    }
    std::vector<uint8_t> bytes(size);
    bytes.resize(readAllAt(fd.get(), bytes.data(), bytes.size(), 0));
    auto decoded = decodeIndex(bytes.data(), bytes.size(), sizeOfFile(recordingFd));
    if (!decoded || !isOf(decoded->header, recordingFd)) {
        HOST_LOGW("%s: %s is not of this recording, or damaged\n", __func__, indexPath.c_str());
        return std::nullopt;
    }
    const IndexedProgramme& indexed = decoded->index.programme;
    if (!agree(indexed.pcrPid, programme.pcrPid) || !agree(indexed.videoPid, programme.videoPid)) {
        return std::nullopt;
    }
    return std::move(decoded->index);
}

std::optional<RecordingIndex> loadOrRebuildIndex(const std::string& recordingPath, bool save,
                                                 const IndexProgress& progress) {
    const UniqueFd fd(open(recordingPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd) {
        return std::nullopt;
    }
    const std::string indexPath = indexPathOf(recordingPath);
    RecordingIndex index;
    if (auto read = readIndex(indexPath, fd.get(), {})) {
        index = std::move(*read);
    } else {
        index.programme = findProgramme(fd.get(), 0);
    }
    if (index.scannedBytes == sizeOfFile(fd.get()) && index.scannedBytes > 0) {
        return index;
    }
    if (!extendIndex(fd.get(), &index, progress)) {
        return std::nullopt;
    }
    if (save && !saveIndex(indexPath, index, fd.get())) {
        HOST_LOGW("%s: %s cannot be written\n", __func__, indexPath.c_str());
    }
    return index;
}

}  // namespace orvhost
