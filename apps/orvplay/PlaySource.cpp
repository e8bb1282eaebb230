#include "PlaySource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <vector>

#include "dtv/PacketSynchronizer.h"

namespace orvplay {

namespace {

constexpr size_t LOOK_BYTES = 8 << 20;  // as far as the tuner looks for packets
constexpr size_t PIECE_BYTES = 64 << 10;
constexpr size_t PACKET_BYTES = 188;

// By chance one byte in 256 begins a packet, and as many of those are followed by another one.
bool isMostlyPackets(uint8_t* data, size_t size) {
    orvhost::PacketSynchronizer synchronizer;
    return synchronizer.align(data, size, true).packets * PACKET_BYTES >= size / 2;
}

}  // namespace

std::optional<int> recordingNumberOf(const std::string& source) {
    constexpr std::string_view PREFIX = "recording:";
    if (source.compare(0, PREFIX.size(), PREFIX) != 0) {
        return std::nullopt;
    }
    int number = 0;
    const char* const end = source.data() + source.size();
    const auto parsed = std::from_chars(source.data() + PREFIX.size(), end, number);
    return parsed.ec == std::errc() && parsed.ptr == end && number > 0 ? number : 0;
}

bool isMediaFile(const std::string& path) {
    struct stat status = {};
    if (path == "-" || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size == 0) {
        return false;
    }
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    std::vector<uint8_t> piece(PIECE_BYTES);
    bool hasPackets = fd < 0;
    ssize_t got = 0;
    for (size_t at = 0; !hasPackets && at < LOOK_BYTES; at += PIECE_BYTES) {
        got = pread(fd, piece.data(), piece.size(), static_cast<off_t>(at));
        if (got <= 0) {
            break;
        }
        hasPackets = isMostlyPackets(piece.data(), static_cast<size_t>(got));
    }
    if (fd >= 0) {
        close(fd);
    }
    return !hasPackets && got >= 0;
}

PlaySource mediaSource(const std::string& path) {
    return {SourceKind::MEDIA, path, std::filesystem::path(path).stem().string(), 0, 0};
}

}  // namespace orvplay
