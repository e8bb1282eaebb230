#include "recording/IndexFile.h"

#include <algorithm>
#include <cstring>

namespace orvhost {

namespace {

constexpr char MAGIC[8] = {'O', 'R', 'V', 'I', 'D', 'X', '1', '\n'};

constexpr int64_t LONGEST_27M = PCR_HZ * 3600 * 24 * 366;

struct RawHeader {
    char magic[8];
    uint32_t headBytes;
    uint32_t packetBytes;
    uint64_t headHash;
    uint16_t serviceId;
    uint16_t pcrPid;
    uint16_t videoPid;
    uint8_t videoType;
    uint8_t whole;
    uint64_t scannedBytes;
    int64_t duration27M;
    uint32_t pointCount;
    uint32_t reserved[2];
    uint32_t checkSum;
};
static_assert(sizeof(RawHeader) == INDEX_HEADER_BYTES);

struct RawPoint {
    uint64_t offset;
    int64_t time27M;
    int64_t clock27M;
    int64_t pcr27M;
    uint32_t number;
    uint32_t checkSum;
};
static_assert(sizeof(RawPoint) == INDEX_POINT_BYTES);

// FNV-1a.
uint64_t hashOf(const uint8_t* data, size_t size) {
    uint64_t hash = 0xcbf29ce484222325;
    for (size_t i = 0; i < size; ++i) {
        hash = (hash ^ data[i]) * 0x100000001b3;
    }
    return hash;
}

// Of all but the check sum itself, which is last.
template <typename Raw>
uint32_t checkSumOf(const Raw& raw) {
    uint8_t bytes[sizeof(Raw)];
    std::memcpy(bytes, &raw, sizeof(bytes));
    const uint64_t hash = hashOf(bytes, sizeof(bytes) - sizeof(uint32_t));
    return static_cast<uint32_t>(hash ^ hash >> 32);
}

bool isTime(int64_t ticks) {
    return ticks >= 0 && ticks <= LONGEST_27M;
}

bool readHeader(const uint8_t* data, size_t size, RawHeader* raw) {
    if (size < sizeof(*raw)) {
        return false;
    }
    std::memcpy(raw, data, sizeof(*raw));
    return std::memcmp(raw->magic, MAGIC, sizeof(MAGIC)) == 0 &&
           raw->checkSum == checkSumOf(*raw) &&
           (raw->packetBytes == 188 || raw->packetBytes == 192 || raw->packetBytes == 204) &&
           raw->headBytes <= INDEX_HEAD_BYTES && raw->pcrPid <= PID_NONE &&
           raw->videoPid <= PID_NONE && isTime(raw->duration27M);
}

// Whether this can be the point with that number, after those before it.
bool isPoint(const RawPoint& raw, size_t number, uint64_t recordingBytes,
             const std::vector<RandomAccessPoint>& before) {
    const bool isOne = raw.checkSum == checkSumOf(raw) && raw.number == number &&
                       raw.offset < recordingBytes && isTime(raw.time27M) && isTime(raw.clock27M) &&
                       raw.pcr27M >= -1 && raw.pcr27M < PCR_WRAP;
    return isOne && (before.empty() ||
                     (raw.offset > before.back().offset && raw.time27M > before.back().time27M &&
                      raw.clock27M >= before.back().clock27M));
}

}  // namespace

uint64_t hashOfHead(const uint8_t* head, size_t size) {
    return hashOf(head, size);
}

void encodeIndexHeader(const IndexHeader& header, uint8_t out[INDEX_HEADER_BYTES]) {
    RawHeader raw = {};
    std::memcpy(raw.magic, MAGIC, sizeof(MAGIC));
    raw.headBytes = header.headBytes;
    raw.packetBytes = header.packetBytes;
    raw.headHash = header.headHash;
    raw.serviceId = header.programme.serviceId;
    raw.pcrPid = header.programme.pcrPid;
    raw.videoPid = header.programme.videoPid;
    raw.videoType = header.programme.videoType;
    raw.whole = header.whole ? 1 : 0;
    raw.scannedBytes = header.scannedBytes;
    raw.duration27M = header.duration27M;
    raw.pointCount = header.pointCount;
    raw.checkSum = checkSumOf(raw);
    std::memcpy(out, &raw, sizeof(raw));
}

void encodeIndexPoint(const RandomAccessPoint& point, uint32_t number,
                      uint8_t out[INDEX_POINT_BYTES]) {
    RawPoint raw = {point.offset, point.time27M, point.clock27M, point.pcr27M, number, 0};
    raw.checkSum = checkSumOf(raw);
    std::memcpy(out, &raw, sizeof(raw));
}

std::optional<DecodedIndex> decodeIndex(const uint8_t* data, size_t size, uint64_t recordingBytes) {
    RawHeader raw;
    if (!readHeader(data, size, &raw)) {
        return std::nullopt;
    }
    const bool whole = raw.whole != 0;
    if (whole && raw.scannedBytes > recordingBytes) {
        return std::nullopt;
    }
    DecodedIndex decoded;
    IndexHeader& header = decoded.header;
    header.programme = {raw.serviceId, raw.pcrPid, raw.videoPid, raw.videoType};
    header.packetBytes = raw.packetBytes;
    header.headBytes = raw.headBytes;
    header.headHash = raw.headHash;
    header.whole = whole;
    header.pointCount = raw.pointCount;
    header.scannedBytes = raw.scannedBytes;
    header.duration27M = raw.duration27M;

    RecordingIndex& index = decoded.index;
    index.programme = header.programme;
    index.packetBytes = header.packetBytes;
    std::vector<RandomAccessPoint>& points = index.points;
    const size_t count = (size - INDEX_HEADER_BYTES) / INDEX_POINT_BYTES;
    points.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        RawPoint point;
        std::memcpy(&point, data + INDEX_HEADER_BYTES + i * INDEX_POINT_BYTES, sizeof(point));
        if (!isPoint(point, i, recordingBytes, points)) {
            break;
        }
        points.push_back({point.offset, point.time27M, point.clock27M, point.pcr27M});
    }
    if (whole && points.size() == header.pointCount) {
        index.scannedBytes = header.scannedBytes;
        index.duration27M = header.duration27M;
    } else if (!points.empty()) {
        index.scannedBytes = points.back().offset;
        index.duration27M = points.back().clock27M;
    }
    return decoded;
}

}  // namespace orvhost
