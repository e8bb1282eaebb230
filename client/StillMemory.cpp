#include "StillMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace orvclient {

namespace {

constexpr int32_t MAX_EXTENT = 8192;  // no picture is larger

bool holds(int descriptor, size_t bytes) {
    const int seals = fcntl(descriptor, F_GET_SEALS);
    struct stat status;
    return seals >= 0 && (seals & F_SEAL_SHRINK) != 0 && fstat(descriptor, &status) == 0 &&
           status.st_size >= 0 && static_cast<uint64_t>(status.st_size) >= bytes;
}

}  // namespace

std::shared_ptr<const StillMemory> StillMemory::map(int descriptor, int32_t width, int32_t height,
                                                    uint32_t bytesPerPixel) {
    if (descriptor < 0 || width < 1 || height < 1 || width > MAX_EXTENT || height > MAX_EXTENT) {
        return nullptr;
    }
    const size_t bytes = static_cast<size_t>(width) * static_cast<size_t>(height) * bytesPerPixel;
    if (!holds(descriptor, bytes)) {
        return nullptr;
    }
    void* const address = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, descriptor, 0);
    if (address == MAP_FAILED) {
        return nullptr;
    }
    return std::shared_ptr<const StillMemory>(
        new StillMemory(static_cast<const uint8_t*>(address), static_cast<uint32_t>(width),
                        static_cast<uint32_t>(height), bytesPerPixel));
}

StillMemory::StillMemory(const uint8_t* pixels, uint32_t width, uint32_t height,
                         uint32_t bytesPerPixel)
    : mPixels(pixels), mWidth(width), mHeight(height), mBytesPerPixel(bytesPerPixel) {}

StillMemory::~StillMemory() {
    munmap(const_cast<uint8_t*>(mPixels), byteSize());
}

}  // namespace orvclient
