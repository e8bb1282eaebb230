#include "tools/TsScan.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace orvtest {
namespace {

constexpr size_t kPacketSize = 188;

int64_t readStamp(const uint8_t* at) {
    return (int64_t{at[0] & 0x0E} << 29) | (int64_t{at[1]} << 22) | (int64_t{at[2] & 0xFE} << 14) |
           (int64_t{at[3]} << 7) | (at[4] >> 1);
}

}  // namespace

int64_t stampDistance(int64_t a, int64_t b) {
    const int64_t distance = ((a - b) % kStampModulo + kStampModulo) % kStampModulo;
    return distance < kStampModulo / 2 ? distance : distance - kStampModulo;
}

TsScan::TsScan(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
    if (bytes.empty() || bytes.size() % kPacketSize != 0) {
        throw std::runtime_error(path + ": not whole packets");
    }
    const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
    for (size_t at = 0; at < bytes.size(); at += kPacketSize) {
        if (data[at] != 0x47) {
            throw std::runtime_error(path + ": lost sync");
        }
        take(data + at);
        ++packets;
    }
}

void TsScan::take(const uint8_t* packet) {
    const auto pid = static_cast<uint16_t>((packet[1] & 0x1F) << 8 | packet[2]);
    if (pid == 0x1FFF) {
        return;
    }
    const bool hasPayload = (packet[3] & 0x10) != 0;
    const bool hasAdaptation = (packet[3] & 0x20) != 0;
    const int counter = packet[3] & 0x0F;
    const auto known = mCounter.find(pid);
    if (known != mCounter.end() && counter != ((known->second + (hasPayload ? 1 : 0)) & 0x0F)) {
        continuityErrors[pid].push_back(packets);
    }
    mCounter[pid] = counter;

    size_t body = 4;
    bool randomAccess = false;
    if (hasAdaptation) {
        const size_t length = packet[4];
        body += 1 + length;
        if (length > 0) {
            randomAccess = (packet[5] & 0x40) != 0;
            if ((packet[5] & 0x10) != 0) {
                const int64_t base = (int64_t{packet[6]} << 25) | (int64_t{packet[7]} << 17) |
                                     (int64_t{packet[8]} << 9) | (int64_t{packet[9]} << 1) |
                                     (packet[10] >> 7);
                const int64_t extension = (int64_t{packet[10] & 1} << 8) | packet[11];
                pcrs[pid].push_back({base * 300 + extension, packets});
            }
        }
    }
    if (hasPayload && body < kPacketSize) {
        takePayload(pid, (packet[1] & 0x40) != 0, randomAccess, packet + body, kPacketSize - body);
    }
}

void TsScan::takePayload(uint16_t pid, bool start, bool randomAccess, const uint8_t* data,
                         size_t size) {
    const bool startsPes =
        start && size >= 19 && data[0] == 0 && data[1] == 0 && data[2] == 1 && data[3] >= 0xBD;
    if (start && !startsPes) {
        sections[pid].push_back(packets);
        firstSection.try_emplace(pid, data + 1, data + size);
        return;
    }
    if (startsPes) {
        ScannedPes unit;
        unit.firstPacket = packets;
        unit.randomAccess = randomAccess;
        unit.pts = readStamp(data + 9);
        unit.dts = (data[7] >> 6) == 3 ? readStamp(data + 14) : unit.pts;
        const size_t header = std::min<size_t>(size, 9U + data[8]);
        data += header;
        size -= header;
        pes[pid].push_back(std::move(unit));
    }
    const auto units = pes.find(pid);
    if (units != pes.end()) {
        ScannedPes& unit = units->second.back();
        unit.payload.insert(unit.payload.end(), data, data + size);
        unit.lastPacket = packets;
    }
}

int64_t expectedAfter27M(const ScannedPcr& first, const ScannedPcr& later, int64_t rate) {
    const int64_t bits = (later.packet - first.packet) * static_cast<int64_t>(kPacketSize) * 8;
    return bits / rate * kClock27M + bits % rate * kClock27M / rate;
}

std::string nalTypes(const std::vector<uint8_t>& accessUnit) {
    std::string types;
    for (size_t i = 0; i + 3 < accessUnit.size(); ++i) {
        if (accessUnit[i] == 0 && accessUnit[i + 1] == 0 && accessUnit[i + 2] == 1) {
            types += (types.empty() ? "" : " ") + std::to_string(accessUnit[i + 3] & 0x1F);
            i += 3;
        }
    }
    return types;
}

}  // namespace orvtest
