// NAME.idx as anybody may have left it, beside a recording that anybody may have made.
//
// The first four bytes are the length of the index; what follows it is the recording.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "recording/FileBytes.h"
#include "recording/IndexFile.h"
#include "recording/RecordingIndex.h"

namespace {

void require(bool holds) {
    if (!holds) {
        abort();
    }
}

void check(const orvhost::RecordingIndex& index, uint64_t recordingBytes) {
    const orvhost::RandomAccessPoint* before = nullptr;
    for (const orvhost::RandomAccessPoint& point : index.points) {
        require(point.offset < recordingBytes && point.time27M >= 0);
        require(before == nullptr ||
                (point.offset > before->offset && point.time27M > before->time27M));
        before = &point;
    }
    for (const int64_t ms : {int64_t{-1}, int64_t{0}, int64_t{1000}, INT64_MAX}) {
        require((index.pointBefore(ms) == nullptr) == index.points.empty());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint32_t indexBytes = 0;
    if (size < sizeof(indexBytes)) {
        return 0;
    }
    std::memcpy(&indexBytes, data, sizeof(indexBytes));
    data += sizeof(indexBytes);
    size -= sizeof(indexBytes);
    const size_t split = std::min<size_t>(indexBytes, size);

    static const int fd = memfd_create("recording", MFD_CLOEXEC);
    require(fd >= 0 && ftruncate(fd, 0) == 0);
    require(orvhost::writeAllAt(fd, data + split, size - split, 0));

    orvhost::RecordingIndex index;
    if (const auto decoded = orvhost::decodeIndex(data, split, size - split)) {
        index = decoded->index;
        check(index, size - split);
    } else {
        index.programme = orvhost::findProgramme(fd, 0);
    }
    orvhost::extendIndex(fd, &index, nullptr);
    check(index, size - split);
    return 0;
}
